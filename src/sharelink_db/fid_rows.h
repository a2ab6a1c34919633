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

// Columns: 0 pkey, 1 fid, 2 sharefile. Filters: pkey and fid equal,
// sharefile containing. Updates fall back to the fid as key.
SF_DECLARE_ROW_TABLE(fid, ShareLinkFidRecord);
int sf_fid_insert(const ShareLinkFidRecord* record);  // 0, -10, -11, -23, -20
// count records in one transaction.
int sf_fid_insert_many(const ShareLinkFidRecord* records, int count);
// Sets the fid (to itself) and, when given, the sharefile of the rows with
// both keys. 0, -10, -11 (a key missing), -28, -20.
int sf_fid_update_by_keys(const ShareLinkFidRecord* record);

using SfFidRows = SfRows<ShareLinkFidRecord>;
// Row reader (3 columns) for an SfFidRows at user_data.
int sf_fill_fid_rows(void* user_data, int ncols, char** values, char** names);

#endif  // SLT_SHARELINK_DB_FID_ROWS_H_
