// Selects that return a companion row together with its link: each file row
// or recipient row followed by the columns of its SHARELINK_EVENT row (a left
// outer join, so a row whose link is gone comes with NULL link columns), and
// each link followed by its number of file rows (an inner join: links without
// file rows are left out).
//
// Each call opens the store, runs the select with the caller's row callback
// and closes it. 0, -10 (filter too long), -11 (bad filter, sort code or
// range), -24 (query failed), -20.
#ifndef SLT_SHARELINK_DB_JOINED_ROWS_H_
#define SLT_SHARELINK_DB_JOINED_ROWS_H_

#include <cstdint>

#include "sharelink_db/records.h"

// Filter as for SHARELINK_FID (prefixed "sharelink_fid."); sort 0/1 pkey, 2/3
// fid, 4/5 sharefile of the file row. Rows have 3 + 19 columns.
int sf_fid_join_select(SfRowCallback cb, const ShareLinkFidRecord* filter, int sort, int start,
                       int end, void* user_data);

// Filter as for SHARELINK_USER (prefixed "sharelink_user."); sort 0 to 7 as
// for recipients, 10/11 filesize, 12/13 "start_time" (no such column: the
// query fails, -24), 14/15 expire, 16/17 creator, 36/37 link_name of the
// link; any other code up to 37 gives no ordering. Rows have 4 + 19 columns.
int sf_user_join_select(SfRowCallback cb, const ShareLinkUserRecord* filter, int sort, int start,
                        int end, void* user_data);

// Links with their number of file rows: the link sort codes (0..37) and
// paging; the filtered form takes a link filter as the filtered link select
// does. Rows have 19 + 1 columns. A pkey condition is ambiguous in the join
// and fails (-24).
int sf_event_fid_count_select(SfRowCallback cb, int sort, int start, int end, void* user_data);
int sf_event_fid_count_select_filter(SfRowCallback cb, const ShareLinkRecord* filter, int sort,
                                     int start, int end, void* user_data);

// A link and its number of file rows.
struct ShareLinkCountRecord {
  ShareLinkRecord event;
  int32_t file_count;
};

// Callers' arrays that the selects above fill; rows beyond `capacity` are
// counted in `overflow` and skipped. Companion NULL columns read as empty
// texts, link NULL columns as the link defaults.
struct SfFidJoinRows {
  ShareLinkFidJoinRecord* rows;
  int capacity;
  int count;
  int overflow;
};
struct SfUserJoinRows {
  ShareLinkUserJoinRecord* rows;
  int capacity;
  int count;
  int overflow;
};
struct SfCountRows {
  ShareLinkCountRecord* rows;
  int capacity;
  int count;
  int overflow;
};
int sf_fill_fid_join_rows(void* user_data, int ncols, char** values, char** names);
int sf_fill_user_join_rows(void* user_data, int ncols, char** values, char** names);
int sf_fill_count_rows(void* user_data, int ncols, char** values, char** names);

#endif  // SLT_SHARELINK_DB_JOINED_ROWS_H_
