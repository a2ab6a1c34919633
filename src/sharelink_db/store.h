// The share-link store as a file: where it lives, how every operation opens
// it, the schema with its indexes and size-limiting trigger, the upgrades of
// older files, start-up (with a broken file set aside), relocation onto the
// default data volume, and the two locks that serialise maintenance.
//
// Every operation opens the store, works and closes it again; no connection
// outlives a call. Results are the codes of result_codes.h.
#ifndef SLT_SHARELINK_DB_STORE_H_
#define SLT_SHARELINK_DB_STORE_H_

#include <sqlite3.h>

#include <string>

extern const char kSfDefaultDbPath[];   // "/etc/config/share_link.db"
extern const char kSfDbFolderName[];    // ".@kdx/share_link_db"
extern const char kSfDbFileName[];      // "share_link.db"
extern const char kSfLockFile[];        // "/tmp/kdx_shareLink.lock"
extern const char kSfFlockFile[];       // "/tmp/kdx_shareLink_flock.lock"

// The schema, executed exactly as written (the runs of white space are TABs).
extern const char kSfEventTableSql[];
extern const char kSfFidTableSql[];
extern const char kSfAcxTableSql[];
extern const char kSfUserTableSql[];
extern const char kSfTriggerSqlFormat[];  // first %d the row limit, second the batch

// The store path into buf (at most len bytes with the terminator): "Depot" /
// "Share_Link_Db" of the system configuration, or the default path when that
// is absent or empty. Does nothing for a null buf or a len of 0.
void sf_get_db_path(char* buf, int len);

// The appliance path of `name` in the store's folder: where the store's
// companions (the share page's access file, the appliance secret) live, so
// that they move with a relocated store.
std::string sf_beside_store(const char* name);

// The opening rule: fills buf with the store path and opens it. The result of
// sqlite3_open (SQLITE_OK on success; *db may hold a handle to close even on
// failure), or -1 for a null buf or db or a len below 1. Callers pass a
// 256-byte buffer.
int sf_db_open(char* buf, int len, sqlite3** db);

// The path is the default one or lies under "/share/": relocation leaves it.
bool sf_db_path_is_managed(const char* path);

// Table creation: preparatory statement, "PRAGMA case_sensitive_like=ON;",
// the table, its indexes (index failures ignored). 0, -21 when the table
// statement failed, -20.
int sf_create_event_table();
int sf_create_fid_table();
int sf_create_acx_table();
int sf_create_user_table();
// EVENT, FID and USER (not ACX), the sum of their results.
int sf_create_tables();

// The trigger that keeps at most `limit` links (0 or less: 100000), dropping
// the `batch` oldest by creation date and time (0 or less: 1). 0, -25, -20.
int sf_create_trigger(int limit, int batch);
// 0, -26 (no such trigger, or the drop failed), -20.
int sf_drop_trigger();
// Drops the trigger if it exists, waits 100 ms, creates it with the defaults;
// the creation's result.
int sf_reset_trigger();

// Adds the columns older files lack to EVENT, FID and USER of the store at
// `path`. The sum of the three migrations (0 when all is well, negative on a
// failure); -1 for a null or empty path.
int sf_migrate_tables(const char* path);

// Drops the indexes of older versions, in one transaction. 0, -21, -20.
int sf_drop_obsolete_indexes();

// Full initialisation: tables, column upgrades of `path`, obsolete index
// drops, the trigger re-made, orphan file rows removed. The sum of their
// results: negative when any failed.
int sf_init_db(const char* path);

// Renames `path` to path.1 after shifting older generations (path.N, made
// with "%s.%d"): the generation `generations` is removed, younger ones (no
// more than max_age seconds old) move up by one, older ones are removed.
// 0, or -1 when the final rename failed.
int sf_rotate_db_file(const char* path, int generations, int max_age);

// What start-up did with an existing store.
constexpr int kSfStartupDone = 0;      // initialised (or made)
constexpr int kSfStartupSetAside = 1;  // damaged: renamed to path.1, a fresh store made
constexpr int kSfStartupKept = 2;      // failed for another reason: the file is left alone
constexpr int kSfStartupNotSetAside = 3;  // damaged, but the rename failed: left alone
constexpr int kSfStartupNotLocked = 4;    // the flock lock could not be taken: nothing done
constexpr int kSfStartupNotMade = 5;      // no store, and none could be made

// Start-up under the flock lock: an existing store is checked (PRAGMA
// quick_check) and initialised; a missing one is created. Only a store that
// SQLite calls damaged (corrupt pages, not a database) is set aside by
// rotation, before anything is written into it; any other failure (a
// read-only folder, a full disk) keeps the file. sf_first_sqlite_error tells
// why it failed; for kSfStartupNotLocked and kSfStartupNotMade,
// sf_startup_problem says it in a sentence.
int sf_startup();
const char* sf_startup_problem();

// The first SQLite failure (its primary code, and its message in `text`)
// since sf_clear_sqlite_error; SQLITE_OK when none.
int sf_first_sqlite_error(const char** text);
void sf_clear_sqlite_error();

// Creates the store's folder with "/bin/mkdir" "-p" when the path is not the
// default one; then 1 when the store file exists, else 0.
int sf_db_file_ready();

// Moves an unmanaged store onto the default volume's ".@kdx/share_link_db"
// (a folder that relocation_folder_allowed accepts) and repoints the
// configuration, under the exclusive StoreUseLock. Its companions
// (companions.h) are copied first and their originals removed only once the
// configuration names the new file. 1 when nothing needed doing or the move
// succeeded; 0 otherwise, with the configuration, the store and its
// companions as they were (sf_relocate_problem says why).
int sf_relocate_db();
// Why the last sf_relocate_db returned 0; "" after a success.
const char* sf_relocate_problem();

// Under the flock lock: the relay-host rewrite, then (when that succeeded)
// sf_relocate_db. The last result; 0 when the lock could not be taken.
int sf_relocate_pass();

// Points the configuration at the store file of `volume`'s
// ".@kdx/share_link_db" folder, creating the folder when missing and setting
// the volume's mode to 0777. 1, or 0 for an empty or missing volume, a
// failed folder creation or a configuration that could not be written.
int sf_set_db_location(const char* volume);

// The marker lock "/tmp/kdx_shareLink.lock". Waits up to 7 seconds for it to
// go away; then breaks it when older than 1800 seconds (0) or gives up with
// -100. 0 when it is free.
int sf_check_LockFile();
// Takes the marker lock: 0, the check's code, or -102 when it could not be
// created.
int sf_Lock();
// Removes the marker lock. Always 1.
int sf_UnLock();
// Under the marker lock: a zero-byte store file is removed; otherwise the
// links are counted. 1 only when the count failed; 0 otherwise (also when
// the lock could not be taken, the path is empty or the file is missing).
int sf_check_empty_db();

constexpr int kSfFlockOpenFailed = -2;    // the lock file could not be opened
constexpr int kSfFlockLockFailed = -3;    // flock refused the lock
constexpr int kSfFlockUnlockFailed = -2;  // flock refused the unlock (the file is closed all the same)

// The flock lock "/tmp/kdx_shareLink_flock.lock", opened write-only with
// create and `mode`, locked exclusively (blocking). The descriptor, or
// kSfFlockOpenFailed, kSfFlockLockFailed.
int sf_flock_lock(int mode);
// Unlocks and closes. 0, or kSfFlockUnlockFailed.
int sf_flock_unlock(int fd);

// Connections deliberately left open by an operation (the list update's
// failed prepare, the link delete's uncommitted modes) are parked until the
// next store operation of the process, which rolls them back and closes them.
int sf_parked_connection_count();
void sf_release_parked_connections();

// Tests read the statements the store runs: when set, the text of every
// statement executed on a store connection (as written, before parameters are
// bound) is handed to the observer. Null turns it off.
void sf_set_sql_observer(void (*observer)(const char* sql));

#endif  // SLT_SHARELINK_DB_STORE_H_
