#include "support/store_fixture.h"
#include <sqlite3.h>
#include <stdexcept>
#include "sharelink_db/store.h"

const char kFixtureNull[] = "<null>";
namespace {
using Table = std::vector<std::vector<std::string>>;
struct Db {
  explicit Db(const ApplianceRoot& root) {
    if (sqlite3_open(store_file(root).c_str(), &db) != SQLITE_OK) fail("open");
    sqlite3_busy_timeout(db, 20000);
  }
  ~Db() { sqlite3_close(db); }
  Db(const Db&) = delete; Db& operator=(const Db&) = delete;
  [[noreturn]] void fail(const std::string& what) const {
    throw std::runtime_error("store fixture: " + what + ": " + (db ? sqlite3_errmsg(db) : "?"));
  }
  void exec(const std::string& sql) {
    if (sqlite3_exec(db, sql.c_str(), nullptr, nullptr, nullptr) != SQLITE_OK) fail(sql);
  }
  sqlite3* db = nullptr;
};
// Each row's texts bound to ?1, ?2, ... of `table`'s insert, in one
// transaction. Integer columns convert the texts by their affinity.
void insert_rows(const ApplianceRoot& root, const std::string& table, const std::string& columns,
                 const std::string& values, const Table& rows) {
  Db db(root); db.exec("BEGIN TRANSACTION");
  const std::string sql = "INSERT INTO " + table + " (" + columns + ") VALUES (" + values + ");";
  sqlite3_stmt* stmt = nullptr;
  if (sqlite3_prepare_v2(db.db, sql.c_str(), -1, &stmt, nullptr) != SQLITE_OK) db.fail(sql);
  for (const auto& row : rows) {
    for (size_t i = 0; i < row.size(); ++i) {
      sqlite3_bind_text(stmt, static_cast<int>(i + 1), row[i].c_str(), static_cast<int>(row[i].size()),
                        SQLITE_TRANSIENT);
    }
    int rc = sqlite3_step(stmt); sqlite3_reset(stmt);
    if (rc != SQLITE_DONE) sqlite3_finalize(stmt), db.fail(sql);
  }
  sqlite3_finalize(stmt); db.exec("COMMIT");
}
}  // namespace
std::string store_file(const ApplianceRoot& root) {
  ScopedEnv env{{{"SHARELINK_ROOT", root.dir()}}}; char path[256]; sf_get_db_path(path, sizeof path);
  return root.path(path);
}
void make_store(const ApplianceRoot& root, bool with_acx, bool with_trigger) {
  ScopedEnv env{{{"SHARELINK_ROOT", root.dir()}}};
  if (sf_create_tables() != 0 || (with_acx && sf_create_acx_table() != 0) ||
      (with_trigger && sf_create_trigger(0, 0) != 0)) {
    throw std::runtime_error("store fixture: the store's tables cannot be made");
  }
}
void insert_links(const ApplianceRoot& root, const std::vector<FixtureLink>& links) {
  Table rows; auto n = [](int v) { return std::to_string(v); };
  for (const FixtureLink& l : links) {
    rows.push_back({l.pkey, l.host, n(l.ssl), l.sharefile, l.useraddr, l.filesize, n(l.createtic), n(l.expire),
                    l.creator, l.accesscode, n(l.download_count), n(l.download_limit), l.misc, l.create_date,
                    l.create_time, l.title, l.description, n(l.type), l.link_name});
  }
  insert_rows(root, "SHARELINK_EVENT",
              "pkey, host, ssl, sharefile, useraddr, filesize, createtic, expire, creator, accesscode, "
              "download_count, download_limit, misc, create_date, create_time, title, description, type, link_name",
              "?1, ?2, ?3, ?4, ?5, ?6, ?7, ?8, ?9, ?10, ?11, ?12, ?13, COALESCE(NULLIF(?14, ''), CURRENT_DATE), "
              "COALESCE(NULLIF(?15, ''), CURRENT_TIME), ?16, ?17, ?18, ?19",
              rows);
}
void insert_fids(const ApplianceRoot& root, const std::vector<FixtureFid>& fids) {
  Table rows;
  for (const FixtureFid& f : fids) rows.push_back({f.pkey, f.fid, f.sharefile});
  insert_rows(root, "SHARELINK_FID", "pkey, fid, sharefile", "?1, ?2, ?3", rows);
}
void insert_users(const ApplianceRoot& root, const std::vector<FixtureUser>& users) {
  Table rows;
  for (const FixtureUser& u : users) rows.push_back({u.pkey, u.user, u.description, u.email});
  insert_rows(root, "SHARELINK_USER", "pkey, user, description, email", "?1, ?2, ?3, ?4", rows);
}
Table store_rows(const ApplianceRoot& root, const std::string& sql) {
  Db db(root); Table rows;
  auto add = [](void* out, int n, char** values, char**) {
    std::vector<std::string> row;
    for (int i = 0; i < n; ++i) row.emplace_back(values[i] ? values[i] : kFixtureNull);
    static_cast<Table*>(out)->push_back(std::move(row));
    return 0;
  };
  if (sqlite3_exec(db.db, sql.c_str(), add, &rows, nullptr) != SQLITE_OK) db.fail(sql);
  return rows;
}
std::string store_value(const ApplianceRoot& root, const std::string& sql) {
  auto rows = store_rows(root, sql);
  if (rows.size() != 1 || rows[0].size() != 1) throw std::runtime_error("store fixture: not a single value: " + sql);
  return rows[0][0];
}
void store_exec(const ApplianceRoot& root, const std::string& sql) { Db(root).exec(sql); }
