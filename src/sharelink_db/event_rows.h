// SHARELINK_EVENT: count, select, insert, update, delete and drop of share
// links. Every call opens the store, works and closes it again. Results: 0
// (or a count) on success, else a store code of result_codes.h.
//
// Over-long texts (-10) and bad codes or ranges (-11) are refused before the
// store is opened. A filter or assignment list whose statement text would not
// fit its 4096-byte buffer is refused with -10 rather than cut. Writes run in
// a transaction and are rolled back on failure.
#ifndef SLT_SHARELINK_DB_EVENT_ROWS_H_
#define SLT_SHARELINK_DB_EVENT_ROWS_H_

#include "sharelink_db/records.h"

// The number of links: count, -24, -20.
int sf_event_count();
// Links matching the filter ("expire <=" the filter's expiry; creator C also
// matches "Mirra:C", with the OR ungrouped). count, -10, -11, -24, -20.
int sf_event_count_filter(const ShareLinkRecord* filter);
// sort 0..37; start/end page indexes (both 0: everything). Each row goes to
// cb with user_data. 0, -11, -24, -20.
int sf_event_select(SfRowCallback cb, int sort, int start, int end, void* user_data);
// The same through a filter ("expire =" the filter's expiry). Checks only the
// ssl range. 0, -10 (statement too long), -11, -24, -20.
int sf_event_select_filter(SfRowCallback cb, const ShareLinkRecord* filter, int sort, int start,
                           int end, void* user_data);
// An empty creator is set to "system" in the caller's record. The creation
// date and time come from the column defaults. 0, -10, -11, -23, -20.
int sf_event_insert(ShareLinkRecord* record);
// Adds a link with its files and recipients in one BEGIN IMMEDIATE
// transaction: all of it or nothing, and nothing when a link with its key
// exists (-17), so of two adds of one key exactly one succeeds. The checks
// and codes of the three inserts; `failed_part` (when not null) tells which
// part failed: 0 the link, 1 its files, 2 its recipients.
int sf_add_link(ShareLinkRecord* link, const ShareLinkFidRecord* fids, int nfids,
                const ShareLinkUserRecord* users, int nusers, int* failed_part);
// Sets the record's given fields on the link `pkey`; with no pkey, a list
// starting with misc changes the rows whose misc is "----" and a list of only
// type changes every row; anything else has no target. 0, -10, -11, -28, -20.
int sf_event_update(const ShareLinkRecord* record);
// Applies up to `count` records of the list in one transaction, each to its
// pkey (every row when the pkey is empty). 0, -28, -20. When the statement
// cannot be prepared the result is -28 and the connection is left open with
// its transaction begun (parked, see store.h).
int sf_event_update_list(int count, ShareLinkListNode* first);
// field 0..18 in column order; integer columns take a pointer to int32_t.
// Field 7 removes links with an expiry before the value. 0, -11, -27, -20.
int sf_event_delete_by_field(int field, const void* value);
// Deletes the filter's links (creator alone, "expire <="). A failed COMMIT
// still gives 0. 0, -10, -11, -27, -20.
int sf_event_delete_filter(const ShareLinkRecord* filter);
int sf_event_delete_all();  // 0, -22, -20
int sf_event_drop();        // 0, -21, -20
// Runs a statement text, passed through sqlite3_mprintf (so "%%" stands for
// "%"). The SQLite result code; -11 when the text holds a conversion that
// would need an argument; -20.
int sf_exec_sql(const char* statement);

// Row readers: act only on rows of exactly 19 columns.
// Stores row n into ((ShareLinkRecord*)user_data)[n]; the listing's counter.
int sf_fill_record_array(void* user_data, int ncols, char** values, char** names);
extern int sf_record_array_count;
// The same with the clean-up's own counter.
int sf_fill_record_array_clean(void* user_data, int ncols, char** values, char** names);
extern int sf_clean_array_count;
// Fills the one ShareLinkRecord at user_data.
int sf_fill_record_single(void* user_data, int ncols, char** values, char** names);

using SfRecordArray = SfRows<ShareLinkRecord>;
// Row reader for an SfRecordArray at user_data.
int sf_fill_record_bounded(void* user_data, int ncols, char** values, char** names);

#endif  // SLT_SHARELINK_DB_EVENT_ROWS_H_
