#include "paths/remote_folder.h"

#include <sys/stat.h>

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "diag/app_log.h"
#include "paths/display_path.h"
#include "platform/fs.h"
#include "platform/facts.h"

namespace {

// Copies the next token of *cursor delimited by "@" or "/" (empty tokens are
// skipped) into out, at most size - 1 bytes; advances the cursor.
void next_token(const char** cursor, char* out, size_t size) {
  const char* p = *cursor + strspn(*cursor, "@/");
  size_t n = strcspn(p, "@/");
  size_t w = n < size - 1 ? n : size - 1;
  memcpy(out, p, w);
  out[w] = '\0';
  *cursor = p + n;
}

// True when `real` lies at or under the mount point `local`, both compared
// in canonical form, so a symbolic link out of the folder is refused. A
// path with nothing there passes (looking at it fails later anyway); a
// dangling link does not.
bool under_mount_point(const char* local, const char* real) {
  char mount[4096];
  char canonical[4096];
  if (!fs_realpath(local, mount, sizeof mount)) return false;
  if (!fs_realpath(real, canonical, sizeof canonical)) {
    struct stat st;
    return fs_lstat(real, &st) != 0;
  }
  size_t n = strlen(mount);
  if (n == 1) return true;  // mounted at "/"
  return strncmp(canonical, mount, n) == 0 && (canonical[n] == '\0' || canonical[n] == '/');
}

}  // namespace

int kdx_Get_RemoteFolder_Path(const char* path, char* out, size_t out_size) {
  if (path == nullptr || strlen(path) < 9 || !display_path_is_clean(path)) return -1;
  const char* rest = path + 1;
  int id = 0;
  char name[64] = "";
  if (strncmp(rest, "remote:", 7) == 0) {
    const char* cursor = rest + 7;
    char digits[11];
    next_token(&cursor, digits, sizeof digits);
    long long value = strtoll(digits, nullptr, 10);
    if (value > INT_MAX) value = INT_MAX;
    if (value < INT_MIN) value = INT_MIN;
    id = static_cast<int>(value);
    next_token(&cursor, name, sizeof name);
  }
  char* local = nullptr;
  int ret = Remote_Folder_Get_Local(id, name, &local);
  std::unique_ptr<char, decltype(&free)> hold(local, &free);
  if (file_manager_verbosity() == 10) APP_LOG("ret=%d, Get_Local, aURI=%s\n", ret, path);
  if (ret == 0 && local != nullptr && local[0] != '\0' && out != nullptr && out_size > 0) {
    const char* tail = strchr(rest, '/');
    snprintf(out, out_size, "%s%s", local, tail != nullptr ? tail : "");
    if (!under_mount_point(local, out)) {
      out[0] = '\0';
      return -1;
    }
  }
  return ret;
}
