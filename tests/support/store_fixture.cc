#include "support/store_fixture.h"

#include <sqlite3.h>

#include <cstdio>
#include <ctime>
#include <stdexcept>

#include "sharelink_db/store.h"

const char kFixtureNull[] = "<null>";

namespace {

class Db {
 public:
  explicit Db(const std::string& file) {
    if (sqlite3_open(file.c_str(), &db_) != SQLITE_OK) fail("open " + file);
    sqlite3_busy_timeout(db_, 20000);
  }
  ~Db() { sqlite3_close(db_); }
  Db(const Db&) = delete;
  Db& operator=(const Db&) = delete;
  sqlite3* get() const { return db_; }
  void exec(const std::string& sql) {
    if (sqlite3_exec(db_, sql.c_str(), nullptr, nullptr, nullptr) != SQLITE_OK) fail(sql);
  }
  [[noreturn]] void fail(const std::string& what) const {
    throw std::runtime_error("store fixture: " + what + ": " + (db_ ? sqlite3_errmsg(db_) : "?"));
  }

 private:
  sqlite3* db_ = nullptr;
};

class Stmt {
 public:
  Stmt(Db& db, const char* sql) : db_(db) {
    if (sqlite3_prepare_v2(db.get(), sql, -1, &stmt_, nullptr) != SQLITE_OK) db.fail(sql);
  }
  ~Stmt() { sqlite3_finalize(stmt_); }
  Stmt(const Stmt&) = delete;
  Stmt& operator=(const Stmt&) = delete;
  void text(int i, const std::string& v) {
    sqlite3_bind_text(stmt_, i, v.c_str(), static_cast<int>(v.size()), SQLITE_TRANSIENT);
  }
  void text_or_null(int i, const std::string& v) { v.empty() ? (void)sqlite3_bind_null(stmt_, i) : text(i, v); }
  void integer(int i, int v) { sqlite3_bind_int(stmt_, i, v); }
  void run() {
    if (sqlite3_step(stmt_) != SQLITE_DONE) db_.fail("insert");
    sqlite3_reset(stmt_);
  }

 private:
  Db& db_;
  sqlite3_stmt* stmt_ = nullptr;
};

const char kInsertLink[] =
    "INSERT INTO SHARELINK_EVENT (pkey, host, ssl, sharefile, useraddr, filesize, createtic, "
    "expire, creator, accesscode, download_count, download_limit, misc, create_date, create_time, "
    "title, description, type, link_name) VALUES (?1, ?2, ?3, ?4, ?5, ?6, ?7, ?8, ?9, ?10, ?11, "
    "?12, ?13, COALESCE(?14, CURRENT_DATE), COALESCE(?15, CURRENT_TIME), ?16, ?17, ?18, ?19);";

void bind_link(Stmt& s, const FixtureLink& l) {
  int i = 0;
  for (const std::string* t : {&l.pkey, &l.host}) s.text(++i, *t);
  s.integer(++i, l.ssl);
  for (const std::string* t : {&l.sharefile, &l.useraddr, &l.filesize}) s.text(++i, *t);
  for (int v : {l.createtic, l.expire}) s.integer(++i, v);
  for (const std::string* t : {&l.creator, &l.accesscode}) s.text(++i, *t);
  for (int v : {l.download_count, l.download_limit}) s.integer(++i, v);
  s.text(++i, l.misc);
  for (const std::string* t : {&l.create_date, &l.create_time}) s.text_or_null(++i, *t);
  for (const std::string* t : {&l.title, &l.description}) s.text(++i, *t);
  s.integer(++i, l.type);
  s.text(++i, l.link_name);
}

}  // namespace

std::string store_file(const ApplianceRoot& root) {
  ScopedEnv env{{{"SHARELINK_ROOT", root.dir()}}};
  char path[256];
  sf_get_db_path(path, sizeof path);
  return root.path(path);
}

void make_store(const ApplianceRoot& root, bool with_acx, bool with_trigger) {
  ScopedEnv env{{{"SHARELINK_ROOT", root.dir()}}};
  if (sf_create_tables() != 0 || (with_acx && sf_create_acx_table() != 0) ||
      (with_trigger && sf_create_trigger(0, 0) != 0)) {
    throw std::runtime_error("store fixture: the store's tables cannot be made");
  }
}

namespace {

// Binds each item with `bind` to one statement, all in one transaction.
template <typename T, typename Bind>
void insert_all(const ApplianceRoot& root, const char* sql, const std::vector<T>& items, Bind bind) {
  Db db(store_file(root));
  db.exec("BEGIN TRANSACTION");
  {
    Stmt s(db, sql);
    for (const T& item : items) {
      bind(s, item);
      s.run();
    }
  }
  db.exec("COMMIT");
}

}  // namespace

void insert_links(const ApplianceRoot& root, const std::vector<FixtureLink>& links) {
  insert_all(root, kInsertLink, links, bind_link);
}

void insert_numbered_links(const ApplianceRoot& root, int n, const std::string& creator) {
  std::vector<FixtureLink> links(static_cast<size_t>(n));
  for (int i = 0; i < n; ++i) {
    time_t when = 1704067200 + i;  // 2024-01-01 00:00:00 UTC
    struct tm tm_when;
    gmtime_r(&when, &tm_when);
    char key[32], date[16], clock[16];
    snprintf(key, sizeof key, "key%05d", i);
    strftime(date, sizeof date, "%Y-%m-%d", &tm_when);
    strftime(clock, sizeof clock, "%H:%M:%S", &tm_when);
    FixtureLink& l = links[static_cast<size_t>(i)];
    l.pkey = key;
    l.creator = creator;
    l.create_date = date;
    l.create_time = clock;
    l.createtic = static_cast<int>(when);
  }
  insert_links(root, links);
}

void insert_fids(const ApplianceRoot& root, const std::vector<FixtureFid>& fids) {
  insert_all(root, "INSERT INTO SHARELINK_FID (pkey, fid, sharefile) VALUES (?1, ?2, ?3);", fids,
             [](Stmt& s, const FixtureFid& f) {
               int i = 0;
               for (const std::string* t : {&f.pkey, &f.fid, &f.sharefile}) s.text(++i, *t);
             });
}

void insert_users(const ApplianceRoot& root, const std::vector<FixtureUser>& users) {
  insert_all(root, "INSERT INTO SHARELINK_USER (pkey, user, description, email) VALUES (?1, ?2, ?3, ?4);",
             users, [](Stmt& s, const FixtureUser& u) {
               int i = 0;
               for (const std::string* t : {&u.pkey, &u.user, &u.description, &u.email}) s.text(++i, *t);
             });
}

std::vector<std::vector<std::string>> store_rows(const ApplianceRoot& root, const std::string& sql) {
  Db db(store_file(root));
  sqlite3_stmt* stmt = nullptr;
  if (sqlite3_prepare_v2(db.get(), sql.c_str(), -1, &stmt, nullptr) != SQLITE_OK) db.fail(sql);
  std::vector<std::vector<std::string>> rows;
  int rc;
  while ((rc = sqlite3_step(stmt)) == SQLITE_ROW) {
    std::vector<std::string> row;
    for (int i = 0; i < sqlite3_column_count(stmt); ++i) {
      const unsigned char* v = sqlite3_column_text(stmt, i);
      row.emplace_back(v ? reinterpret_cast<const char*>(v) : kFixtureNull);
    }
    rows.push_back(std::move(row));
  }
  sqlite3_finalize(stmt);
  if (rc != SQLITE_DONE) db.fail(sql);
  return rows;
}

std::string store_value(const ApplianceRoot& root, const std::string& sql) {
  auto rows = store_rows(root, sql);
  if (rows.size() != 1 || rows[0].size() != 1) {
    throw std::runtime_error("store fixture: not a single value: " + sql);
  }
  return rows[0][0];
}

void store_exec(const ApplianceRoot& root, const std::string& sql) {
  Db db(store_file(root));
  db.exec(sql);
}
