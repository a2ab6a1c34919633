// SHARELINK_ACX: the access entries of a share link (key, access text).
//
// The same family of operations as the link table: every call opens the
// store, works and closes it again; writes run in a transaction, rolled back
// on failure. Results: 0 (or a count) on success, else a store code of
// result_codes.h. Texts longer than 40 bytes (-10) and bad codes, keys or
// ranges (-11) are refused before the store is opened.
#ifndef SLT_SHARELINK_DB_ACX_ROWS_H_
#define SLT_SHARELINK_DB_ACX_ROWS_H_

#include "sharelink_db/records.h"

int sf_acx_count();  // count, -24, -20
// Conditions: pkey equal, acx equal. count, -10, -11, -24, -20.
int sf_acx_count_filter(const ShareLinkAcxRecord* filter);
int sf_acx_insert(const ShareLinkAcxRecord* record);  // 0, -10, -11, -23, -20
// sort 0/1 pkey, 2/3 acx. 0, -11, -24, -20.
int sf_acx_select(SfRowCallback cb, int sort, int start, int end, void* user_data);
int sf_acx_select_filter(SfRowCallback cb, const ShareLinkAcxRecord* filter, int sort, int start,
                         int end, void* user_data);
// Sets the record's non-empty fields on the rows of its pkey (or, without a
// pkey, of its acx). 0, -10, -11 (neither key), -28, -20.
int sf_acx_update(const ShareLinkAcxRecord* record);
// field 0 pkey, 1 acx. 0, -11, -27, -20.
int sf_acx_delete_by_field(int field, const char* value);
int sf_acx_delete_filter(const ShareLinkAcxRecord* filter);  // 0, -10, -11, -27, -20
int sf_acx_delete_all();                                     // 0, -22, -20
int sf_acx_drop();                                           // 0, -21, -20

// A caller's array that a select fills; rows beyond `capacity` are counted in
// `overflow` and skipped. NULL columns read as empty texts.
struct SfAcxRows {
  ShareLinkAcxRecord* rows;
  int capacity;
  int count;
  int overflow;
};
// Row reader (2 columns) for an SfAcxRows at user_data.
int sf_fill_acx_rows(void* user_data, int ncols, char** values, char** names);

#endif  // SLT_SHARELINK_DB_ACX_ROWS_H_
