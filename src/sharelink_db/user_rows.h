// SHARELINK_USER: the recipients of a share link (key, user, description,
// e-mail).
//
// The same family of operations as the link table: every call opens the
// store, works and closes it again; writes run in a transaction, rolled back
// on failure. Results: 0 (or a count) on success, else a store code of
// result_codes.h. Over-long texts (pkey 40, user 64, description and email
// 512: -10) and bad codes, keys or ranges (-11) are refused before the store
// is opened.
#ifndef SLT_SHARELINK_DB_USER_ROWS_H_
#define SLT_SHARELINK_DB_USER_ROWS_H_

#include "sharelink_db/records.h"

// Columns: 0 pkey, 1 user, 2 description, 3 email. Filters: pkey, user and
// description equal, email containing. Updates fall back to the user as key.
SF_DECLARE_ROW_TABLE(user, ShareLinkUserRecord);
int sf_user_insert(const ShareLinkUserRecord* record);  // 0, -10, -11, -23, -20
// Sets description and email on the rows with both keys. 0, -10, -11 (a key
// missing), -28 (also with nothing to set), -20.
int sf_user_update_by_keys(const ShareLinkUserRecord* record);

using SfUserRows = SfRows<ShareLinkUserRecord>;
// Row reader (4 columns) for an SfUserRows at user_data.
int sf_fill_user_rows(void* user_data, int ncols, char** values, char** names);

#endif  // SLT_SHARELINK_DB_USER_ROWS_H_
