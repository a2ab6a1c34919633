#include "sharelink_db/user_rows.h"

#include "sharelink_db/row_table.h"

using namespace sf_internal;

namespace {

const char* const kColumns[] = {"pkey", "user", "description", "email"};

// The filtered select's sort texts, kept as callers have always had them:
// the misspelt column (that statement fails) and the one without its blank.
const char* const kFilteredOrder[] = {
    "ORDER BY pkey ",        "ORDER BY pkey DESC ",        "ORDER BY user ",  "ORDER BY user DESC ",
    "ORDER BY desctiption ", "ORDER BY desctiption DESC ", "ORDER BY email", "ORDER BY email DESC ",
};

const RowTable<ShareLinkUserRecord> kUser{
    {"SHARELINK_USER", kColumns, 4},
    [](const ShareLinkUserRecord& r, ColumnText* t) {
      t[0] = {SF_TXT(r.pkey)};
      t[1] = {SF_TXT(r.user)};
      t[2] = {SF_TXT(r.description)};
      t[3] = {SF_TXT(r.email)};
    },
    1u << 3,  // an address filter matches anywhere inside the address
    kFilteredOrder,
};

}  // namespace

SF_DEFINE_ROW_TABLE(user, ShareLinkUserRecord, kUser)

// One recipient a transaction: callers add them one by one.
int sf_user_insert(const ShareLinkUserRecord* r) {
  if (r == nullptr) return kSfBadParam;
  if (kUser.too_long(*r)) return kSfTooLong;
  SqlText sql(kUser.insert_sql(*r));
  if (sql.get() == nullptr) return kSfInsertFailed;
  return open_and_run(sql.get(), true, kSfInsertFailed);
}

int sf_user_update_by_keys(const ShareLinkUserRecord* r) {
  if (r == nullptr) return kSfBadParam;
  if (kUser.too_long(*r)) return kSfTooLong;
  if (!has_text(r->pkey) || !has_text(r->user)) return kSfBadParam;
  BoundedSql list(kConditionBuffer);
  if (has_text(r->description)) list.append(", description = %.*Q ", SF_TXT(r->description));
  if (has_text(r->email)) list.append(", email = %.*Q ", SF_TXT(r->email));
  if (list.overflow()) return kSfTooLong;
  // With nothing to set, the statement is the WHERE clause alone and fails.
  char* target =
      list.empty()
          ? sqlite3_mprintf("WHERE pkey = %.*Q AND user = %.*Q", SF_TXT(r->pkey), SF_TXT(r->user))
          : sqlite3_mprintf("SET %s WHERE pkey = %.*Q AND user = %.*Q", list.c_str() + 2,
                            SF_TXT(r->pkey), SF_TXT(r->user));
  return update_target(kUser.table, target);
}

int sf_fill_user_rows(void* user_data, int ncols, char** values, char** names) {
  ShareLinkUserRecord* r = next_row<SfUserRows>(user_data, ncols, 4, values);
  if (r == nullptr) return 0;
  copy_column(r->pkey, values[0], "");
  copy_column(r->user, values[1], "");
  copy_column(r->description, values[2], "");
  copy_column(r->email, values[3], "");
  return 0;
}
