#include "weblib/db_handler.h"

#include <libgen.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "paths/relocation_target.h"
#include "platform/exec.h"
#include "platform/fs.h"
#include "platform/profile.h"
#include "sharelink_db/event_rows.h"
#include "sharelink_db/store.h"
#include "weblib/json_reply.h"

namespace {

constexpr char kSection[] = "Depot";
constexpr char kKey[] = "Share_Link_Db";
constexpr char kDbFolder[] = ".@kdx/share_link_db";
constexpr char kDbFile[] = "share_link.db";
constexpr size_t kPathSize = 512;
// The store reads its path into 256 bytes: a longer one would be cut there.
constexpr size_t kStorePathSize = 256;

// "force_delete" counts only as a whole base-10 number equal to 1 ("01" and
// "+1" do, "1x" and "yes" do not).
bool force_delete_set(const char* value) {
  if (value == nullptr || value[0] == '\0') return false;
  errno = 0;
  char* end = nullptr;
  long v = strtol(value, &end, 10);
  return errno == 0 && end != value && *end == '\0' && v == 1;
}

// A path the configuration file can carry on one line.
bool has_control_bytes(const char* text) {
  for (const unsigned char* p = reinterpret_cast<const unsigned char*>(text); *p; ++p) {
    if (*p < 0x20 || *p == 0x7f) return true;
  }
  return false;
}

void open_up(const char* path) {
  struct stat st;
  if (fs_stat(path, &st) != 0) return;
  if ((st.st_mode & S_IWOTH) == 0) fs_chmod(path, (st.st_mode & 07777) | 0777);
}

}  // namespace

int sf_create_all_tables() {
  return sf_create_event_table() + sf_create_fid_table() + sf_create_acx_table() +
         sf_create_user_table();
}

int sf_set_db_handler(const CgiRequest* request) {
  const char* user = cgi_env("REMOTE_USER");
  if (user != nullptr && user[0] != '\0' && strcmp(user, "admin") != 0) {
    print_status(kDbStatusNotAdmin);
    return -1;
  }
  bool force = force_delete_set(CGI_Find_Parameter(request, "force_delete"));
  const char* path = CGI_Find_Parameter(request, "share_link_db");
  if (path == nullptr || path[0] == '\0') {
    print_status(kDbStatusBadPath);
    return 0;
  }
  if (path[0] != '/' || has_control_bytes(path)) {
    print_status(kDbStatusBadPath);
    return -1;
  }
  char copy[kStorePathSize];
  if (static_cast<size_t>(snprintf(copy, sizeof copy, "%s", path)) >= sizeof copy) {
    print_status(kDbStatusNoFolder);
    return -1;
  }
  const char* folder = dirname(copy);
  if (folder == nullptr) {
    print_status(kDbStatusNoFolder);
    return -1;
  }
  if (!fs_is_dir(folder)) {
    print_status(kDbStatusBadPath);
    return -1;
  }
  // The file is created, or removed with force_delete, only inside the
  // configuration folder or a volume, never through a link or "..".
  if (!relocation_target_allowed(path)) {
    print_status(kDbStatusBadPath);
    return -1;
  }
  // The tables are made through the configured path, so it changes first
  // and stays changed when the file then proves unusable.
  if (Set_Private_Profile_String(kSection, kKey, path, kSystemConfigPath) != 0) {
    print_status(kDbStatusUnusable);
    return -1;
  }
  int outcome;
  if (!fs_exists(path)) {
    outcome = sf_create_all_tables();
  } else if (force) {
    if (remove_file(path) != 0) fs_unlink(path);
    outcome = sf_create_all_tables();
  } else {
    int count = sf_event_count();
    outcome = count < 0 ? count : 0;
  }
  print_status(outcome < 0 ? kDbStatusUnusable : kDbStatusSet);
  return 0;
}

int sf_fix_db_permissions() {
  char path[kPathSize];
  Get_Profile_String(kSection, kKey, "", path, sizeof path);
  if (path[0] == '\0' || !fs_exists(path)) return 0;
  char copy[kPathSize];
  snprintf(copy, sizeof copy, "%s", path);
  open_up(dirname(copy));
  open_up(path);
  return 1;
}

int sf_set_db_volume(const char* volume) {
  if (volume == nullptr || strlen(volume) <= 1) return 0;
  char folder[kPathSize];
  char file[kPathSize];
  int n = snprintf(folder, sizeof folder, "%s/%s", volume, kDbFolder);
  if (n < 0 || static_cast<size_t>(n) >= sizeof folder) return -1;
  n = snprintf(file, sizeof file, "%s/%s/%s", volume, kDbFolder, kDbFile);
  if (n < 0 || static_cast<size_t>(n) >= sizeof file) return -1;
  const char* const argv[] = {"/bin/mkdir", "-p", folder, nullptr};
  if (_hs_secure_execv("/bin/mkdir", argv, nullptr) != 0 && !fs_is_dir(folder)) return -1;
  fs_chmod(folder, 0777);
  return Set_Profile_String(kSection, kKey, file) == 0 ? 1 : -1;
}
