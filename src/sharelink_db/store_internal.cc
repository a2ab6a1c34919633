#include "sharelink_db/store_internal.h"

#include <cstdio>
#include <cstdlib>

#include "platform/root.h"
#include "sharelink_db/result_codes.h"
#include "sharelink_db/row_table.h"
#include "sharelink_db/store.h"

namespace sf_internal {

namespace {

constexpr int kBusyTimeoutMs = 20000;
constexpr int kMaxParked = 16;

// Connections kept open on purpose. Reachable from here until released, so a
// leak checker does not report them; the holder closes what is left at exit.
struct ParkedConnections {
  sqlite3* handles[kMaxParked] = {};
  int count = 0;
  ~ParkedConnections() { release(); }
  void release() {
    for (int i = 0; i < count; ++i) {
      // Closing rolls back whatever the connection left uncommitted.
      sqlite3_close(handles[i]);
      handles[i] = nullptr;
    }
    count = 0;
  }
};

ParkedConnections& parked() {
  static ParkedConnections p;
  return p;
}

void (*g_sql_observer)(const char*) = nullptr;

// The first SQLite failure since the last clear: code and message.
int g_first_error = SQLITE_OK;
char g_first_error_text[256];

int trace_statement(unsigned type, void* context, void* stmt, void* text) {
  if (type == SQLITE_TRACE_STMT && g_sql_observer != nullptr && text != nullptr) {
    g_sql_observer(static_cast<const char*>(text));
  }
  return 0;
}

}  // namespace

void note_error(int code, const char* text) {
  if (g_first_error != SQLITE_OK) return;
  g_first_error = code;
  snprintf(g_first_error_text, sizeof g_first_error_text, "%s", text != nullptr ? text : "");
}

DbGuard::~DbGuard() { sqlite3_close(db_); }

int open_store(DbGuard* db, bool busy, bool create) {
  release_parked_connections();
  char path[256];
  int rc;
  if (create) {
    rc = sf_db_open(path, sizeof path, db->out());
  } else {
    sf_get_db_path(path, sizeof path);
    rc = sqlite3_open_v2(rooted_path(path).c_str(), db->out(), SQLITE_OPEN_READWRITE, nullptr);
  }
  if (rc != SQLITE_OK) {
    // SQLite's text ("unable to open database file") does not say why.
    int sys = db->get() != nullptr ? sqlite3_system_errno(db->get()) : 0;
    char text[256];
    snprintf(text, sizeof text, "%s%s%s", sqlite3_errstr(rc), sys != 0 ? ": " : "",
             sys != 0 ? strerror(sys) : "");
    note_error(rc, text);
    return kSfOpenFailed;
  }
  if (busy) sqlite3_busy_timeout(db->get(), kBusyTimeoutMs);
  sqlite3_exec(db->get(), "PRAGMA case_sensitive_like=ON;", nullptr, nullptr, nullptr);
  if (g_sql_observer != nullptr) {
    sqlite3_trace_v2(db->get(), SQLITE_TRACE_STMT, trace_statement, nullptr);
  }
  return 0;
}

bool exec(sqlite3* db, const char* sql) {
  if (sql == nullptr) return false;
  if (sqlite3_exec(db, sql, nullptr, nullptr, nullptr) == SQLITE_OK) return true;
  note_error(sqlite3_errcode(db), sqlite3_errmsg(db));
  return false;
}

Transaction::Transaction(sqlite3* db, const char* begin) : db_(db), open_(exec(db, begin)) {}

Transaction::~Transaction() {
  if (open_) exec(db_, "ROLLBACK");
}

bool Transaction::commit() {
  if (!open_ || !exec(db_, "COMMIT")) return false;
  open_ = false;
  return true;
}

void Transaction::commit_ignoring_failure() {
  if (open_) exec(db_, "COMMIT");
  open_ = false;
}

int run_in_transaction(sqlite3* db, const char* sql, int fail, bool ignore_commit) {
  Transaction txn(db);
  if (!txn.begun() || !exec(db, sql)) return fail;
  if (ignore_commit) {
    // The delete by filter has always reported success past a failed commit.
    txn.commit_ignoring_failure();
    return 0;
  }
  return txn.commit() ? 0 : fail;
}

int open_and_run(const char* sql, bool busy, int fail, bool ignore_commit) {
  DbGuard db;
  int rc = open_store(&db, busy);
  if (rc != 0) return rc;
  return run_in_transaction(db.get(), sql, fail, ignore_commit);
}

int count_rows(sqlite3* db, const char* sql) {
  StmtGuard stmt;
  if (sql == nullptr || sqlite3_prepare_v2(db, sql, -1, stmt.out(), nullptr) != SQLITE_OK) {
    return kSfQueryFailed;
  }
  if (sqlite3_step(stmt.get()) != SQLITE_ROW) return kSfQueryFailed;
  sqlite3_int64 n = sqlite3_column_int64(stmt.get(), 0);
  if (n < 0 || n > 0x7fffffff) return kSfQueryFailed;
  return static_cast<int>(n);
}

int open_and_count(const char* sql) {
  if (sql == nullptr) return kSfBadParam;
  DbGuard db;
  int rc = open_store(&db, true);
  if (rc != 0) return rc;
  return count_rows(db.get(), sql);
}

int open_and_drop(const char* sql) {
  DbGuard db;
  int rc = open_store(&db, false);
  if (rc != 0) return rc;
  return exec(db.get(), sql) ? 0 : kSfSchemaFailed;
}

int open_and_select(const char* sql, int (*cb)(void*, int, char**, char**), void* user_data) {
  if (sql == nullptr) return kSfBadParam;
  DbGuard db;
  int rc = open_store(&db, true);
  if (rc != 0) return rc;
  if (sqlite3_exec(db.get(), sql, cb, user_data, nullptr) != SQLITE_OK) return kSfQueryFailed;
  return 0;
}

int count_all(const TableName& t) {
  SqlText sql(sqlite3_mprintf("SELECT COUNT(*) FROM %s;", t.name));
  return open_and_count(sql.get());
}

int count_where(const TableName& t, const BoundedSql& conditions) {
  SqlText sql(sqlite3_mprintf("SELECT COUNT(*) FROM %s %s;", t.name,
                              where_clause(conditions).c_str()));
  return open_and_count(sql.get());
}

int select_all(const TableName& t, const std::string& order, int start, int end, SfRowCallback cb,
               void* user_data) {
  // The unfiltered form pages with a blank for "all rows": two blanks before the ";".
  SqlText sql(sqlite3_mprintf("SELECT * FROM %s %s %s;", t.name, order.c_str(),
                              paging_clause(start, end, " ").c_str()));
  return open_and_select(sql.get(), cb, user_data);
}

int select_where(const TableName& t, const BoundedSql& conditions, const std::string& order,
                 int start, int end, SfRowCallback cb, void* user_data) {
  SqlText sql(sqlite3_mprintf("SELECT * FROM %s %s %s %s;", t.name,
                              where_clause(conditions).c_str(), order.c_str(),
                              paging_clause(start, end, "").c_str()));
  return open_and_select(sql.get(), cb, user_data);
}

int delete_where(const TableName& t, const BoundedSql& conditions, bool ignore_commit) {
  SqlText sql(sqlite3_mprintf("DELETE FROM %s %s;", t.name, where_clause(conditions).c_str()));
  if (sql.get() == nullptr) return kSfDeleteFailed;
  // Deletes never wait on a busy store.
  return open_and_run(sql.get(), false, kSfDeleteFailed, ignore_commit);
}

int delete_field(const TableName& t, int field, const char* value) {
  if (value == nullptr || field < 0 || field >= t.ncolumns) return kSfBadParam;
  SqlText sql(sqlite3_mprintf("DELETE FROM %s WHERE %s = %Q;", t.name, t.columns[field], value));
  if (sql.get() == nullptr) return kSfDeleteFailed;
  return open_and_run(sql.get(), false, kSfDeleteFailed);
}

int delete_all(const TableName& t) {
  SqlText sql(sqlite3_mprintf("DELETE FROM %s;", t.name));
  if (sql.get() == nullptr) return kSfDeleteAllFailed;
  // Unlike the other deletes, emptying a table waits on a busy store.
  return open_and_run(sql.get(), true, kSfDeleteAllFailed);
}

int drop_table(const TableName& t) {
  SqlText sql(sqlite3_mprintf("DROP TABLE %s;", t.name));
  if (sql.get() == nullptr) return kSfSchemaFailed;
  return open_and_drop(sql.get());
}

int update_target(const TableName& t, char* target) {
  SqlText owned(target);
  SqlText sql(sqlite3_mprintf("UPDATE %s %s;", t.name, target));
  if (target == nullptr || sql.get() == nullptr) return kSfUpdateFailed;
  return open_and_run(sql.get(), true, kSfUpdateFailed);
}

void park_connection(sqlite3* db) {
  if (db == nullptr) return;
  ParkedConnections& p = parked();
  if (p.count == kMaxParked) {
    sqlite3_close(p.handles[0]);
    for (int i = 1; i < kMaxParked; ++i) p.handles[i - 1] = p.handles[i];
    --p.count;
  }
  p.handles[p.count++] = db;
}

void release_parked_connections() { parked().release(); }

int parked_connection_count() { return parked().count; }

void BoundedSql::append(const char* format, ...) {
  if (overflow_) return;
  va_list ap;
  va_start(ap, format);
  char* piece = sqlite3_vmprintf(format, ap);
  va_end(ap);
  if (piece == nullptr) {
    overflow_ = true;
    return;
  }
  size_t n = strlen(piece);
  if (text_.size() + n + 1 > bound_) {
    overflow_ = true;
  } else {
    text_.append(piece, n);
  }
  sqlite3_free(piece);
}

std::string where_clause(const BoundedSql& conditions) {
  if (conditions.empty()) return std::string();
  // Every item begins "AND "; the clause takes the list after the first one.
  return "WHERE " + conditions.str().substr(4);
}

std::string paging_clause(int start, int end, const char* whole) {
  if (start == 0 && end == 0) return whole;
  char text[64];
  sqlite3_snprintf(sizeof text, text, "LIMIT %d OFFSET %d", end - start, start);
  return text;
}

bool column_order(const char* const* columns, int ncolumns, int sort, bool filtered,
                  const char* prefix, std::string* out) {
  if (sort < 0 || sort / 2 >= ncolumns) return false;
  *out = std::string("ORDER BY ") + prefix + columns[sort / 2] + (sort % 2 == 1 ? " DESC" : "") +
         (filtered ? " " : "");
  return true;
}

int32_t int_column(const char* value) {
  if (value == nullptr) return 0;
  return static_cast<int32_t>(strtol(value, nullptr, 10));
}

}  // namespace sf_internal

void sf_set_sql_observer(void (*observer)(const char* sql)) {
  sf_internal::g_sql_observer = observer;
}

int sf_first_sqlite_error(const char** text) {
  if (text != nullptr) *text = sf_internal::g_first_error_text;
  return sf_internal::g_first_error;
}

void sf_clear_sqlite_error() {
  sf_internal::g_first_error = SQLITE_OK;
  sf_internal::g_first_error_text[0] = '\0';
}

int sf_parked_connection_count() { return sf_internal::parked_connection_count(); }

void sf_release_parked_connections() { sf_internal::release_parked_connections(); }
