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

int sf_user_count();  // count, -24, -20
// Conditions: pkey, user and description equal, email containing. count,
// -10, -11, -24, -20.
int sf_user_count_filter(const ShareLinkUserRecord* filter);
int sf_user_insert(const ShareLinkUserRecord* record);  // 0, -10, -11, -23, -20
// sort 0/1 pkey, 2/3 user, 4/5 description, 6/7 email. 0, -11, -24, -20.
int sf_user_select(SfRowCallback cb, int sort, int start, int end, void* user_data);
// The filtered select keeps its historical sort texts: codes 4/5 name a
// column "desctiption" that does not exist (the query fails, -24) and code 6
// has no trailing blank.
int sf_user_select_filter(SfRowCallback cb, const ShareLinkUserRecord* filter, int sort, int start,
                          int end, void* user_data);
// Sets the record's non-empty fields on the rows of its pkey (or, without a
// pkey, of its user). 0, -10, -11 (neither key), -28, -20.
int sf_user_update(const ShareLinkUserRecord* record);
// Sets description and email of the rows with both keys. 0, -10, -11 (a key
// missing), -28 (also when neither is given), -20.
int sf_user_update_by_keys(const ShareLinkUserRecord* record);
// field 0 pkey, 1 user, 2 description, 3 email. 0, -11, -27, -20.
int sf_user_delete_by_field(int field, const char* value);
int sf_user_delete_filter(const ShareLinkUserRecord* filter);  // 0, -10, -11, -27, -20
int sf_user_delete_all();                                      // 0, -22, -20
int sf_user_drop();                                            // 0, -21, -20

// A caller's array that a select fills; rows beyond `capacity` are counted in
// `overflow` and skipped. NULL columns read as empty texts.
struct SfUserRows {
  ShareLinkUserRecord* rows;
  int capacity;
  int count;
  int overflow;
};
// Row reader (4 columns) for an SfUserRows at user_data.
int sf_fill_user_rows(void* user_data, int ncols, char** values, char** names);

#endif  // SLT_SHARELINK_DB_USER_ROWS_H_
