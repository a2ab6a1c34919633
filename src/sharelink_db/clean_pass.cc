#include "sharelink_db/clean_pass.h"

#include <sqlite3.h>
#include <sys/stat.h>

#include <cstdio>
#include <cstring>
#include <new>
#include <string>
#include <vector>

#include "paths/display_path.h"
#include "platform/fs.h"
#include "platform/os.h"
#include "sharelink_db/acx_rows.h"
#include "sharelink_db/cleanup.h"
#include "sharelink_db/event_rows.h"
#include "sharelink_db/result_codes.h"
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

// A pass ran less than a minute ago (and not in the future).
bool ran_recently(time_t now) {
  struct stat st;
  if (fs_stat(kCleanFlagPath, &st) != 0) return false;
  return now >= st.st_mtime && now - st.st_mtime < kCleanInterval;
}

void touch_flag() {
  FILE* f = fs_fopen(kCleanFlagPath, "w");
  if (f != nullptr) os.fclose(f);
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
  if (ran_recently(now)) return 0;
  touch_flag();

  if (sf_event_count() <= 0) return 0;

  char prefix[16];
  snprintf(prefix, sizeof prefix, "%s:", "Mirra");
  std::vector<OwnedLink> links;
  int rc = read_owned_links(prefix, &links);
  if (rc != 0) return rc;

  // The deletes run only after the read has closed its connection: a delete
  // inside the read would wait on the reader's own lock.
  std::vector<char> real(4097);
  for (const OwnedLink& link : links) {
    real[0] = '\0';
    if (resolve_display_path(0, link.sharefile.c_str(), real.data(), real.size(),
                             link.user.c_str()) != -1) {
      continue;
    }
    if (sf_delete_link(0, link.pkey.c_str()) == 0) {
      sf_acx_delete_by_field(0, link.pkey.c_str());
      sf_user_delete_by_field(0, link.pkey.c_str());
    }
  }
  return 0;
}
