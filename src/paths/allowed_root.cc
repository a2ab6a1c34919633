#include "paths/allowed_root.h"

#include <sys/stat.h>

#include <cstring>

#include "platform/facts.h"
#include "platform/fs.h"

namespace {

bool has_parent_component(const char* path) {
  for (const char* p = path; (p = strstr(p, "..")) != nullptr; p += 2) {
    bool starts = p == path || p[-1] == '/';
    bool ends = p[2] == '\0' || p[2] == '/';
    if (starts && ends) return true;
  }
  return false;
}

int allowed_mount_path(const char* path) {
  // Mount paths are compared as texts, so a ".." could walk out of them.
  if (has_parent_component(path)) return 0;
  if (strncmp(path, "/mnt/survix_recordings", 22) == 0) return 1;
  if (!NAS_Snapshot_Is_Unified_Export_Enabled()) return 0;
  char exported[4096] = "";
  char vault[4096] = "";
  if (NAS_Snapshot_Get_Unified_Export_Path(exported, sizeof exported) != 0) exported[0] = '\0';
  if (NAS_Snapshot_Get_Unified_Export_Vault_Path(vault, sizeof vault) != 0) vault[0] = '\0';
  size_t n = strlen(exported);
  if (n == 0) return 0;
  // Both roots are compared over the export path's length, as the web layer does.
  return strncmp(path, exported, n) == 0 || strncmp(path, vault, n) == 0 ? 1 : 0;
}

}  // namespace

int is_allowed_real_path(const char* path, const char* base) {
  if (path == nullptr || path[0] != '/') return 0;
  if (strncmp(path, "/mnt/", 5) == 0) return allowed_mount_path(path);

  char canonical[4096];
  if (!fs_realpath(path, canonical, sizeof canonical)) {
    // Nothing there yet is allowed (looking at it fails later); something
    // there that has no canonical form under the root has left it.
    struct stat st;
    return fs_lstat(path, &st) != 0 ? 1 : 0;
  }
  if (strncmp(canonical, "/mnt/snapshot/", 14) == 0) return 1;
  if (strncmp(canonical, "/share/", 7) != 0) return 0;
  if (base == nullptr) return 1;
  char base_canonical[4096];
  const char* b = fs_realpath(base, base_canonical, sizeof base_canonical) ? base_canonical : base;
  return strncmp(b, canonical, strlen(canonical)) != 0 ? 1 : 0;
}
