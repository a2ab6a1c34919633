#include "sharelink_db/user_rows.h"

#include <string>

#include "sharelink_db/result_codes.h"
#include "sharelink_db/store_internal.h"

using namespace sf_internal;

namespace {

constexpr size_t kConditionBuffer = 4096;
const char* const kColumns[] = {"pkey", "user", "description", "email"};
constexpr int kColumnCount = 4;

// The filtered select's sort texts, kept as callers have always had them.
const char* const kFilteredOrder[] = {
    "ORDER BY pkey ",        "ORDER BY pkey DESC ",        "ORDER BY user ",  "ORDER BY user DESC ",
    "ORDER BY desctiption ", "ORDER BY desctiption DESC ", "ORDER BY email", "ORDER BY email DESC ",
};

bool too_long_record(const ShareLinkUserRecord* r) {
  return too_long(r->pkey, 40) || too_long(r->user, 64) || too_long(r->description, 512) ||
         too_long(r->email, 512);
}

int conditions_of(const ShareLinkUserRecord* f, BoundedSql* out) {
  if (has_text(f->pkey)) out->append("AND pkey = %.*Q ", SF_TXT(f->pkey));
  if (has_text(f->user)) out->append("AND user = %.*Q ", SF_TXT(f->user));
  if (has_text(f->description)) out->append("AND description = %.*Q ", SF_TXT(f->description));
  if (has_text(f->email)) out->append("AND email LIKE '%%%.*q%%' ", SF_TXT(f->email));
  return out->overflow() ? kSfTooLong : 0;
}

// Takes a target clause made by sqlite3_mprintf (null when memory ran out).
int run_update(char* target) {
  SqlText owned(target);
  SqlText sql(sqlite3_mprintf("UPDATE SHARELINK_USER %s;", target));
  if (target == nullptr || sql.get() == nullptr) return kSfUpdateFailed;
  return open_and_run(sql.get(), true, kSfUpdateFailed);
}

}  // namespace

int sf_user_count() { return open_and_count("SELECT COUNT(*) FROM SHARELINK_USER;"); }

int sf_user_count_filter(const ShareLinkUserRecord* filter) {
  if (filter == nullptr) return kSfBadParam;
  if (too_long_record(filter)) return kSfTooLong;
  BoundedSql conditions(kConditionBuffer);
  int rc = conditions_of(filter, &conditions);
  if (rc != 0) return rc;
  SqlText sql(
      sqlite3_mprintf("SELECT COUNT(*) FROM SHARELINK_USER %s;", where_clause(conditions).c_str()));
  return open_and_count(sql.get());
}

int sf_user_insert(const ShareLinkUserRecord* r) {
  if (r == nullptr) return kSfBadParam;
  if (too_long_record(r)) return kSfTooLong;
  SqlText sql(sqlite3_mprintf(
      "INSERT INTO SHARELINK_USER ( pkey, user, description, email ) VALUES ( %.*Q, %.*Q, %.*Q, "
      "%.*Q );",
      SF_TXT(r->pkey), SF_TXT(r->user), SF_TXT(r->description), SF_TXT(r->email)));
  if (sql.get() == nullptr) return kSfInsertFailed;
  return open_and_run(sql.get(), true, kSfInsertFailed);
}

int sf_user_select(SfRowCallback cb, int sort, int start, int end, void* user_data) {
  std::string order;
  if (!column_order(kColumns, kColumnCount, sort, false, "", &order) || bad_range(start, end)) {
    return kSfBadParam;
  }
  SqlText sql(sqlite3_mprintf("SELECT * FROM SHARELINK_USER %s %s;", order.c_str(),
                              paging_clause(start, end, " ").c_str()));
  return open_and_select(sql.get(), cb, user_data);
}

int sf_user_select_filter(SfRowCallback cb, const ShareLinkUserRecord* filter, int sort, int start,
                          int end, void* user_data) {
  if (filter == nullptr) return kSfBadParam;
  if (too_long_record(filter)) return kSfTooLong;
  if (sort < 0 || sort > 7 || bad_range(start, end)) return kSfBadParam;
  BoundedSql conditions(kConditionBuffer);
  int rc = conditions_of(filter, &conditions);
  if (rc != 0) return rc;
  SqlText sql(sqlite3_mprintf("SELECT * FROM SHARELINK_USER %s %s %s;",
                              where_clause(conditions).c_str(), kFilteredOrder[sort],
                              paging_clause(start, end, "").c_str()));
  return open_and_select(sql.get(), cb, user_data);
}

int sf_user_update(const ShareLinkUserRecord* r) {
  if (r == nullptr) return kSfBadParam;
  if (too_long_record(r)) return kSfTooLong;
  if (!has_text(r->pkey) && !has_text(r->user)) return kSfBadParam;
  BoundedSql list(kConditionBuffer);
  if (has_text(r->pkey)) list.append(", pkey = %.*Q ", SF_TXT(r->pkey));
  if (has_text(r->user)) list.append(", user = %.*Q ", SF_TXT(r->user));
  if (has_text(r->description)) list.append(", description = %.*Q ", SF_TXT(r->description));
  if (has_text(r->email)) list.append(", email = %.*Q ", SF_TXT(r->email));
  if (list.overflow()) return kSfTooLong;
  return run_update(has_text(r->pkey) ? sqlite3_mprintf("SET %s WHERE pkey = %.*Q",
                                                        list.c_str() + 2, SF_TXT(r->pkey))
                                      : sqlite3_mprintf("SET %s WHERE user = %.*Q",
                                                        list.c_str() + 2, SF_TXT(r->user)));
}

int sf_user_update_by_keys(const ShareLinkUserRecord* r) {
  if (r == nullptr) return kSfBadParam;
  if (too_long_record(r)) return kSfTooLong;
  if (!has_text(r->pkey) || !has_text(r->user)) return kSfBadParam;
  BoundedSql list(kConditionBuffer);
  if (has_text(r->description)) list.append(", description = %.*Q ", SF_TXT(r->description));
  if (has_text(r->email)) list.append(", email = %.*Q ", SF_TXT(r->email));
  if (list.overflow()) return kSfTooLong;
  // With nothing to set, the statement is the WHERE clause alone and fails.
  if (list.empty()) {
    return run_update(
        sqlite3_mprintf("WHERE pkey = %.*Q AND user = %.*Q", SF_TXT(r->pkey), SF_TXT(r->user)));
  }
  return run_update(sqlite3_mprintf("SET %s WHERE pkey = %.*Q AND user = %.*Q", list.c_str() + 2,
                                    SF_TXT(r->pkey), SF_TXT(r->user)));
}

int sf_user_delete_by_field(int field, const char* value) {
  if (value == nullptr || field < 0 || field >= kColumnCount) return kSfBadParam;
  SqlText sql(sqlite3_mprintf("DELETE FROM SHARELINK_USER WHERE %s = %Q;", kColumns[field], value));
  if (sql.get() == nullptr) return kSfDeleteFailed;
  return open_and_run(sql.get(), false, kSfDeleteFailed);
}

int sf_user_delete_filter(const ShareLinkUserRecord* filter) {
  if (filter == nullptr) return kSfBadParam;
  if (too_long_record(filter)) return kSfTooLong;
  BoundedSql conditions(kConditionBuffer);
  int rc = conditions_of(filter, &conditions);
  if (rc != 0) return rc;
  SqlText sql(sqlite3_mprintf("DELETE FROM SHARELINK_USER %s;", where_clause(conditions).c_str()));
  if (sql.get() == nullptr) return kSfDeleteFailed;
  return open_and_run(sql.get(), false, kSfDeleteFailed);
}

int sf_user_delete_all() {
  return open_and_run("DELETE FROM SHARELINK_USER;", true, kSfDeleteAllFailed);
}

int sf_user_drop() { return open_and_drop("DROP TABLE SHARELINK_USER;"); }

int sf_fill_user_rows(void* user_data, int ncols, char** values, char** names) {
  auto* out = static_cast<SfUserRows*>(user_data);
  if (ncols != kColumnCount || out == nullptr || values == nullptr) return 0;
  if (out->rows == nullptr || out->count >= out->capacity) {
    ++out->overflow;
    return 0;
  }
  ShareLinkUserRecord* r = &out->rows[out->count++];
  copy_column(r->pkey, values[0], "");
  copy_column(r->user, values[1], "");
  copy_column(r->description, values[2], "");
  copy_column(r->email, values[3], "");
  return 0;
}
