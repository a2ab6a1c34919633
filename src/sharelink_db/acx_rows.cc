#include "sharelink_db/acx_rows.h"

#include <string>

#include "sharelink_db/result_codes.h"
#include "sharelink_db/store_internal.h"

using namespace sf_internal;

namespace {

constexpr size_t kConditionBuffer = 4096;
const char* const kColumns[] = {"pkey", "acx"};
constexpr int kColumnCount = 2;

bool too_long_record(const ShareLinkAcxRecord* r) {
  return too_long(r->pkey, 40) || too_long(r->acx, 40);
}

int conditions_of(const ShareLinkAcxRecord* f, BoundedSql* out) {
  if (has_text(f->pkey)) out->append("AND pkey = %.*Q ", SF_TXT(f->pkey));
  if (has_text(f->acx)) out->append("AND acx = %.*Q ", SF_TXT(f->acx));
  return out->overflow() ? kSfTooLong : 0;
}

}  // namespace

int sf_acx_count() { return open_and_count("SELECT COUNT(*) FROM SHARELINK_ACX;"); }

int sf_acx_count_filter(const ShareLinkAcxRecord* filter) {
  if (filter == nullptr) return kSfBadParam;
  if (too_long_record(filter)) return kSfTooLong;
  BoundedSql conditions(kConditionBuffer);
  int rc = conditions_of(filter, &conditions);
  if (rc != 0) return rc;
  SqlText sql(
      sqlite3_mprintf("SELECT COUNT(*) FROM SHARELINK_ACX %s;", where_clause(conditions).c_str()));
  return open_and_count(sql.get());
}

int sf_acx_insert(const ShareLinkAcxRecord* r) {
  if (r == nullptr) return kSfBadParam;
  if (too_long_record(r)) return kSfTooLong;
  SqlText sql(sqlite3_mprintf("INSERT INTO SHARELINK_ACX ( pkey, acx ) VALUES ( %.*Q, %.*Q );",
                              SF_TXT(r->pkey), SF_TXT(r->acx)));
  if (sql.get() == nullptr) return kSfInsertFailed;
  return open_and_run(sql.get(), true, kSfInsertFailed);
}

int sf_acx_select(SfRowCallback cb, int sort, int start, int end, void* user_data) {
  std::string order;
  if (!column_order(kColumns, kColumnCount, sort, false, "", &order) || bad_range(start, end)) {
    return kSfBadParam;
  }
  SqlText sql(sqlite3_mprintf("SELECT * FROM SHARELINK_ACX %s %s;", order.c_str(),
                              paging_clause(start, end, " ").c_str()));
  return open_and_select(sql.get(), cb, user_data);
}

int sf_acx_select_filter(SfRowCallback cb, const ShareLinkAcxRecord* filter, int sort, int start,
                         int end, void* user_data) {
  if (filter == nullptr) return kSfBadParam;
  if (too_long_record(filter)) return kSfTooLong;
  std::string order;
  if (!column_order(kColumns, kColumnCount, sort, true, "", &order) || bad_range(start, end)) {
    return kSfBadParam;
  }
  BoundedSql conditions(kConditionBuffer);
  int rc = conditions_of(filter, &conditions);
  if (rc != 0) return rc;
  SqlText sql(sqlite3_mprintf("SELECT * FROM SHARELINK_ACX %s %s %s;",
                              where_clause(conditions).c_str(), order.c_str(),
                              paging_clause(start, end, "").c_str()));
  return open_and_select(sql.get(), cb, user_data);
}

int sf_acx_update(const ShareLinkAcxRecord* r) {
  if (r == nullptr) return kSfBadParam;
  if (too_long_record(r)) return kSfTooLong;
  if (!has_text(r->pkey) && !has_text(r->acx)) return kSfBadParam;
  BoundedSql list(kConditionBuffer);
  if (has_text(r->pkey)) list.append(", pkey = %.*Q ", SF_TXT(r->pkey));
  if (has_text(r->acx)) list.append(", acx = %.*Q ", SF_TXT(r->acx));
  if (list.overflow()) return kSfTooLong;
  SqlText target(has_text(r->pkey)
                     ? sqlite3_mprintf("SET %s WHERE pkey = %.*Q", list.c_str() + 2, SF_TXT(r->pkey))
                     : sqlite3_mprintf("SET %s WHERE acx = %.*Q", list.c_str() + 2, SF_TXT(r->acx)));
  SqlText sql(sqlite3_mprintf("UPDATE SHARELINK_ACX %s;", target.get()));
  if (target.get() == nullptr || sql.get() == nullptr) return kSfUpdateFailed;
  return open_and_run(sql.get(), true, kSfUpdateFailed);
}

int sf_acx_delete_by_field(int field, const char* value) {
  if (value == nullptr || field < 0 || field >= kColumnCount) return kSfBadParam;
  SqlText sql(sqlite3_mprintf("DELETE FROM SHARELINK_ACX WHERE %s = %Q;", kColumns[field], value));
  if (sql.get() == nullptr) return kSfDeleteFailed;
  return open_and_run(sql.get(), false, kSfDeleteFailed);
}

int sf_acx_delete_filter(const ShareLinkAcxRecord* filter) {
  if (filter == nullptr) return kSfBadParam;
  if (too_long_record(filter)) return kSfTooLong;
  BoundedSql conditions(kConditionBuffer);
  int rc = conditions_of(filter, &conditions);
  if (rc != 0) return rc;
  SqlText sql(sqlite3_mprintf("DELETE FROM SHARELINK_ACX %s;", where_clause(conditions).c_str()));
  if (sql.get() == nullptr) return kSfDeleteFailed;
  return open_and_run(sql.get(), false, kSfDeleteFailed);
}

int sf_acx_delete_all() { return open_and_run("DELETE FROM SHARELINK_ACX;", true, kSfDeleteAllFailed); }

int sf_acx_drop() { return open_and_drop("DROP TABLE SHARELINK_ACX;"); }

int sf_fill_acx_rows(void* user_data, int ncols, char** values, char** names) {
  auto* out = static_cast<SfAcxRows*>(user_data);
  if (ncols != kColumnCount || out == nullptr || values == nullptr) return 0;
  if (out->rows == nullptr || out->count >= out->capacity) {
    ++out->overflow;
    return 0;
  }
  ShareLinkAcxRecord* r = &out->rows[out->count++];
  copy_column(r->pkey, values[0], "");
  copy_column(r->acx, values[1], "");
  return 0;
}
