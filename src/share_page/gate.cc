#include "share_page/gate.h"

#include <fcntl.h>
#include <sqlite3.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "paths/allowed_root.h"
#include "paths/display_path.h"
#include "platform/fs.h"
#include "platform/root.h"
#include "registry/fields.h"
#include "registry/refresh.h"
#include "share_page/cookie.h"
#include "sharelink_db/store.h"

namespace {

constexpr size_t kRealPathSize = 4097 + 545;

// A store connection that never creates the file.
class StoreConn {
 public:
  StoreConn() {
    char path[256];
    sf_get_db_path(path, sizeof path);
    if (sqlite3_open_v2(rooted_path(path).c_str(), &db_, SQLITE_OPEN_READWRITE, nullptr) !=
        SQLITE_OK) {
      sqlite3_close(db_);
      db_ = nullptr;
      return;
    }
    sqlite3_busy_timeout(db_, 10000);
    sqlite3_exec(db_, "PRAGMA cache_size=-64", nullptr, nullptr, nullptr);
  }
  ~StoreConn() { sqlite3_close(db_); }
  StoreConn(const StoreConn&) = delete;
  StoreConn& operator=(const StoreConn&) = delete;
  sqlite3* get() const { return db_; }

 private:
  sqlite3* db_ = nullptr;
};

std::string column_text(sqlite3_stmt* s, int i) {
  const unsigned char* t = sqlite3_column_text(s, i);
  return t != nullptr ? reinterpret_cast<const char*>(t) : "";
}

bool from_store(const std::string& ssid, SharedLink* link) {
  StoreConn conn;
  if (conn.get() == nullptr) return false;
  sqlite3_stmt* s = nullptr;
  if (sqlite3_prepare_v2(conn.get(),
                         "SELECT sharefile, creator, expire, accesscode, download_count,"
                         " download_limit FROM SHARELINK_EVENT WHERE pkey = ? LIMIT 1",
                         -1, &s, nullptr) != SQLITE_OK) {
    return false;
  }
  sqlite3_bind_text(s, 1, ssid.c_str(), static_cast<int>(ssid.size()), SQLITE_TRANSIENT);
  bool found = sqlite3_step(s) == SQLITE_ROW;
  if (found) {
    link->pkey = ssid;
    link->sharefile = column_text(s, 0);
    link->creator = column_text(s, 1);
    link->expire = sqlite3_column_int64(s, 2);
    link->accesscode = column_text(s, 3);
    link->download_count = sqlite3_column_int(s, 4);
    link->download_limit = sqlite3_column_int(s, 5);
  }
  sqlite3_finalize(s);
  if (!found) return false;
  if (sqlite3_prepare_v2(conn.get(), "SELECT fid, sharefile FROM SHARELINK_FID WHERE pkey = ?",
                         -1, &s, nullptr) == SQLITE_OK) {
    sqlite3_bind_text(s, 1, ssid.c_str(), static_cast<int>(ssid.size()), SQLITE_TRANSIENT);
    while (sqlite3_step(s) == SQLITE_ROW) link->fids.emplace_back(column_text(s, 0), column_text(s, 1));
    sqlite3_finalize(s);
  }
  return true;
}

bool from_registry(const std::string& ssid, SharedLink* link) {
  FILE* f = fs_fopen(kShareRegistryPath, "r");
  if (f == nullptr) return false;
  char line[2048];
  bool found = false;
  while (!found && fgets(line, sizeof line, f) != nullptr) {
    FieldReader r(line, strlen(line), '\t');
    char id[2048], path[256], expiry[64];
    if (r.get(id, sizeof id, 1) != 1 || ssid != id) continue;
    if (r.get(path, sizeof path, 5) != 1 || r.get(expiry, sizeof expiry, 7) != 1) continue;
    link->pkey = ssid;
    link->sharefile = path;
    // The registry's own reading: a 32-bit value, compared unsigned.
    link->expire = static_cast<int32_t>(strtol(expiry, nullptr, 10));
    link->from_registry = true;
    found = true;
  }
  fclose(f);
  return found;
}

bool expired(long long expire, time_t now) {
  return expire != 0 &&
         static_cast<unsigned long long>(now) > static_cast<unsigned long long>(expire);
}

// The link's own path as a real appliance path and its kind; -1 refused.
int resolve_link_path(const SharedLink& link, const std::string& display, std::string* real) {
  std::vector<char> buf(kRealPathSize);
  int kind;
  if (link.from_registry) {
    if (!fs_realpath(display.c_str(), buf.data(), buf.size())) return -1;
    if (is_allowed_real_path(buf.data(), nullptr) != 1) return -1;
    struct stat st;
    if (fs_stat(buf.data(), &st) != 0) return -1;
    kind = S_ISDIR(st.st_mode) ? kKindDirectory : S_ISREG(st.st_mode) ? kKindFile : kKindOther;
  } else {
    kind = resolve_display_path(0, display.c_str(), buf.data(), buf.size(), link.creator.c_str());
  }
  if (kind < 0) return -1;
  *real = buf.data();
  return kind;
}

std::string base_name(const std::string& path) {
  size_t end = path.find_last_not_of('/');
  if (end == std::string::npos) return path;
  size_t slash = path.rfind('/', end);
  return path.substr(slash == std::string::npos ? 0 : slash + 1,
                     end - (slash == std::string::npos ? 0 : slash + 1) + 1);
}

// A regular file by its real path; a link in its last component, a device or
// a pipe is refused (O_NONBLOCK: opening a pipe must not wait).
bool open_file(const std::string& real, GateResult* g) {
  UniqueFd fd(fs_open(real.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  if (fd.get() < 0 || fstat(fd.get(), &g->st) != 0 || !S_ISREG(g->st.st_mode)) return false;
  g->file = std::move(fd);
  g->real_path = real;
  g->name = base_name(real);
  return true;
}

bool open_target(const ShareRequest& req, GateResult* g) {
  const SharedLink& link = g->link;
  if (!req.fid.empty()) {
    if (!req.path.empty()) return false;
    for (const auto& f : link.fids) {
      if (f.first != req.fid) continue;
      std::string real;
      if (resolve_link_path(link, f.second, &real) != kKindFile) return false;
      return open_file(real, g);
    }
    return false;
  }
  if (!link.fids.empty() && req.path.empty()) {
    g->multi = true;
    g->name = link.sharefile.empty() ? link.pkey : base_name(link.sharefile);
    return true;
  }
  std::string real;
  int kind = resolve_link_path(link, link.sharefile, &real);
  if (kind == kKindFile) return req.path.empty() && open_file(real, g);
  if (kind != kKindDirectory) return false;
  UniqueFd folder(fs_open_dir(real.c_str()));
  if (folder.get() < 0) return false;
  if (req.path.empty()) {
    if (fstat(folder.get(), &g->st) != 0) return false;
    g->folder = std::move(folder);
    g->is_folder = true;
    g->real_path = real;
    g->name = base_name(real);
    return true;
  }
  UniqueFd fd(fs_open_beneath(folder.get(), req.path.c_str(), O_RDONLY | O_NONBLOCK));
  if (fd.get() < 0 || fstat(fd.get(), &g->st) != 0) return false;
  g->real_path = real + "/" + req.path;
  g->name = base_name(req.path);
  if (S_ISDIR(g->st.st_mode)) {
    g->folder = std::move(fd);
    g->is_folder = true;
    return true;
  }
  if (!S_ISREG(g->st.st_mode)) return false;
  g->file = std::move(fd);
  return true;
}

}  // namespace

std::string share_item(const ShareRequest& req) {
  if (!req.fid.empty()) return "fid:" + req.fid;
  if (!req.path.empty()) return "path:" + req.path;
  return std::string();
}

bool find_shared_link(const std::string& ssid, SharedLink* link) {
  if (ssid.empty()) return false;
  return from_store(ssid, link) || from_registry(ssid, link);
}

GateResult share_gate(const ShareRequest& req, const GateContext& ctx) {
  GateResult g;
  if (!find_shared_link(req.ssid, &g.link)) return g;
  g.link_found = true;
  if (expired(g.link.expire, ctx.now)) {
    g.outcome = GateOutcome::kExpired;
    return g;
  }
  if (!g.link.accesscode.empty()) {
    std::string cookie = cookie_value(req.cookies, share_cookie_name(g.link.pkey));
    g.cookie_valid = !cookie.empty() && !ctx.secret.empty() &&
                     share_cookie_valid(ctx.secret, g.link.pkey, g.link.accesscode, cookie, ctx.now);
    if (!g.cookie_valid && !ctx.code_ok) {
      g.outcome = GateOutcome::kNeedsCode;
      return g;
    }
  }
  if (g.link.download_limit > 0 && g.link.download_count >= g.link.download_limit &&
      !ctx.limit_exempt) {
    g.outcome = GateOutcome::kLimitReached;
    return g;
  }
  if (req.path_bad || !open_target(req, &g)) {
    g.outcome = GateOutcome::kNotFound;
    return g;
  }
  g.outcome = GateOutcome::kOpen;
  return g;
}

bool count_download(const std::string& pkey) {
  StoreConn conn;
  if (conn.get() == nullptr) return false;
  if (sqlite3_exec(conn.get(), "BEGIN IMMEDIATE", nullptr, nullptr, nullptr) != SQLITE_OK) {
    return false;
  }
  sqlite3_stmt* s = nullptr;
  bool changed = false;
  if (sqlite3_prepare_v2(conn.get(),
                         "UPDATE SHARELINK_EVENT SET download_count = COALESCE(download_count,0)+1"
                         " WHERE pkey = ? AND (COALESCE(download_limit,0) <= 0"
                         " OR COALESCE(download_count,0) < download_limit)",
                         -1, &s, nullptr) == SQLITE_OK) {
    sqlite3_bind_text(s, 1, pkey.c_str(), static_cast<int>(pkey.size()), SQLITE_TRANSIENT);
    changed = sqlite3_step(s) == SQLITE_DONE && sqlite3_changes(conn.get()) > 0;
    sqlite3_finalize(s);
  }
  if (sqlite3_exec(conn.get(), "COMMIT", nullptr, nullptr, nullptr) != SQLITE_OK) {
    sqlite3_exec(conn.get(), "ROLLBACK", nullptr, nullptr, nullptr);
    return false;
  }
  return changed;
}
