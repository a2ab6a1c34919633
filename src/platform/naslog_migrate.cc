#include "platform/naslog_migrate.h"

#include <sqlite3.h>
#include <strings.h>

#include <string>
#include <vector>

#include "platform/root.h"

namespace {

constexpr int kBusyTimeoutMs = 20000;

struct Connection {
  sqlite3* db = nullptr;
  ~Connection() { sqlite3_close(db); }
};

struct Statement {
  sqlite3_stmt* stmt = nullptr;
  ~Statement() { sqlite3_finalize(stmt); }
};

}  // namespace

int naslog_common_migrate_db(const char* db_path, const char* table, const NaslogColumn* columns,
                             int count) {
  if (db_path == nullptr || db_path[0] == '\0' || table == nullptr || table[0] == '\0' ||
      count < 0 || (count > 0 && columns == nullptr)) {
    return -1;
  }
  Connection c;
  if (sqlite3_open(rooted_path(db_path).c_str(), &c.db) != SQLITE_OK) return -2;
  sqlite3_busy_timeout(c.db, kBusyTimeoutMs);

  std::vector<std::string> present;
  {
    char* sql = sqlite3_mprintf("PRAGMA table_info(%Q);", table);
    if (sql == nullptr) return -3;
    Statement s;
    int rc = sqlite3_prepare_v2(c.db, sql, -1, &s.stmt, nullptr);
    sqlite3_free(sql);
    if (rc != SQLITE_OK) return -3;
    while ((rc = sqlite3_step(s.stmt)) == SQLITE_ROW) {
      const unsigned char* name = sqlite3_column_text(s.stmt, 1);
      if (name != nullptr) present.emplace_back(reinterpret_cast<const char*>(name));
    }
    if (rc != SQLITE_DONE) return -3;
  }

  for (int i = 0; i < count; ++i) {
    const NaslogColumn& col = columns[i];
    if (col.name == nullptr) return -1;
    bool found = false;
    for (const std::string& p : present) {
      if (strcasecmp(p.c_str(), col.name) == 0) {
        found = true;
        break;
      }
    }
    if (found) continue;
    if (col.add_statement == nullptr) return -5;
    if (sqlite3_exec(c.db, col.add_statement, nullptr, nullptr, nullptr) != SQLITE_OK) return -4;
    present.emplace_back(col.name);
  }
  return 0;
}
