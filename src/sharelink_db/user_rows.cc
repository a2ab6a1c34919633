#include "sharelink_db/user_rows.h"

#include "sharelink_db/event_sql.h"
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

void texts(const ShareLinkUserRecord& r, ColumnText* t) {
  t[0] = {SF_TXT(r.pkey)}, t[1] = {SF_TXT(r.user)};
  t[2] = {SF_TXT(r.description)}, t[3] = {SF_TXT(r.email)};
}

// An address filter (column 3) matches anywhere inside the address.
const RowTable<ShareLinkUserRecord> kUser{{"SHARELINK_USER", kColumns, 4}, texts, 1u << 3,
                                          kFilteredOrder};

}  // namespace

SF_DEFINE_ROW_TABLE(user, ShareLinkUserRecord, kUser)

// One recipient a transaction: callers add them one by one.
int sf_user_insert(const ShareLinkUserRecord* r) { return kUser.insert(r); }

int sf_user_update_by_keys(const ShareLinkUserRecord* r) {
  return kUser.update_by_keys(r, [](const ShareLinkUserRecord& u, BoundedSql* items) {
    if (has_text(u.description)) items->append(", description = %.*Q ", SF_TXT(u.description));
    if (has_text(u.email)) items->append(", email = %.*Q ", SF_TXT(u.email));
  });
}


int sf_internal::user_insert_statement(const ShareLinkUserRecord& r, char** sql) {
  return kUser.insert_statement(r, sql);
}
