#include "sharelink_db/clean_pass.h"

#include <sqlite3.h>
#include <sys/stat.h>

#include <cstdio>
#include <cstring>
#include <new>
#include <string>
#include <vector>

#include "diag/app_log.h"
#include "paths/display_path.h"
#include "platform/fs.h"
#include "platform/os.h"
#include "sharelink_db/acx_rows.h"
#include "sharelink_db/cleanup.h"
#include "sharelink_db/event_rows.h"
#include "sharelink_db/result_codes.h"
#include "sharelink_db/store.h"
#include "sharelink_db/store_internal.h"
#include "sharelink_db/user_rows.h"

const char kCleanFlagPath[] = "/tmp/.kdx_sf_clean_flag";

namespace {

constexpr long kCleanInterval = 61;

// What the pass needs of one sync-service owner's link.
struct OwnedLink {
  std::string pkey;
  std::string user;  // the creator after "Mirra:"
  std::string sharefile;
};

constexpr size_t kLinksPerBatch = 400;

// The flag beside the store, for when the one in /tmp cannot be written.
std::string store_flag_path() {
  char path[256];
  sf_get_db_path(path, sizeof path);
  return std::string(path) + ".clean_flag";
}

// A pass ran less than a minute ago (and not in the future).
bool ran_recently(const char* flag, time_t now) {
  struct stat st;
  if (fs_stat(flag, &st) != 0) return false;
  return now >= st.st_mtime && now - st.st_mtime < kCleanInterval;
}

bool touch_flag(const char* flag) {
  FILE* f = fs_fopen(flag, "w");
  if (f == nullptr) return false;
  return os.fclose(f) == 0;
}

// Deletes the links of `keys` with their file, access and recipient rows, a
// few hundred links a transaction (one fsync each, not one a link). A batch
// that fails is rolled back whole and the pass goes on with the next.
void delete_links(const std::vector<std::string>& keys) {
  sf_internal::DbGuard db;
  if (sf_internal::open_store(&db, true) != 0) return;
  for (size_t first = 0; first < keys.size(); first += kLinksPerBatch) {
    std::string list;
    for (size_t i = first; i < keys.size() && i < first + kLinksPerBatch; ++i) {
      sf_internal::SqlText quoted(sqlite3_mprintf("%Q", keys[i].c_str()));
      if (quoted.get() == nullptr) return;
      if (!list.empty()) list += ", ";
      list += quoted.get();
    }
    sf_internal::Transaction txn(db.get());
    if (!txn.begun()) return;
    std::string event = "DELETE FROM SHARELINK_EVENT WHERE pkey IN (" + list + ");";
    std::string fid = "DELETE FROM SHARELINK_FID WHERE pkey IN (" + list + ");";
    if (!sf_internal::exec(db.get(), event.c_str()) || !sf_internal::exec(db.get(), fid.c_str())) {
      continue;
    }
    // A store without these tables (access rows are optional) still loses
    // the links: their failures do not undo the batch.
    sf_internal::exec(db.get(), ("DELETE FROM SHARELINK_ACX WHERE pkey IN (" + list + ");").c_str());
    sf_internal::exec(db.get(), ("DELETE FROM SHARELINK_USER WHERE pkey IN (" + list + ");").c_str());
    txn.commit();
  }
}

// Reads key, owner and path of every link whose creator holds the sync
// prefix, in key order, with the values bounded as the full record's
// buffers bound them. Returns 0 or a store code.
int read_owned_links(const char* prefix, std::vector<OwnedLink>* out) {
  sf_internal::DbGuard db;
  if (sf_internal::open_store(&db, true) != 0) return kSfOpenFailed;
  // instr() is case-sensitive, as the byte search of the prefix is.
  char sql[256];
  sqlite3_snprintf(sizeof sql, sql,
                   "SELECT pkey, creator, sharefile FROM SHARELINK_EVENT "
                   "WHERE instr(creator, %Q) > 0 ORDER BY pkey;",
                   prefix);
  sf_internal::StmtGuard guard;
  int rc = sqlite3_prepare_v2(db.get(), sql, -1, guard.out(), nullptr);
  sqlite3_stmt* stmt = guard.get();
  int result = 0;
  if (rc != SQLITE_OK) {
    result = kSfQueryFailed;
  } else {
    size_t prefix_len = strlen(prefix);
    char pkey[41], creator[65], sharefile[4097];
    while ((rc = sqlite3_step(stmt)) == SQLITE_ROW) {
      const unsigned char* k = sqlite3_column_text(stmt, 0);
      const unsigned char* c = sqlite3_column_text(stmt, 1);
      const unsigned char* s = sqlite3_column_text(stmt, 2);
      // The same defaults and truncation as the row readers apply.
      snprintf(pkey, sizeof pkey, "%s", k ? reinterpret_cast<const char*>(k) : "----");
      snprintf(creator, sizeof creator, "%s", c ? reinterpret_cast<const char*>(c) : "UNKNOWN");
      snprintf(sharefile, sizeof sharefile, "%s", s ? reinterpret_cast<const char*>(s) : "----");
      const char* at = strstr(creator, prefix);
      if (at == nullptr) continue;  // the prefix lay beyond the record's bound
      try {
        out->push_back(OwnedLink{pkey, at + prefix_len, sharefile});
      } catch (const std::bad_alloc&) {
        result = -1;
        break;
      }
    }
    if (result == 0 && rc != SQLITE_DONE) result = kSfQueryFailed;
  }
  return result;
}

}  // namespace

int sf_clean_sharelink() {
  time_t now = os.time(nullptr);
  std::string beside = store_flag_path();
  if (ran_recently(kCleanFlagPath, now) || ran_recently(beside.c_str(), now)) return 0;
  if (!touch_flag(kCleanFlagPath) && !touch_flag(beside.c_str())) {
    // Without a flag every listing would run a full pass: skip it instead.
    APP_LOG("share-link clean-up skipped: neither %s nor %s can be written\n", kCleanFlagPath,
            beside.c_str());
    return 0;
  }

  if (sf_event_count() <= 0) return 0;

  char prefix[16];
  snprintf(prefix, sizeof prefix, "%s:", "Mirra");
  std::vector<OwnedLink> links;
  int rc = read_owned_links(prefix, &links);
  if (rc != 0) return rc;

  // The deletes run only after the read has closed its connection: a delete
  // inside the read would wait on the reader's own lock.
  std::vector<char> real(4097);
  std::vector<std::string> vanished;
  for (const OwnedLink& link : links) {
    real[0] = '\0';
    if (resolve_display_path(0, link.sharefile.c_str(), real.data(), real.size(),
                             link.user.c_str()) != -1) {
      continue;
    }
    try {
      vanished.push_back(link.pkey);
    } catch (const std::bad_alloc&) {
      break;
    }
  }
  delete_links(vanished);
  return 0;
}
