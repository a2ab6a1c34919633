#include "sharelink_db/fid_rows.h"

#include <string>

#include "sharelink_db/result_codes.h"
#include "sharelink_db/store_internal.h"

using namespace sf_internal;

namespace {

constexpr size_t kConditionBuffer = 4096;
const char* const kColumns[] = {"pkey", "fid", "sharefile"};
constexpr int kColumnCount = 3;

bool too_long_record(const ShareLinkFidRecord* r) {
  return too_long(r->pkey, 40) || too_long(r->fid, 40) || too_long(r->sharefile, 4096);
}

// The filter's conditions, or -10 when they do not fit their buffer.
int conditions_of(const ShareLinkFidRecord* f, BoundedSql* out) {
  if (has_text(f->pkey)) out->append("AND pkey = %.*Q ", SF_TXT(f->pkey));
  if (has_text(f->fid)) out->append("AND fid = %.*Q ", SF_TXT(f->fid));
  if (has_text(f->sharefile)) out->append("AND sharefile LIKE '%%%.*q%%' ", SF_TXT(f->sharefile));
  return out->overflow() ? kSfTooLong : 0;
}

char* insert_sql(const ShareLinkFidRecord* r) {
  return sqlite3_mprintf("INSERT INTO SHARELINK_FID ( pkey, fid, sharefile ) VALUES ( %.*Q, %.*Q, %.*Q );",
                         SF_TXT(r->pkey), SF_TXT(r->fid), SF_TXT(r->sharefile));
}

}  // namespace

int sf_fid_count() { return open_and_count("SELECT COUNT(*) FROM SHARELINK_FID;"); }

int sf_fid_count_filter(const ShareLinkFidRecord* filter) {
  if (filter == nullptr) return kSfBadParam;
  if (too_long_record(filter)) return kSfTooLong;
  BoundedSql conditions(kConditionBuffer);
  int rc = conditions_of(filter, &conditions);
  if (rc != 0) return rc;
  SqlText sql(
      sqlite3_mprintf("SELECT COUNT(*) FROM SHARELINK_FID %s;", where_clause(conditions).c_str()));
  return open_and_count(sql.get());
}

int sf_fid_insert(const ShareLinkFidRecord* record) { return sf_fid_insert_many(record, 1); }

int sf_fid_insert_many(const ShareLinkFidRecord* records, int count) {
  if (count < 0 || (count > 0 && records == nullptr)) return kSfBadParam;
  for (int i = 0; i < count; ++i) {
    if (too_long_record(&records[i])) return kSfTooLong;
  }
  if (count == 0) return 0;
  DbGuard db;
  int rc = open_store(&db, true);
  if (rc != 0) return rc;
  if (!exec(db.get(), "BEGIN TRANSACTION")) return kSfInsertFailed;
  for (int i = 0; i < count; ++i) {
    SqlText sql(insert_sql(&records[i]));
    if (!exec(db.get(), sql.get())) {
      exec(db.get(), "ROLLBACK");
      return kSfInsertFailed;
    }
  }
  if (!exec(db.get(), "COMMIT")) {
    exec(db.get(), "ROLLBACK");
    return kSfInsertFailed;
  }
  return 0;
}

int sf_fid_select(SfRowCallback cb, int sort, int start, int end, void* user_data) {
  std::string order;
  if (!column_order(kColumns, kColumnCount, sort, false, "", &order) || bad_range(start, end)) {
    return kSfBadParam;
  }
  SqlText sql(sqlite3_mprintf("SELECT * FROM SHARELINK_FID %s %s;", order.c_str(),
                              paging_clause(start, end, " ").c_str()));
  return open_and_select(sql.get(), cb, user_data);
}

int sf_fid_select_filter(SfRowCallback cb, const ShareLinkFidRecord* filter, int sort, int start,
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
  SqlText sql(sqlite3_mprintf("SELECT * FROM SHARELINK_FID %s %s %s;",
                              where_clause(conditions).c_str(), order.c_str(),
                              paging_clause(start, end, "").c_str()));
  return open_and_select(sql.get(), cb, user_data);
}

int sf_fid_update(const ShareLinkFidRecord* r) {
  if (r == nullptr) return kSfBadParam;
  if (too_long_record(r)) return kSfTooLong;
  if (!has_text(r->pkey) && !has_text(r->fid)) return kSfBadParam;
  BoundedSql list(kConditionBuffer);
  if (has_text(r->pkey)) list.append(", pkey = %.*Q ", SF_TXT(r->pkey));
  if (has_text(r->fid)) list.append(", fid = %.*Q ", SF_TXT(r->fid));
  if (has_text(r->sharefile)) list.append(", sharefile = %.*Q ", SF_TXT(r->sharefile));
  if (list.overflow()) return kSfTooLong;
  SqlText target(has_text(r->pkey)
                     ? sqlite3_mprintf("SET %s WHERE pkey = %.*Q", list.c_str() + 2, SF_TXT(r->pkey))
                     : sqlite3_mprintf("SET %s WHERE fid = %.*Q", list.c_str() + 2, SF_TXT(r->fid)));
  SqlText sql(sqlite3_mprintf("UPDATE SHARELINK_FID %s;", target.get()));
  if (target.get() == nullptr || sql.get() == nullptr) return kSfUpdateFailed;
  return open_and_run(sql.get(), true, kSfUpdateFailed);
}

int sf_fid_update_by_keys(const ShareLinkFidRecord* r) {
  if (r == nullptr) return kSfBadParam;
  if (too_long_record(r)) return kSfTooLong;
  if (!has_text(r->pkey) || !has_text(r->fid)) return kSfBadParam;
  BoundedSql list(kConditionBuffer);
  list.append(", fid = %.*Q ", SF_TXT(r->fid));
  if (has_text(r->sharefile)) list.append(", sharefile = %.*Q ", SF_TXT(r->sharefile));
  if (list.overflow()) return kSfTooLong;
  // The fid item is always there, so this form always has something to set.
  SqlText target(sqlite3_mprintf("SET %s WHERE pkey = %.*Q AND fid = %.*Q", list.c_str() + 2,
                                 SF_TXT(r->pkey), SF_TXT(r->fid)));
  SqlText sql(sqlite3_mprintf("UPDATE SHARELINK_FID %s;", target.get()));
  if (target.get() == nullptr || sql.get() == nullptr) return kSfUpdateFailed;
  return open_and_run(sql.get(), true, kSfUpdateFailed);
}

int sf_fid_delete_by_field(int field, const char* value) {
  if (value == nullptr || field < 0 || field >= kColumnCount) return kSfBadParam;
  SqlText sql(sqlite3_mprintf("DELETE FROM SHARELINK_FID WHERE %s = %Q;", kColumns[field], value));
  if (sql.get() == nullptr) return kSfDeleteFailed;
  return open_and_run(sql.get(), false, kSfDeleteFailed);
}

int sf_fid_delete_filter(const ShareLinkFidRecord* filter) {
  if (filter == nullptr) return kSfBadParam;
  if (too_long_record(filter)) return kSfTooLong;
  BoundedSql conditions(kConditionBuffer);
  int rc = conditions_of(filter, &conditions);
  if (rc != 0) return rc;
  SqlText sql(sqlite3_mprintf("DELETE FROM SHARELINK_FID %s;", where_clause(conditions).c_str()));
  if (sql.get() == nullptr) return kSfDeleteFailed;
  return open_and_run(sql.get(), false, kSfDeleteFailed);
}

int sf_fid_delete_all() { return open_and_run("DELETE FROM SHARELINK_FID;", true, kSfDeleteAllFailed); }

int sf_fid_drop() { return open_and_drop("DROP TABLE SHARELINK_FID;"); }

int sf_fill_fid_rows(void* user_data, int ncols, char** values, char** names) {
  auto* out = static_cast<SfFidRows*>(user_data);
  if (ncols != kColumnCount || out == nullptr || values == nullptr) return 0;
  if (out->rows == nullptr || out->count >= out->capacity) {
    ++out->overflow;
    return 0;
  }
  ShareLinkFidRecord* r = &out->rows[out->count++];
  copy_column(r->pkey, values[0], "");
  copy_column(r->fid, values[1], "");
  copy_column(r->sharefile, values[2], "");
  return 0;
}
