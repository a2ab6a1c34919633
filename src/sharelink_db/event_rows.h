// SHARELINK_EVENT: count, select, insert, update, delete and drop of share
// links. Every call opens the store, works and closes it again. Results: 0
// (or a count) on success, else a store code of result_codes.h.
#ifndef SLT_SHARELINK_DB_EVENT_ROWS_H_
#define SLT_SHARELINK_DB_EVENT_ROWS_H_

#include "sharelink_db/records.h"

int sf_event_count();
int sf_event_count_filter(const ShareLinkRecord* filter);
// sort 0..37; start/end page indexes (both 0: everything).
int sf_event_select(SfRowCallback cb, int sort, int start, int end, void* user_data);
int sf_event_select_filter(SfRowCallback cb, const ShareLinkRecord* filter, int sort, int start,
                           int end, void* user_data);
// An empty creator is set to "system" in the caller's record.
int sf_event_insert(ShareLinkRecord* record);
int sf_event_update(const ShareLinkRecord* record);
int sf_event_update_list(int count, ShareLinkListNode* first);
// field 0..18 in column order; integer columns take a pointer to int32_t.
int sf_event_delete_by_field(int field, const void* value);
int sf_event_delete_filter(const ShareLinkRecord* filter);
int sf_event_delete_all();
int sf_event_drop();
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

#endif  // SLT_SHARELINK_DB_EVENT_ROWS_H_
