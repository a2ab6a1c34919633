#include "sharelink_db/store.h"

#include <fcntl.h>
#include <libgen.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <ctime>

#include "diag/app_log.h"
#include "diag/debug_log.h"
#include "paths/relocation_target.h"
#include "platform/exec.h"
#include "platform/facts.h"
#include "platform/fs.h"
#include "platform/naslog_migrate.h"
#include "platform/os.h"
#include "platform/profile.h"
#include "platform/root.h"
#include "sharelink_db/cleanup.h"
#include "sharelink_db/companions.h"
#include "sharelink_db/event_rows.h"
#include "sharelink_db/result_codes.h"
#include "sharelink_db/store_internal.h"
#include "sharelink_db/store_use_lock.h"

using sf_internal::DbGuard;
using sf_internal::SqlText;

const char kSfDefaultDbPath[] = "/etc/config/share_link.db";
const char kSfDbFolderName[] = ".@kdx/share_link_db";
const char kSfDbFileName[] = "share_link.db";
const char kSfLockFile[] = "/tmp/kdx_shareLink.lock";
const char kSfFlockFile[] = "/tmp/kdx_shareLink_flock.lock";

const char kSfEventTableSql[] =
    "CREATE TABLE IF NOT EXISTS SHARELINK_EVENT \t( pkey TEXT, \thost TEXT, \tssl INTEGER, "
    "\tsharefile TEXT, \tuseraddr TEXT, \tfilesize TEXT, \tcreatetic INTEGER, \texpire INTEGER, "
    "\tcreator TEXT, \taccesscode TEXT, \tdownload_count INTEGER, \tdownload_limit INTEGER, "
    "\tmisc TEXT DEFAULT '00000001', \tcreate_date TEXT DEFAULT CURRENT_DATE, "
    "\tcreate_time TEXT DEFAULT CURRENT_TIME, \ttitle TEXT, \tdescription TEXT, "
    "\ttype INTEGER DEFAULT 0, \tlink_name TEXT );";
const char kSfFidTableSql[] =
    "CREATE TABLE IF NOT EXISTS SHARELINK_FID \t( pkey TEXT, \tfid TEXT, \tsharefile TEXT );";
const char kSfAcxTableSql[] = "CREATE TABLE IF NOT EXISTS SHARELINK_ACX ( pkey TEXT, acx TEXT );";
const char kSfUserTableSql[] =
    "CREATE TABLE IF NOT EXISTS SHARELINK_USER \t( pkey TEXT, \tuser TEXT, \tdescription TEXT, "
    "\temail TEXT );";
const char kSfTriggerSqlFormat[] =
    "CREATE TRIGGER sharelink_event_logfull AFTER INSERT \t\t\t\t\t\tON sharelink_event WHEN %d < "
    "(SELECT COUNT(*) FROM sharelink_event) \t\t\t\t\t\tBEGIN \t\t\t\t\t\tDELETE FROM "
    "sharelink_event WHERE pkey IN \t\t\t\t\t\t(SELECT pkey FROM sharelink_event ORDER BY "
    "create_date, create_time \t\t\t\t\t\tLIMIT %d); \t\t\t\t\t\tEND;";

namespace {

constexpr int kDefaultTriggerLimit = 100000;
constexpr int kRotateGenerations = 10;
constexpr int kRotateMaxAge = 2592000;  // 30 days
constexpr int kLockWaits = 7;
constexpr useconds_t kLockWaitUs = 1000000;
constexpr time_t kStaleLockAge = 1800;

const char* const kEventIndexes[] = {
    "CREATE INDEX IF NOT EXISTS idx_pkey on SHARELINK_EVENT(pkey);",
    "CREATE INDEX IF NOT EXISTS idx_filesize on SHARELINK_EVENT(filesize);",
    "CREATE INDEX IF NOT EXISTS idx_createtic on SHARELINK_EVENT(createtic);",
    "CREATE INDEX IF NOT EXISTS idx_expire on SHARELINK_EVENT(expire);",
    "CREATE INDEX IF NOT EXISTS idx_creator on SHARELINK_EVENT(creator);",
    "CREATE INDEX IF NOT EXISTS idx_create_date on SHARELINK_EVENT(create_date);",
    "CREATE INDEX IF NOT EXISTS idx_create_time on SHARELINK_EVENT(create_time);",
    "CREATE INDEX IF NOT EXISTS idx_link_name on SHARELINK_EVENT(link_name);",
    nullptr,
};
const char* const kFidIndexes[] = {
    "CREATE INDEX IF NOT EXISTS idex_pkey on SHARELINK_FID(pkey);",
    "CREATE INDEX IF NOT EXISTS idex_fid on SHARELINK_FID(fid);",
    nullptr,
};
const char* const kAcxIndexes[] = {
    "CREATE INDEX IF NOT EXISTS idex_acx_pkey on SHARELINK_ACX(pkey);",
    "CREATE INDEX IF NOT EXISTS idex_acx_acx on SHARELINK_ACX(acx);",
    nullptr,
};
const char* const kUserIndexes[] = {
    "CREATE INDEX IF NOT EXISTS idex_user_pkey on SHARELINK_USER(pkey);",
    "CREATE INDEX IF NOT EXISTS idex_user_user on SHARELINK_USER(user);",
    "CREATE INDEX IF NOT EXISTS idex_user_description on SHARELINK_USER(description);",
    "CREATE INDEX IF NOT EXISTS idex_user_email on SHARELINK_USER(email);",
    nullptr,
};

const char* const kObsoleteIndexes[] = {
    "drop index if exists idx_host",           "drop index if exists idx_ssl",
    "drop index if exists idx_sharefile",      "drop index if exists idx_useraddr",
    "drop index if exists idx_accesscode",     "drop index if exists idx_download_count",
    "drop index if exists idx_download_limit", "drop index if exists idx_misc",
    "drop index if exists idx_title",          "drop index if exists idx_description",
    "drop index if exists idx_type",           "drop index if exists idex_sharefile",
};

const NaslogColumn kEventColumns[] = {
    {"pkey", nullptr},
    {"host", nullptr},
    {"ssl", nullptr},
    {"sharefile", nullptr},
    {"useraddr", nullptr},
    {"filesize", nullptr},
    {"createtic", nullptr},
    {"expire", nullptr},
    {"creator", nullptr},
    {"accesscode", nullptr},
    {"download_count", nullptr},
    {"download_limit", nullptr},
    {"misc", nullptr},
    {"create_date", nullptr},
    {"create_time", nullptr},
    {"title", "ALTER TABLE SHARELINK_EVENT ADD COLUMN title TEXT;"},
    {"description", "ALTER TABLE SHARELINK_EVENT ADD COLUMN description TEXT;"},
    {"type", "ALTER TABLE SHARELINK_EVENT ADD COLUMN type INTEGER;"},
    {"link_name", "ALTER TABLE SHARELINK_EVENT ADD COLUMN link_name TEXT;"},
};
const NaslogColumn kFidColumns[] = {
    {"pkey", nullptr},
    {"fid", nullptr},
    {"sharefile", "ALTER TABLE SHARELINK_FID ADD COLUMN sharefile TEXT;"},
};
const NaslogColumn kUserColumns[] = {
    {"pkey", nullptr},
    {"user", nullptr},
    {"description", "ALTER TABLE SHARELINK_USER ADD COLUMN description TEXT;"},
    {"email", "ALTER TABLE SHARELINK_USER ADD COLUMN email TEXT;"},
};

int create_table(const char* prepare, const char* table_sql, const char* const* indexes) {
  DbGuard db;
  int rc = sf_internal::open_store(&db, true);
  if (rc != 0) return rc;
  sf_internal::exec(db.get(), prepare);
  sf_internal::exec(db.get(), "PRAGMA case_sensitive_like=ON;");
  if (!sf_internal::exec(db.get(), table_sql)) return kSfSchemaFailed;
  for (const char* const* index = indexes; *index != nullptr; ++index) {
    sf_internal::exec(db.get(), *index);
  }
  return 0;
}

// Runs a program of the appliance and waits for it; true when it exited 0.
bool run_program(const char* const argv[]) { return _hs_secure_execv(argv[0], argv, nullptr) == 0; }

bool make_folder(const char* folder) {
  const char* argv[] = {"/bin/mkdir", "-p", folder, nullptr};
  return run_program(argv);
}

// Holds the flock lock for one scope.
class FlockGuard {
 public:
  FlockGuard() : fd_(sf_flock_lock(0666)), error_(fd_ >= 0 ? 0 : errno) {}
  ~FlockGuard() {
    if (fd_ >= 0) sf_flock_unlock(fd_);
  }
  FlockGuard(const FlockGuard&) = delete;
  FlockGuard& operator=(const FlockGuard&) = delete;
  bool held() const { return fd_ >= 0; }
  int error() const { return error_; }  // errno of a failed open or lock

 private:
  int fd_;
  int error_;
};

}  // namespace

void sf_get_db_path(char* buf, int len) {
  if (buf == nullptr || len <= 0) return;
  char value[256];
  Get_Profile_String("Depot", "Share_Link_Db", "", value, sizeof value);
  snprintf(buf, static_cast<size_t>(len), "%s", value[0] != '\0' ? value : kSfDefaultDbPath);
}

int sf_db_open(char* buf, int len, sqlite3** db) {
  if (buf == nullptr || db == nullptr || len < 1) return -1;
  sf_get_db_path(buf, len);
  return sqlite3_open(rooted_path(buf).c_str(), db);
}

std::string sf_beside_store(const char* name) {
  char db_path[256];
  sf_get_db_path(db_path, sizeof db_path);
  const char* slash = strrchr(db_path, '/');
  std::string dir = slash != nullptr ? std::string(db_path, static_cast<size_t>(slash - db_path))
                                     : std::string(".");
  return dir + "/" + name;
}

bool sf_db_path_is_managed(const char* path) {
  if (path == nullptr) return false;
  return strcmp(path, kSfDefaultDbPath) == 0 || strncmp(path, "/share/", 7) == 0;
}

int sf_create_event_table() { return create_table("", kSfEventTableSql, kEventIndexes); }
int sf_create_fid_table() { return create_table("", kSfFidTableSql, kFidIndexes); }
int sf_create_acx_table() {
  // SQLite ignores a page size that is no power of two; it is issued all the same.
  return create_table("PRAGMA page_size = 100000;", kSfAcxTableSql, kAcxIndexes);
}
int sf_create_user_table() { return create_table("", kSfUserTableSql, kUserIndexes); }

int sf_create_tables() {
  int sum = sf_create_event_table();
  sum += sf_create_fid_table();
  sum += sf_create_user_table();
  return sum;
}

int sf_create_trigger(int limit, int batch) {
  if (limit <= 0) limit = kDefaultTriggerLimit;
  if (batch <= 0) batch = 1;
  SqlText sql(sqlite3_mprintf(kSfTriggerSqlFormat, limit, batch));
  DbGuard db;
  int rc = sf_internal::open_store(&db, true);
  if (rc != 0) return rc;
  return sf_internal::exec(db.get(), sql.get()) ? 0 : kSfTriggerCreateFailed;
}

int sf_drop_trigger() {
  DbGuard db;
  int rc = sf_internal::open_store(&db, true);
  if (rc != 0) return rc;
  return sf_internal::exec(db.get(), "DROP TRIGGER sharelink_event_logfull;") ? 0
                                                                              : kSfTriggerDropFailed;
}

int sf_reset_trigger() {
  sf_exec_sql("DROP TRIGGER if exists sharelink_event_logfull;");
  os.usleep(100000);
  return sf_create_trigger(0, 0);
}

int sf_migrate_tables(const char* path) {
  if (path == nullptr || path[0] == '\0') return -1;
  int sum = naslog_common_migrate_db(path, "SHARELINK_EVENT", kEventColumns, 19);
  sum += naslog_common_migrate_db(path, "SHARELINK_FID", kFidColumns, 3);
  sum += naslog_common_migrate_db(path, "SHARELINK_USER", kUserColumns, 4);
  return sum;
}

int sf_drop_obsolete_indexes() {
  DbGuard db;
  int rc = sf_internal::open_store(&db, true);
  if (rc != 0) return rc;
  sf_internal::Transaction txn(db.get());
  if (!txn.begun()) return kSfSchemaFailed;
  for (const char* sql : kObsoleteIndexes) {
    if (!sf_internal::exec(db.get(), sql)) return kSfSchemaFailed;
  }
  return txn.commit() ? 0 : kSfSchemaFailed;
}

int sf_init_db(const char* path) {
  int sum = sf_create_tables();
  sum += sf_migrate_tables(path);
  sum += sf_drop_obsolete_indexes();
  sum += sf_reset_trigger();
  sum += sf_delete_orphan_fid();
  return sum;
}

int sf_rotate_db_file(const char* path, int generations, int max_age) {
  if (path == nullptr || path[0] == '\0') return -1;
  time_t now = os.time(nullptr);
  for (int i = generations; i >= 1; --i) {
    char name[4096];
    snprintf(name, sizeof name, "%s.%d", path, i);
    struct stat st;
    if (fs_stat(name, &st) != 0) continue;
    if (i == generations) {
      fs_unlink(name);
    } else if (now - st.st_mtime <= max_age) {
      char next[4096];
      snprintf(next, sizeof next, "%s.%d", path, i + 1);
      fs_rename(name, next);
    } else {
      fs_unlink(name);
    }
  }
  char first[4096];
  snprintf(first, sizeof first, "%s.%d", path, 1);
  return fs_rename(path, first) == 0 ? 0 : -1;
}

namespace {

char g_startup_problem[512];

enum class Verdict { kSound, kDamaged, kUnknown };

bool damaged_code(int code) {
  code &= 0xff;
  return code == SQLITE_CORRUPT || code == SQLITE_NOTADB;
}

// SQLite's verdict on the store file: one that is no database fails to open
// its schema, one with damaged pages fails PRAGMA quick_check (which reads
// every page). kUnknown when the check itself could not run (the reason is
// noted for sf_first_sqlite_error).
Verdict check_store() {
  DbGuard db;
  if (sf_internal::open_store(&db, true) != 0) return Verdict::kUnknown;
  sf_internal::StmtGuard stmt;
  int rc = sqlite3_prepare_v2(db.get(), "PRAGMA quick_check(1);", -1, stmt.out(), nullptr);
  if (rc == SQLITE_OK) rc = sqlite3_step(stmt.get());
  if (rc == SQLITE_ROW) {
    const char* verdict = reinterpret_cast<const char*>(sqlite3_column_text(stmt.get(), 0));
    if (verdict != nullptr && strcmp(verdict, "ok") == 0) return Verdict::kSound;
    sf_internal::note_error(SQLITE_CORRUPT, verdict);
    return Verdict::kDamaged;
  }
  sf_internal::note_error(rc, sqlite3_errmsg(db.get()));
  return damaged_code(rc) ? Verdict::kDamaged : Verdict::kUnknown;
}

int set_aside(const char* path) {
  if (sf_rotate_db_file(path, kRotateGenerations, kRotateMaxAge) != 0) return kSfStartupNotSetAside;
  sf_create_tables();
  return kSfStartupSetAside;
}

}  // namespace

int sf_startup() {
  g_startup_problem[0] = '\0';
  FlockGuard lock;
  if (!lock.held()) {
    // Nothing may be done unguarded, and nothing done must not pass for done.
    snprintf(g_startup_problem, sizeof g_startup_problem, "the lock %s could not be taken: %s",
             kSfFlockFile, strerror(lock.error()));
    return kSfStartupNotLocked;
  }
  sf_clear_sqlite_error();
  char path[256];
  sf_get_db_path(path, sizeof path);
  if (sf_db_file_ready() != 1) {
    if (sf_create_tables() >= 0) return kSfStartupDone;
    const char* why = "";
    int code = sf_first_sqlite_error(&why);
    snprintf(g_startup_problem, sizeof g_startup_problem, "%s could not be made: %s (SQLite %d)",
             path, why, code);
    return kSfStartupNotMade;
  }
  // A damaged store is set aside before anything is written into it; an
  // intact one that cannot be checked or written now (read-only folder,
  // full disk) is kept as it is.
  Verdict verdict = check_store();
  if (verdict == Verdict::kDamaged) return set_aside(path);
  if (verdict == Verdict::kUnknown) return kSfStartupKept;
  if (sf_init_db(path) < 0) {
    return damaged_code(sf_first_sqlite_error(nullptr)) ? set_aside(path) : kSfStartupKept;
  }
  return kSfStartupDone;
}

const char* sf_startup_problem() { return g_startup_problem; }

int sf_db_file_ready() {
  char path[256];
  sf_get_db_path(path, sizeof path);
  if (strcmp(path, kSfDefaultDbPath) != 0) {
    char copy[256];
    snprintf(copy, sizeof copy, "%s", path);
    make_folder(dirname(copy));
  }
  return fs_exists(path) ? 1 : 0;
}

int sf_set_db_location(const char* volume) {
  if (volume == nullptr || volume[0] == '\0' || !fs_exists(volume)) return 0;
  char folder[512];
  snprintf(folder, sizeof folder, "%s/%s", volume, kSfDbFolderName);
  if (!fs_is_dir(folder) && !make_folder(folder)) return 0;
  fs_chmod(volume, 0777);
  char file[512];
  snprintf(file, sizeof file, "%s/%s/%s", volume, kSfDbFolderName, kSfDbFileName);
  return Set_Profile_String("Depot", "Share_Link_Db", file) == 0 ? 1 : 0;
}

namespace {

char g_relocate_problem[512];

__attribute__((format(printf, 1, 2))) int relocation_failed(const char* format, ...) {
  va_list ap;
  va_start(ap, format);
  vsnprintf(g_relocate_problem, sizeof g_relocate_problem, format, ap);
  va_end(ap);
  APP_LOG("%s\n", g_relocate_problem);
  return 0;
}

std::string folder_of(const char* path) {
  const char* slash = strrchr(path, '/');
  if (slash == nullptr) return ".";
  return slash == path ? "/" : std::string(path, static_cast<size_t>(slash - path));
}

bool move_file(const char* from, const char* to) {
  const char* argv[] = {"/bin/mv", "-f", from, to, nullptr};
  return run_program(argv);
}

}  // namespace

const char* sf_relocate_problem() { return g_relocate_problem; }

int sf_relocate_db() {
  g_relocate_problem[0] = '\0';
  char path[256];
  sf_get_db_path(path, sizeof path);
  if (sf_db_path_is_managed(path)) return 1;
  char volume[256];
  Get_Default_Volume_Path(volume, sizeof volume);
  if (volume[0] == '\0') return relocation_failed("there is no default volume");
  // Only onto a volume reached without links or "..", into a folder that no
  // share serves: the store holds every access code in clear.
  if (!relocation_volume_allowed(volume)) {
    return relocation_failed("the default volume %s is no folder of its own under /share/", volume);
  }
  char folder[512];
  snprintf(folder, sizeof folder, "%s/%s", volume, kSfDbFolderName);
  if (!fs_is_dir(folder) && !make_folder(folder)) {
    return relocation_failed("%s could not be made", folder);
  }
  if (!relocation_folder_allowed(folder)) {
    return relocation_failed("%s lies in a share or is reached through a link", folder);
  }
  // No download counts into the old file, nor reads a half-moved state,
  // until the configuration names the new one.
  StoreUseLock use(StoreUseLock::kExclusive);
  if (!use.held()) return relocation_failed("the lock %s could not be taken", kSfStoreUseLockFile);
  const std::string old_folder = folder_of(path);
  if (!sf_copy_companions(old_folder.c_str(), folder)) {
    return relocation_failed("the files beside the store could not be copied to %s", folder);
  }
  char target[512];
  snprintf(target, sizeof target, "%s/%s", folder, kSfDbFileName);
  const bool store_exists = fs_exists(path);
  if (store_exists) {
    bool moved = move_file(path, target);
    fs_chmod(target, 0666);
    if (!moved) {
      sf_remove_companions(folder);
      return relocation_failed("%s could not be moved to %s", path, target);
    }
  }
  if (sf_set_db_location(volume) == 0) {
    // The old place stays the working one.
    if (store_exists && !move_file(target, path)) {
      APP_LOG("%s could not be moved back to %s\n", target, path);
    }
    sf_remove_companions(folder);
    return relocation_failed("the configuration could not be pointed at %s", target);
  }
  if (!sf_remove_companions(old_folder.c_str())) {
    APP_LOG("the files beside the old store in %s could not all be removed\n", old_folder.c_str());
  }
  return 1;
}

int sf_relocate_pass() {
  g_relocate_problem[0] = '\0';
  FlockGuard lock;
  if (!lock.held()) {
    return relocation_failed("the lock %s could not be taken: %s", kSfFlockFile,
                             strerror(lock.error()));
  }
  int rc = sf_rewrite_relay_host();
  if (rc == 1) rc = sf_relocate_db();
  return rc;
}

int sf_check_LockFile() {
  for (int i = 0; i < kLockWaits; ++i) {
    if (!fs_exists(kSfLockFile)) return 0;
    os.usleep(kLockWaitUs);
  }
  struct stat st;
  if (fs_stat(kSfLockFile, &st) != 0) return 0;
  if (os.time(nullptr) - st.st_mtime < kStaleLockAge) {
    if (debug_level() == 10) APP_LOG("sharelink lock error\n");
    return kSfLockHeld;
  }
  fs_unlink(kSfLockFile);
  return 0;
}

int sf_Lock() {
  int rc = sf_check_LockFile();
  if (rc != 0) {
    debug_log(9, kDebugFileManager, "%s %d, nRet=%d, check lock file error !\n", __func__, __LINE__,
              rc);
    return rc;
  }
  FILE* f = fs_fopen(kSfLockFile, "w+");
  if (f == nullptr) {
    debug_log(9, kDebugFileManager, "%s %d, nRet=%d, lock file error !\n", __func__, __LINE__,
              kSfLockCreateFailed);
    return kSfLockCreateFailed;
  }
  os.fclose(f);
  return 0;
}

int sf_UnLock() {
  fs_unlink(kSfLockFile);
  return 1;
}

int sf_check_empty_db() {
  char path[256];
  sf_get_db_path(path, sizeof path);
  if (path[0] == '\0') return 0;
  if (sf_Lock() != 0) return 0;
  int result = 0;
  struct stat st;
  if (fs_stat(path, &st) == 0) {
    if (st.st_size == 0) {
      fs_unlink(path);
    } else if (sf_event_count() < 0) {
      result = 1;
    }
  }
  sf_UnLock();
  return result;
}

int sf_flock_lock(int mode) {
  int fd = fs_open(kSfFlockFile, O_WRONLY | O_CREAT, static_cast<mode_t>(mode));
  if (fd < 0) return kSfFlockOpenFailed;
  if (os.flock(fd, LOCK_EX) != 0) {
    os.close(fd);
    return kSfFlockLockFailed;
  }
  return fd;
}

int sf_flock_unlock(int fd) {
  int rc = os.flock(fd, LOCK_UN) == 0 ? 0 : kSfFlockUnlockFailed;
  os.close(fd);
  return rc;
}
