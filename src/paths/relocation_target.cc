#include "paths/relocation_target.h"

#include <cstring>
#include <string>

#include "paths/display_path.h"
#include "platform/fs.h"

bool relocation_folder_allowed(const char* folder) {
  if (folder == nullptr || folder[0] != '/' || !display_path_is_clean(folder)) return false;
  if (!fs_is_dir(folder)) return false;
  char canonical[4096];
  if (!fs_realpath(folder, canonical, sizeof canonical)) return false;
  // A symbolic link anywhere on the way makes the canonical form differ.
  if (strcmp(canonical, folder) != 0) return false;
  return strcmp(canonical, "/etc/config") == 0 ||
         (strncmp(canonical, "/share/", 7) == 0 && canonical[7] != '\0');
}

bool relocation_target_allowed(const char* path) {
  if (path == nullptr || path[0] != '/' || !display_path_is_clean(path)) return false;
  const char* slash = strrchr(path, '/');
  if (slash[1] == '\0') return false;  // names a folder, not a file
  std::string folder(path, slash == path ? 1 : static_cast<size_t>(slash - path));
  return relocation_folder_allowed(folder.c_str());
}
