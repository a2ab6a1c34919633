// Pieces shared by the store's table modules: owning guards for connections
// and statements, the opening rule with or without the busy time-out, the
// transaction steps, a statement builder that refuses to outgrow its buffer,
// and the length checks of record texts. Not for use outside sharelink_db/.
#ifndef SLT_SHARELINK_DB_STORE_INTERNAL_H_
#define SLT_SHARELINK_DB_STORE_INTERNAL_H_

#include <sqlite3.h>

#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

namespace sf_internal {

// Closes the connection on scope exit unless it was handed on with release().
class DbGuard {
 public:
  DbGuard() = default;
  ~DbGuard();
  DbGuard(const DbGuard&) = delete;
  DbGuard& operator=(const DbGuard&) = delete;
  sqlite3* get() const { return db_; }
  sqlite3** out() { return &db_; }
  sqlite3* release() {
    sqlite3* d = db_;
    db_ = nullptr;
    return d;
  }

 private:
  sqlite3* db_ = nullptr;
};

class StmtGuard {
 public:
  StmtGuard() = default;
  ~StmtGuard() { sqlite3_finalize(stmt_); }
  StmtGuard(const StmtGuard&) = delete;
  StmtGuard& operator=(const StmtGuard&) = delete;
  sqlite3_stmt* get() const { return stmt_; }
  sqlite3_stmt** out() { return &stmt_; }
  void finalize() {
    sqlite3_finalize(stmt_);
    stmt_ = nullptr;
  }

 private:
  sqlite3_stmt* stmt_ = nullptr;
};

// Text from sqlite3_mprintf, freed on scope exit. Null when memory ran out.
class SqlText {
 public:
  explicit SqlText(char* text) : text_(text) {}
  ~SqlText() { sqlite3_free(text_); }
  SqlText(const SqlText&) = delete;
  SqlText& operator=(const SqlText&) = delete;
  const char* get() const { return text_; }

 private:
  char* text_;
};

// The opening rule: the configured store path, opened; with the busy time-out
// of 20000 ms when `busy` is set. Every connection also turns on
// case-sensitive LIKE, which does not outlive a connection. Without `create`
// a missing store file is not made but fails the open. 0, or -20 (the guard
// may still hold a handle to close).
int open_store(DbGuard* db, bool busy, bool create = true);

// Runs one statement. True on SQLITE_OK; a failure is noted (see
// sf_first_sqlite_error).
bool exec(sqlite3* db, const char* sql);

// Notes a failure found another way (a check's verdict) unless one is noted
// already.
void note_error(int code, const char* text);

// The only place that writes BEGIN, COMMIT and ROLLBACK: begins on
// construction and rolls back on scope exit unless committed or left open.
// Nothing is rolled back when the begin itself failed.
class Transaction {
 public:
  explicit Transaction(sqlite3* db, const char* begin = "BEGIN TRANSACTION");
  ~Transaction();
  Transaction(const Transaction&) = delete;
  Transaction& operator=(const Transaction&) = delete;
  bool begun() const { return open_; }
  // "COMMIT"; false when it fails (the scope exit then rolls back).
  bool commit();
  // "COMMIT", and no rollback even when it fails.
  void commit_ignoring_failure();
  // Keeps the transaction open on a connection that is parked.
  void leave_open() { open_ = false; }

 private:
  sqlite3* db_;
  bool open_;
};

// "BEGIN TRANSACTION", the statement, "COMMIT"; "ROLLBACK" and `fail` when
// BEGIN or the statement fails; `fail` when COMMIT fails, unless
// `ignore_commit`. 0 on success.
int run_in_transaction(sqlite3* db, const char* sql, int fail, bool ignore_commit = false);

// Opens (busy or not) and runs `sql` in a transaction. 0, `fail` or -20.
int open_and_run(const char* sql, bool busy, int fail, bool ignore_commit = false);

// The first column of the single row of a count statement: the count, -24
// when the statement fails, yields no row or a negative count.
int count_rows(sqlite3* db, const char* sql);

// Opens with the busy time-out and counts. count, -24, -20 (or -11 for a
// null statement, when memory ran out formatting it).
int open_and_count(const char* sql);

// Opens without the busy time-out (table drops never wait) and drops a
// table. 0, -21 or -20.
int open_and_drop(const char* sql);

// Opens with the busy time-out and runs a select with the caller's row
// callback. 0, -24, -20.
int open_and_select(const char* sql, int (*cb)(void*, int, char**, char**), void* user_data);

// Keeps a connection open past the call that made it (a transaction left
// open on purpose). The connection is rolled back and closed at the start of
// the next store operation of this process, or at exit.
void park_connection(sqlite3* db);
void release_parked_connections();
int parked_connection_count();

// A statement or fragment list built with SQLite's formatting into a buffer of
// `bound` bytes (terminator included). A piece that does not fit marks the
// builder as overflowed instead of cutting the text, so a cut never changes
// what a statement means.
class BoundedSql {
 public:
  explicit BoundedSql(size_t bound) : bound_(bound) {}
  void append(const char* format, ...);
  bool overflow() const { return overflow_; }
  bool empty() const { return text_.empty(); }
  const std::string& str() const { return text_; }
  const char* c_str() const { return text_.c_str(); }

 private:
  std::string text_;
  size_t bound_;
  bool overflow_ = false;
};

// The WHERE clause of a condition list whose items each begin "AND ": "" for
// none, else "WHERE " and the list after its first "AND ".
std::string where_clause(const BoundedSql& conditions);

// "LIMIT %d OFFSET %d" for a page, or `whole` when start and end are both 0.
std::string paging_clause(int start, int end, const char* whole);

// "ORDER BY <prefix><column>" (and " DESC" for odd codes) of a table whose
// sort codes take its columns two by two; a trailing blank when `filtered`.
// False for a code beyond the last column.
bool column_order(const char* const* columns, int ncolumns, int sort, bool filtered,
                  const char* prefix, std::string* out);

// Start below 0, end below 0 or start above end.
inline bool bad_range(int start, int end) { return start < 0 || end < 0 || start > end; }

// True when the text of a record buffer is longer than `bound` (an
// unterminated buffer counts as longer).
template <size_t N>
bool too_long(const char (&text)[N], size_t bound) {
  return strnlen(text, N) > bound;
}

// Precision and pointer for "%.*Q" / "%.*q": a record text is never read past
// its buffer, even when it lacks a terminator.
#define SF_TXT(field) static_cast<int>(sizeof(field) - 1), (field)

inline bool has_text(const char* text) { return text[0] != '\0'; }

// Copies a column value (or `def` for NULL) into a record buffer, cut to fit.
template <size_t N>
void copy_column(char (&dst)[N], const char* value, const char* def) {
  const char* src = value != nullptr ? value : def;
  size_t n = strnlen(src, N - 1);
  memcpy(dst, src, n);
  dst[n] = '\0';
}

// strtol base 10 of a column value; 0 for NULL.
int32_t int_column(const char* value);

}  // namespace sf_internal

#endif  // SLT_SHARELINK_DB_STORE_INTERNAL_H_
