#include "share_page/access_db.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>

#include <cerrno>
#include <cstring>

#include "diag/app_log.h"
#include "platform/fs.h"
#include "platform/fs_beneath.h"
#include "platform/os.h"
#include "platform/root.h"
#include "platform/terminal_text.h"
#include "sharelink_db/download_count.h"
#include "sharelink_db/store.h"

namespace {

constexpr long kLinkWindow = 15 * 60;
constexpr int kLinkFailures = 5;
constexpr long kClientWindow = 60 * 60;
constexpr int kClientFailures = 20;
constexpr int kUnknownLookups = 20;
constexpr long kRepeatWindow = 60 * 60;
constexpr long kAuditKeep = 90L * 24 * 60 * 60;
// A kept CRC is summed again after this long, so rows of files long gone go.
constexpr long kCrcKeep = 30L * 24 * 60 * 60;
constexpr long kPruneEvery = 60;
constexpr int kPruneBatch = 5000;
// As the store's own: a burst of counts waits its turn rather than failing.
constexpr int kBusyMs = 20000;
// A super-journal lives for one commit; one older than this was left by a
// run killed in the middle of it.
constexpr long kStaleJournalAge = 60;
constexpr int kSetAsideGenerations = 3;
constexpr int kSetAsideMaxAge = 30 * 24 * 60 * 60;

const char kSchema[] =
    "CREATE TABLE IF NOT EXISTS failure (t INTEGER, client TEXT, ssid TEXT, kind TEXT);"
    "CREATE INDEX IF NOT EXISTS failure_client ON failure(client, t);"
    "CREATE INDEX IF NOT EXISTS failure_t ON failure(t);"
    "CREATE TABLE IF NOT EXISTS counted (t INTEGER, visitor TEXT, ssid TEXT, item TEXT);"
    "CREATE INDEX IF NOT EXISTS counted_visitor ON counted(visitor, ssid, item);"
    "CREATE INDEX IF NOT EXISTS counted_t ON counted(t);"
    "CREATE TABLE IF NOT EXISTS audit (t INTEGER, ssid TEXT, item TEXT, client TEXT, ua TEXT,"
    " event TEXT);"
    "CREATE INDEX IF NOT EXISTS audit_ssid ON audit(ssid);"
    "CREATE INDEX IF NOT EXISTS audit_t ON audit(t);"
    "CREATE TABLE IF NOT EXISTS crc (dev INTEGER, ino INTEGER, size INTEGER, mtime INTEGER,"
    " ctime INTEGER, crc INTEGER, t INTEGER, PRIMARY KEY (dev, ino));"
    "CREATE INDEX IF NOT EXISTS crc_t ON crc(t);"
    "CREATE TABLE IF NOT EXISTS meta (k TEXT PRIMARY KEY, v INTEGER);";

// Files of an earlier version lack the failure kind; their rows count as codes.
const char kUpgrade[] = "ALTER TABLE failure ADD COLUMN kind TEXT DEFAULT 'code'";

const char* kind_text(FailureKind kind) {
  return kind == FailureKind::kCode ? "code" : "unknown";
}

// A row's texts come from anyone: a visitor's key and path are kept to
// their first bytes, so no request grows the file by more than a line.
constexpr size_t kAuditKeyBytes = 64;
constexpr size_t kAuditItemBytes = 256;

std::string clipped(const std::string& text, size_t bytes) {
  return text.size() <= bytes ? text : text.substr(0, bytes) + "...";
}

long long nanos(const struct timespec& t) {
  return static_cast<long long>(t.tv_sec) * 1000000000LL + t.tv_nsec;
}

bool damaged_code(int rc) {
  rc &= 0xff;
  return rc == SQLITE_CORRUPT || rc == SQLITE_NOTADB;
}

// A prepared statement, finalized on every way out; every step's result is
// the caller's to check.
class Stmt {
 public:
  Stmt(sqlite3* db, const char* sql) {
    if (db == nullptr) {
      rc_ = SQLITE_MISUSE;
    } else if ((rc_ = sqlite3_prepare_v2(db, sql, -1, &s_, nullptr)) != SQLITE_OK) {
      s_ = nullptr;
    }
  }
  ~Stmt() { sqlite3_finalize(s_); }
  Stmt(const Stmt&) = delete;
  Stmt& operator=(const Stmt&) = delete;
  Stmt& text(int i, const std::string& v) {
    if (s_) sqlite3_bind_text(s_, i, v.c_str(), static_cast<int>(v.size()), SQLITE_TRANSIENT);
    return *this;
  }
  Stmt& num(int i, long long v) {
    if (s_) sqlite3_bind_int64(s_, i, v);
    return *this;
  }
  // SQLITE_ROW, SQLITE_DONE, or the failure (also a failed prepare's).
  int step() { return s_ ? (rc_ = sqlite3_step(s_)) : rc_; }
  int rc() const { return rc_; }
  long long col(int i) { return sqlite3_column_int64(s_, i); }
  bool null(int i) { return sqlite3_column_type(s_, i) == SQLITE_NULL; }
  const char* str(int i) {
    const unsigned char* t = sqlite3_column_text(s_, i);
    return t != nullptr ? reinterpret_cast<const char*>(t) : "";
  }

 private:
  sqlite3_stmt* s_ = nullptr;
  int rc_ = SQLITE_OK;
};

// "file:" URI of a file-system path, for ATTACH with mode=rw (never creates).
std::string uri_of(const std::string& path) {
  static const char digits[] = "0123456789ABCDEF";
  std::string out = "file:";
  for (unsigned char c : path) {
    if (c == '/' || isalnum(c) || c == '-' || c == '.' || c == '_' || c == '~') {
      out += static_cast<char>(c);
    } else {
      out += '%';
      out += digits[c >> 4];
      out += digits[c & 15];
    }
  }
  return out + "?mode=rw";
}

// Moves a damaged access file and its journals out of the way, under a lock
// so that two runs that both found it damaged do not set aside each other's
// fresh file. The next open makes a new one.
void set_aside(const std::string& path, const char* why) {
  // Read-only and readable by all: whichever user made it, the next can lock.
  UniqueFd lock(fs_open((path + ".lock").c_str(), O_RDONLY | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0644));
  if (lock.get() < 0 || os.flock(lock.get(), LOCK_EX) != 0) {
    APP_LOG("share.cgi: the access file %s is %s; its lock cannot be taken\n", path.c_str(), why);
    return;
  }
  const std::string aside = path + ".1";
  // Generations as the store keeps them: .1 the latest, up to .3.
  if (sf_rotate_db_file(path.c_str(), kSetAsideGenerations, kSetAsideMaxAge) != 0) {
    APP_LOG("share.cgi: the access file %s is %s and could not be set aside\n", path.c_str(), why);
    return;
  }
  // A journal left beside a new file would be played back into it.
  for (const char* tail : {"-journal", "-wal"}) {
    fs_rename((path + tail).c_str(), (aside + tail).c_str());
  }
  fs_unlink((path + "-shm").c_str());
  APP_LOG("share.cgi: the access file %s was %s; set aside as %s, a new one is made\n",
          path.c_str(), why, aside.c_str());
}

// Why an existing access file cannot be this run's database: not a regular
// file, or one this user may not read and write (a read-only volume is not
// the file's fault and keeps it).
const char* unusable(const std::string& path) {
  struct stat st;
  if (fs_lstat(path.c_str(), &st) != 0) return nullptr;
  if (S_ISLNK(st.st_mode)) return "a symbolic link";
  if (!S_ISREG(st.st_mode)) return "not a regular file";
  UniqueFd fd(fs_open(path.c_str(), O_RDWR | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK));
  if (fd.get() < 0 && (errno == EACCES || errno == EPERM)) return "unreadable";
  return nullptr;
}

// "share_link_access.db-mjXXXXXXXX" files that no commit uses any more.
void remove_stale_super_journals(time_t now) {
  const std::string file = sf_beside_store(kAccessFileName);
  const std::string dir = file.substr(0, file.rfind('/'));
  const std::string prefix = std::string(kAccessFileName) + "-mj";
  DIR* d = fs_opendir(dir.empty() ? "/" : dir.c_str());
  if (d == nullptr) return;
  while (dirent* e = readdir(d)) {
    struct stat st;
    const std::string path = dir + "/" + e->d_name;
    if (strncmp(e->d_name, prefix.c_str(), prefix.size()) == 0 && fs_lstat(path.c_str(), &st) == 0 &&
        S_ISREG(st.st_mode) && now - st.st_mtime > kStaleJournalAge) {
      fs_unlink(path.c_str());
    }
  }
  closedir(d);
}

}  // namespace

void access_db_one_request() { sqlite3_config(SQLITE_CONFIG_LOOKASIDE, 0, 0); }

AccessDb::AccessDb(Mode mode) {
  const std::string path = sf_beside_store(kAccessFileName);
  if (mode == Mode::kInspect) {
    open_to_inspect(path);
    return;
  }
  if (const char* why = unusable(path)) set_aside(path, why);
  if (open_file(path)) return;
  if (!damaged_) {
    APP_LOG("share.cgi: the access file %s cannot be opened or written: %s\n", path.c_str(),
            db_ != nullptr ? sqlite3_errmsg(db_) : "no connection");
    sqlite3_close(db_);
    db_ = nullptr;
    return;
  }
  sqlite3_close(db_);
  db_ = nullptr;
  set_aside(path, "damaged");
  damaged_ = false;
  if (!open_file(path)) {
    APP_LOG("share.cgi: a new access file %s could not be made\n", path.c_str());
    sqlite3_close(db_);
    db_ = nullptr;
  }
}

AccessDb::~AccessDb() {
  sqlite3_close(db_);
  // Set aside only once this connection is gone.
  if (damaged_) set_aside(sf_beside_store(kAccessFileName), "damaged");
}

bool AccessDb::open_file(const std::string& path) {
  const int flags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_URI |
                    SQLITE_OPEN_NOFOLLOW;
  int rc = sqlite3_open_v2(rooted_path(path.c_str()).c_str(), &db_, flags, nullptr);
  if (rc != SQLITE_OK) {
    damaged_ = damaged_code(rc);
    return false;
  }
  sqlite3_busy_timeout(db_, kBusyMs);
  sqlite3_extended_result_codes(db_, 1);
  // A rollback journal, not WAL: a count commits in the store and here
  // together (SQLite's super-journal) only when both files use one; one
  // that is deleted after each commit, so that no journal outlives the user
  // who made it. No
  // syncs but for counts: a kill cannot tear a write, and a file a power
  // cut damaged is set aside and made anew; an fsync per audit row would
  // cost a page view more than the page.
  if (!exec("PRAGMA cache_size=-64") || !exec("PRAGMA journal_mode=DELETE") ||
      !exec("PRAGMA synchronous=OFF") || !exec(kSchema)) {
    return false;
  }
  // Another run may add the column at the same moment: look again.
  if (Stmt(db_, "SELECT kind FROM failure LIMIT 0").rc() == SQLITE_OK) return true;
  sqlite3_exec(db_, kUpgrade, nullptr, nullptr, nullptr);
  Stmt again(db_, "SELECT kind FROM failure LIMIT 0");
  return again.rc() == SQLITE_OK || failed(again.rc());
}

bool AccessDb::open_to_inspect(const std::string& path) {
  if (!fs_exists(path.c_str())) {
    missing_ = true;
    return false;
  }
  if (sqlite3_open_v2(rooted_path(path.c_str()).c_str(), &db_,
                      SQLITE_OPEN_READONLY | SQLITE_OPEN_NOFOLLOW, nullptr) != SQLITE_OK) {
    sqlite3_close(db_);
    db_ = nullptr;
    return false;
  }
  sqlite3_busy_timeout(db_, kBusyMs);
  return true;
}

bool AccessDb::failed(int rc) {
  if (damaged_code(rc)) {
    damaged_ = true;
  } else {
    log_failure(rc, "the access file cannot be read or written");
  }
  return false;
}

void AccessDb::log_failure(int rc, const char* what) {
  if (logged_ || rc == SQLITE_OK) return;
  logged_ = true;
  char path[256];
  sf_get_db_path(path, sizeof path);
  APP_LOG("share.cgi: %s (store %s): %s\n", what, path, sqlite3_errstr(rc));
}

bool AccessDb::exec(const char* sql) {
  if (db_ == nullptr) return false;
  int rc = sqlite3_exec(db_, sql, nullptr, nullptr, nullptr);
  return rc == SQLITE_OK || failed(rc);
}

AccessDb::Write::Write(AccessDb* db) : db_(db) { begun_ = db_->exec("BEGIN IMMEDIATE"); }

AccessDb::Write::~Write() {
  if (begun_) sqlite3_exec(db_->db_, "ROLLBACK", nullptr, nullptr, nullptr);
}

bool AccessDb::Write::commit() {
  if (!begun_) return false;
  if (!db_->exec("COMMIT")) return false;
  begun_ = false;
  return true;
}

bool AccessDb::code_wait(time_t now, const std::string& client, const std::string& ssid,
                         long* wait) {
  *wait = 0;
  Stmt link(db_, "SELECT COUNT(*), MIN(t) FROM failure WHERE client = ? AND ssid = ? AND t > ?"
                 " AND kind = 'code'");
  link.text(1, client).text(2, ssid).num(3, now - kLinkWindow);
  if (link.step() != SQLITE_ROW) return failed(link.rc());
  if (link.col(0) >= kLinkFailures) *wait = static_cast<long>(link.col(1) + kLinkWindow - now);
  Stmt all(db_, "SELECT COUNT(*), MIN(t) FROM failure WHERE client = ? AND t > ?"
                " AND kind = 'code'");
  all.text(1, client).num(2, now - kClientWindow);
  if (all.step() != SQLITE_ROW) return failed(all.rc());
  if (all.col(0) >= kClientFailures) {
    long w = static_cast<long>(all.col(1) + kClientWindow - now);
    if (w > *wait) *wait = w;
  }
  // A row from a clock that has since gone back never waits past its window.
  if (*wait > kClientWindow) *wait = kClientWindow;
  if (*wait < 0) *wait = 1;
  return true;
}

bool AccessDb::unknown_wait(time_t now, const std::string& client, long* wait) {
  *wait = 0;
  Stmt s(db_, "SELECT COUNT(*), MIN(t) FROM failure WHERE client = ? AND t > ?"
              " AND kind = 'unknown'");
  s.text(1, client).num(2, now - kClientWindow);
  if (s.step() != SQLITE_ROW) return failed(s.rc());
  if (s.col(0) >= kUnknownLookups) {
    *wait = static_cast<long>(s.col(1) + kClientWindow - now);
    if (*wait > kClientWindow) *wait = kClientWindow;
    if (*wait < 1) *wait = 1;
  }
  return true;
}

bool AccessDb::record_failure(time_t now, const std::string& client, const std::string& ssid,
                              FailureKind kind) {
  Stmt s(db_, "INSERT INTO failure (t, client, ssid, kind) VALUES (?, ?, ?, ?)");
  s.num(1, now).text(2, client).text(3, ssid).text(4, kind_text(kind));
  return s.step() == SQLITE_DONE || failed(s.rc());
}

bool AccessDb::counted_recently(time_t now, const std::string& visitor, const std::string& ssid,
                                const std::string& item, bool* yes) {
  Stmt s(db_, "SELECT 1 FROM counted WHERE visitor = ? AND ssid = ? AND item = ? AND t > ?");
  s.text(1, visitor).text(2, ssid).text(3, item).num(4, now - kRepeatWindow);
  int rc = s.step();
  *yes = rc == SQLITE_ROW;
  return rc == SQLITE_ROW || rc == SQLITE_DONE || failed(rc);
}

CountOutcome AccessDb::count_download(const CountedVisit& v) {
  if (db_ == nullptr) return CountOutcome::kFailed;
  char path[256];
  sf_get_db_path(path, sizeof path);
  Stmt attach(db_, "ATTACH DATABASE ? AS store");
  attach.text(1, uri_of(rooted_path(path)));
  if (attach.step() != SQLITE_DONE) return CountOutcome::kFailed;
  CountOutcome outcome = CountOutcome::kFailed;
  // Both files synced, so that the commit goes through a super-journal.
  if (exec("PRAGMA main.synchronous=NORMAL")) {
    Write txn(this);
    Stmt up(db_, sf_count_download_sql("store").c_str());
    up.text(1, v.pkey);
    const bool counted = txn.begun() && up.step() == SQLITE_DONE;
    const bool changed = counted && sqlite3_changes(db_) > 0;
    if (counted && !changed) {
      outcome = CountOutcome::kLimitReached;
    } else if (changed) {
      Stmt seen(db_, "INSERT INTO counted VALUES (?1, ?2, ?4, ?5), (?1, ?3, ?4, ?5)");
      seen.num(1, v.now).text(2, v.visitor).text(3, v.address_visitor).text(4, v.pkey).text(5, v.item);
      if (seen.step() == SQLITE_DONE &&
          audit(v.now, v.pkey, v.item, v.client, v.ua_hash, v.event) && txn.commit()) {
        outcome = CountOutcome::kCounted;
      } else {
        failed(seen.rc());
      }
    } else if (!counted) {
      log_failure(up.rc(), "the store cannot be counted in");
    }
  }
  exec("PRAGMA main.synchronous=OFF");
  exec("DETACH DATABASE store");
  return outcome;
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
  // A CRC not kept is summed again next time: nothing to refuse.
  Stmt(db_, "INSERT OR REPLACE INTO crc VALUES (?, ?, ?, ?, ?, ?, ?)")
      .num(1, static_cast<long long>(st.st_dev)).num(2, static_cast<long long>(st.st_ino))
      .num(3, st.st_size).num(4, nanos(st.st_mtim)).num(5, nanos(st.st_ctim)).num(6, crc)
      .num(7, now).step();
}

bool AccessDb::audit(time_t now, const std::string& ssid, const std::string& item,
                     const std::string& client, const std::string& ua_hash,
                     const std::string& event) {
  Stmt s(db_, "INSERT INTO audit VALUES (?, ?, ?, ?, ?, ?)");
  s.num(1, now).text(2, clipped(ssid, kAuditKeyBytes)).text(3, clipped(item, kAuditItemBytes));
  s.text(4, client).text(5, ua_hash).text(6, event);
  return s.step() == SQLITE_DONE || failed(s.rc());
}

bool AccessDb::prune(time_t now) {
  {
    // Finalized before the write begins: a reader that then asks to write
    // gets SQLITE_BUSY at once while another run commits (no busy wait).
    Stmt last(db_, "SELECT v FROM meta WHERE k = 'pruned'");
    int rc = last.step();
    if (rc != SQLITE_ROW && rc != SQLITE_DONE) return failed(rc);
    if (rc == SQLITE_ROW && now >= last.col(0) && now - last.col(0) < kPruneEvery) return true;
  }
  Write txn(this);
  if (!txn.begun()) return false;
  // The newest row bounds what "old" means: one request from a clock far
  // ahead must not empty the tables.
  Stmt newest(db_, "SELECT MAX(t) FROM audit");
  if (newest.step() != SQLITE_ROW) return failed(newest.rc());
  const long long ref = newest.null(0) || newest.col(0) > now ? now : newest.col(0);
  struct Rule { const char* sql; long long before; };
  const Rule rules[] = {
      {"DELETE FROM failure WHERE rowid IN (SELECT rowid FROM failure WHERE t < ? LIMIT ?)",
       ref - kClientWindow},
      {"DELETE FROM counted WHERE rowid IN (SELECT rowid FROM counted WHERE t < ? LIMIT ?)",
       ref - kRepeatWindow},
      {"DELETE FROM audit WHERE rowid IN (SELECT rowid FROM audit WHERE t < ? LIMIT ?)",
       ref - kAuditKeep},
      {"DELETE FROM crc WHERE rowid IN (SELECT rowid FROM crc WHERE t < ? LIMIT ?)",
       ref - kCrcKeep},
  };
  for (const Rule& r : rules) {
    Stmt s(db_, r.sql);
    s.num(1, r.before).num(2, kPruneBatch);
    if (s.step() != SQLITE_DONE) return failed(s.rc());
  }
  // Rows written before the clock went back are moved to now, so that their
  // windows end one window from now rather than one window after a future.
  for (const char* sql : {"UPDATE failure SET t = ?1 WHERE t > ?1",
                          "UPDATE counted SET t = ?1 WHERE t > ?1"}) {
    Stmt s(db_, sql);
    s.num(1, now);
    if (s.step() != SQLITE_DONE) return failed(s.rc());
  }
  remove_stale_super_journals(now);
  Stmt mark(db_, "INSERT OR REPLACE INTO meta VALUES ('pruned', ?)");
  mark.num(1, now);
  if (mark.step() != SQLITE_DONE) return failed(mark.rc());
  return txn.commit();
}

int AccessDb::print_audit(const std::string& ssid, FILE* out) {
  if (missing_) return 0;
  if (db_ == nullptr) return -1;
  Stmt s(db_, ssid.empty() ? "SELECT * FROM audit ORDER BY rowid"
                           : "SELECT * FROM audit WHERE ssid = ? ORDER BY rowid");
  if (!ssid.empty()) s.text(1, ssid);
  int rc;
  while ((rc = s.step()) == SQLITE_ROW) {
    fprintf(out, "%lld\t%s\t%s\t%s\t%s\t%s\n", s.col(0), terminal_safe(s.str(1)).c_str(),
            terminal_safe(s.str(2)).c_str(), terminal_safe(s.str(3)).c_str(),
            terminal_safe(s.str(4)).c_str(), terminal_safe(s.str(5)).c_str());
  }
  return rc == SQLITE_DONE ? 0 : -1;
}

std::string AccessDb::health() {
  if (missing_) return "missing (made on first use)";
  if (db_ == nullptr) return "cannot be opened";
  Stmt s(db_, "PRAGMA quick_check");
  if (s.step() != SQLITE_ROW) return std::string("cannot be read: ") + sqlite3_errstr(s.rc());
  std::string verdict = s.str(0);
  return verdict == "ok" ? verdict : "damaged: " + verdict;
}
