#include "share_page/access_db.h"

#include <cstdio>
#include <cstring>

#include "platform/root.h"
#include "platform/terminal_text.h"
#include "sharelink_db/store.h"

namespace {

constexpr long kLinkWindow = 15 * 60;
constexpr int kLinkFailures = 5;
constexpr long kClientWindow = 60 * 60;
constexpr int kClientFailures = 20;
constexpr long kRepeatWindow = 60 * 60;
constexpr long kAuditKeep = 90L * 24 * 60 * 60;
// A kept CRC is summed again after this long, so rows of files long gone go.
constexpr long kCrcKeep = 30L * 24 * 60 * 60;

const char kSchema[] =
    "CREATE TABLE IF NOT EXISTS failure (t INTEGER, client TEXT, ssid TEXT);"
    "CREATE INDEX IF NOT EXISTS failure_client ON failure(client, t);"
    "CREATE TABLE IF NOT EXISTS counted (t INTEGER, visitor TEXT, ssid TEXT, item TEXT);"
    "CREATE INDEX IF NOT EXISTS counted_visitor ON counted(visitor, ssid, item);"
    "CREATE TABLE IF NOT EXISTS audit (t INTEGER, ssid TEXT, item TEXT, client TEXT, ua TEXT,"
    " event TEXT);"
    "CREATE INDEX IF NOT EXISTS audit_ssid ON audit(ssid);"
    "CREATE TABLE IF NOT EXISTS crc (dev INTEGER, ino INTEGER, size INTEGER, mtime INTEGER,"
    " ctime INTEGER, crc INTEGER, t INTEGER, PRIMARY KEY (dev, ino));";

long long nanos(const struct timespec& t) {
  return static_cast<long long>(t.tv_sec) * 1000000000LL + t.tv_nsec;
}

// A prepared statement finalized on every way out.
class Stmt {
 public:
  Stmt(sqlite3* db, const char* sql) {
    if (db != nullptr && sqlite3_prepare_v2(db, sql, -1, &s_, nullptr) != SQLITE_OK) s_ = nullptr;
  }
  ~Stmt() { sqlite3_finalize(s_); }
  Stmt(const Stmt&) = delete;
  Stmt& operator=(const Stmt&) = delete;
  bool ok() const { return s_ != nullptr; }
  Stmt& text(int i, const std::string& v) {
    if (s_) sqlite3_bind_text(s_, i, v.c_str(), static_cast<int>(v.size()), SQLITE_TRANSIENT);
    return *this;
  }
  Stmt& num(int i, long long v) {
    if (s_) sqlite3_bind_int64(s_, i, v);
    return *this;
  }
  int step() { return s_ ? sqlite3_step(s_) : SQLITE_ERROR; }
  long long col(int i) { return sqlite3_column_int64(s_, i); }
  const char* str(int i) {
    const unsigned char* t = sqlite3_column_text(s_, i);
    return t != nullptr ? reinterpret_cast<const char*>(t) : "";
  }

 private:
  sqlite3_stmt* s_ = nullptr;
};

}  // namespace

AccessDb::AccessDb() {
  std::string path = rooted_path(sf_beside_store("share_link_access.db").c_str());
  if (sqlite3_open_v2(path.c_str(), &db_, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr) !=
      SQLITE_OK) {
    sqlite3_close(db_);
    db_ = nullptr;
    return;
  }
  sqlite3_busy_timeout(db_, 5000);
  exec("PRAGMA cache_size=-64;");
  exec("PRAGMA journal_mode=WAL;");
  exec(kSchema);
}

AccessDb::~AccessDb() { sqlite3_close(db_); }

void AccessDb::exec(const char* sql) {
  if (db_ != nullptr) sqlite3_exec(db_, sql, nullptr, nullptr, nullptr);
}

void AccessDb::record_failure(time_t now, const std::string& client, const std::string& ssid) {
  Stmt(db_, "INSERT INTO failure VALUES (?, ?, ?)").num(1, now).text(2, client).text(3, ssid).step();
  Stmt(db_, "DELETE FROM failure WHERE t < ?").num(1, now - kClientWindow).step();
}

long AccessDb::retry_after(time_t now, const std::string& client, const std::string& ssid) {
  long wait = 0;
  Stmt link(db_, "SELECT COUNT(*), MIN(t) FROM failure WHERE client = ? AND ssid = ? AND t > ?");
  link.text(1, client).text(2, ssid).num(3, now - kLinkWindow);
  if (link.step() == SQLITE_ROW && link.col(0) >= kLinkFailures) {
    wait = static_cast<long>(link.col(1) + kLinkWindow - now);
  }
  Stmt all(db_, "SELECT COUNT(*), MIN(t) FROM failure WHERE client = ? AND t > ?");
  all.text(1, client).num(2, now - kClientWindow);
  if (all.step() == SQLITE_ROW && all.col(0) >= kClientFailures) {
    long w = static_cast<long>(all.col(1) + kClientWindow - now);
    if (w > wait) wait = w;
  }
  return wait > 0 ? wait : (wait < 0 ? 1 : 0);
}

bool AccessDb::counted_recently(time_t now, const std::string& visitor, const std::string& ssid,
                                const std::string& item) {
  Stmt s(db_, "SELECT 1 FROM counted WHERE visitor = ? AND ssid = ? AND item = ? AND t > ?");
  s.text(1, visitor).text(2, ssid).text(3, item).num(4, now - kRepeatWindow);
  return s.step() == SQLITE_ROW;
}

void AccessDb::record_counted(time_t now, const std::string& visitor, const std::string& ssid,
                              const std::string& item) {
  Stmt(db_, "INSERT INTO counted VALUES (?, ?, ?, ?)")
      .num(1, now).text(2, visitor).text(3, ssid).text(4, item).step();
  Stmt(db_, "DELETE FROM counted WHERE t < ?").num(1, now - kRepeatWindow).step();
}

bool AccessDb::known_crc(const struct stat& st, uint32_t* crc) {
  Stmt s(db_, "SELECT crc FROM crc WHERE dev = ? AND ino = ? AND size = ? AND mtime = ? AND "
              "ctime = ?");
  s.num(1, static_cast<long long>(st.st_dev)).num(2, static_cast<long long>(st.st_ino))
      .num(3, st.st_size).num(4, nanos(st.st_mtim)).num(5, nanos(st.st_ctim));
  if (s.step() != SQLITE_ROW) return false;
  *crc = static_cast<uint32_t>(s.col(0));
  return true;
}

void AccessDb::keep_crc(time_t now, const struct stat& st, uint32_t crc) {
  Stmt(db_, "INSERT OR REPLACE INTO crc VALUES (?, ?, ?, ?, ?, ?, ?)")
      .num(1, static_cast<long long>(st.st_dev)).num(2, static_cast<long long>(st.st_ino))
      .num(3, st.st_size).num(4, nanos(st.st_mtim)).num(5, nanos(st.st_ctim)).num(6, crc)
      .num(7, now).step();
  if (!crcs_pruned_) Stmt(db_, "DELETE FROM crc WHERE t < ?").num(1, now - kCrcKeep).step();
  crcs_pruned_ = true;  // once per archive: the table has no index on t
}

void AccessDb::audit(time_t now, const std::string& ssid, const std::string& item,
                     const std::string& client, const std::string& ua_hash,
                     const std::string& event) {
  Stmt(db_, "INSERT INTO audit VALUES (?, ?, ?, ?, ?, ?)")
      .num(1, now).text(2, ssid).text(3, item).text(4, client).text(5, ua_hash).text(6, event)
      .step();
  Stmt(db_, "DELETE FROM audit WHERE t < ?").num(1, now - kAuditKeep).step();
}

int AccessDb::print_audit(const std::string& ssid, FILE* out) {
  if (db_ == nullptr) return -1;
  Stmt s(db_, ssid.empty() ? "SELECT * FROM audit ORDER BY rowid"
                           : "SELECT * FROM audit WHERE ssid = ? ORDER BY rowid");
  if (!ssid.empty()) s.text(1, ssid);
  if (!s.ok()) return -1;
  int rc;
  while ((rc = s.step()) == SQLITE_ROW) {
    fprintf(out, "%lld\t%s\t%s\t%s\t%s\t%s\n", s.col(0), terminal_safe(s.str(1)).c_str(),
            terminal_safe(s.str(2)).c_str(), terminal_safe(s.str(3)).c_str(),
            terminal_safe(s.str(4)).c_str(), terminal_safe(s.str(5)).c_str());
  }
  return rc == SQLITE_DONE ? 0 : -1;
}
