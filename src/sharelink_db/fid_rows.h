// SHARELINK_FID: the files of a share link (key, file id, path).
//
// The same family of operations as the link table: every call opens the
// store, works and closes it again; writes run in a transaction, rolled back
// on failure. Results: 0 (or a count) on success, else a store code of
// result_codes.h. Over-long texts (-10) and bad codes, keys or ranges (-11)
// are refused before the store is opened.
#ifndef SLT_SHARELINK_DB_FID_ROWS_H_
#define SLT_SHARELINK_DB_FID_ROWS_H_

#include "sharelink_db/records.h"

int sf_fid_count();  // count, -24, -20
// Conditions: pkey equal, fid equal, sharefile containing. count, -10, -11,
// -24, -20.
int sf_fid_count_filter(const ShareLinkFidRecord* filter);
int sf_fid_insert(const ShareLinkFidRecord* record);  // 0, -10, -11, -23, -20
// count records in one transaction.
int sf_fid_insert_many(const ShareLinkFidRecord* records, int count);
// sort 0/1 pkey, 2/3 fid, 4/5 sharefile; start/end as for links. 0, -11,
// -24, -20.
int sf_fid_select(SfRowCallback cb, int sort, int start, int end, void* user_data);
int sf_fid_select_filter(SfRowCallback cb, const ShareLinkFidRecord* filter, int sort, int start,
                         int end, void* user_data);
// Sets the record's non-empty fields on the rows of its pkey (or, without a
// pkey, of its fid). 0, -10, -11 (neither key), -28, -20.
int sf_fid_update(const ShareLinkFidRecord* record);
// Sets the fid (to itself) and, when given, the sharefile of the rows with
// both keys. 0, -10, -11 (a key missing), -28, -20.
int sf_fid_update_by_keys(const ShareLinkFidRecord* record);
// field 0 pkey, 1 fid, 2 sharefile. 0, -11, -27, -20.
int sf_fid_delete_by_field(int field, const char* value);
int sf_fid_delete_filter(const ShareLinkFidRecord* filter);  // 0, -10, -11, -27, -20
int sf_fid_delete_all();                                     // 0, -22, -20
int sf_fid_drop();                                           // 0, -21, -20

// A caller's array that a select fills; rows beyond `capacity` are counted in
// `overflow` and skipped. NULL columns read as empty texts.
struct SfFidRows {
  ShareLinkFidRecord* rows;
  int capacity;
  int count;
  int overflow;
};
// Row reader (3 columns) for an SfFidRows at user_data.
int sf_fill_fid_rows(void* user_data, int ncols, char** values, char** names);

#endif  // SLT_SHARELINK_DB_FID_ROWS_H_
