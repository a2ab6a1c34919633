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

// Columns: 0 pkey, 1 acx. Filters: both equal. Updates fall back to the
// access text as key.
SF_DECLARE_ROW_TABLE(acx, ShareLinkAcxRecord);
int sf_acx_insert(const ShareLinkAcxRecord* record);  // 0, -10, -11, -23, -20

using SfAcxRows = SfRows<ShareLinkAcxRecord>;
// Row reader (2 columns) for an SfAcxRows at user_data.
int sf_fill_acx_rows(void* user_data, int ncols, char** values, char** names);

#endif  // SLT_SHARELINK_DB_ACX_ROWS_H_
