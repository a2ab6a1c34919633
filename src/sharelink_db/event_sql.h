// The SHARELINK_EVENT pieces that the link table and the joined selects
// share: the filter checks, the condition fragments, the sort fragments and
// the row fill. Not for use outside sharelink_db/.
#ifndef SLT_SHARELINK_DB_EVENT_SQL_H_
#define SLT_SHARELINK_DB_EVENT_SQL_H_

#include <string>

#include "sharelink_db/records.h"
#include "sharelink_db/store_internal.h"

namespace sf_internal {

// Which operation a filter serves; they differ in the expiry comparison and
// in the creator condition.
enum class EventFilterUse {
  kCount,   // "expire <=", creator or its sync-service form
  kSelect,  // "expire =", creator or its sync-service form
  kDelete,  // "expire <=", creator alone
};

// The checks of the count (and, with `check_title` false, of the delete by
// filter) before the store is opened: -10 for an over-long text, -11 for a
// bad ssl or an expiry before the creation time; 0 when the filter is fine.
int check_event_filter(const ShareLinkRecord* filter, bool check_title);

// The filter's conditions, in their fixed order, each beginning "AND ".
void event_conditions(const ShareLinkRecord* filter, EventFilterUse use, BoundedSql* out);

// The ORDER BY fragment of sort code 0..37, for the unfiltered (no trailing
// blank; no ordering for 26 to 29) or the filtered select. False for a code
// out of range.
bool event_order(int sort, bool filtered, std::string* out);

// Fills a record from the 19 columns of a SHARELINK_EVENT row, NULL columns
// taking their defaults. The reserved texts are left alone.
void fill_event_record(ShareLinkRecord* record, char** values);

// The insert statements of one row: 0 with the statement in `sql` (null
// when memory ran out), or the code of a refused record (-10, -11).
int event_insert_statement(ShareLinkRecord* record, char** sql);
int fid_insert_statement(const ShareLinkFidRecord& record, char** sql);
int user_insert_statement(const ShareLinkUserRecord& record, char** sql);

}  // namespace sf_internal

#endif  // SLT_SHARELINK_DB_EVENT_SQL_H_
