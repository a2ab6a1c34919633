#include "paths/relocation_target.h"

#include <cstring>
#include <string>
#include <vector>

#include "paths/display_path.h"
#include "platform/fs.h"
#include "platform/profile.h"

namespace {

const char kShareConf[] = "/etc/config/smb.conf";

// Absolute, clean, an existing folder, and no symbolic link on the way (a
// link anywhere makes the canonical form differ).
bool canonical_folder(const char* folder) {
  if (folder == nullptr || folder[0] != '/' || !display_path_is_clean(folder)) return false;
  if (!fs_is_dir(folder)) return false;
  char canonical[4096];
  if (!fs_realpath(folder, canonical, sizeof canonical)) return false;
  return strcmp(canonical, folder) == 0;
}

bool under_share_root(const char* path) { return strncmp(path, "/share/", 7) == 0 && path[7] != '\0'; }

// A component below "/share/" that begins ".@": the appliance's own folders.
bool has_system_component(const char* path) {
  for (const char* p = path + 7; p != nullptr; p = strchr(p, '/')) {
    if (*p == '/') ++p;
    if (p[0] == '.' && p[1] == '@') return true;
  }
  return false;
}

bool at_or_under(const std::string& path, const std::string& folder) {
  if (folder == "/") return true;
  return path.compare(0, folder.size(), folder) == 0 &&
         (path.size() == folder.size() || path[folder.size()] == '/');
}

// The folders the shares serve, canonical where they resolve. False when the
// share configuration exists but cannot be read.
bool share_folders(std::vector<std::string>* out) {
  std::vector<std::string> paths;
  if (Get_Private_Profile_Values("path", &paths, kShareConf) != 0) return !fs_exists(kShareConf);
  for (std::string p : paths) {
    size_t macro = p.find('%');
    if (macro != std::string::npos) {
      // A per-user folder ("%U", "%H"): the folder that holds them all is shared;
      // when nothing absolute is left, every folder counts as shared.
      p.erase(macro);
      size_t slash = p.rfind('/');
      p.erase(slash == std::string::npos ? 0 : slash);
      if (p.empty() || p[0] != '/') p = "/";
    }
    if (p.empty() || p[0] != '/') continue;  // no folder (the fallback name of an empty path)
    while (p.size() > 1 && p.back() == '/') p.pop_back();
    char canonical[4096];
    out->push_back(fs_realpath(p.c_str(), canonical, sizeof canonical) ? canonical : p);
  }
  return true;
}

}  // namespace

bool relocation_folder_allowed(const char* folder) {
  if (!canonical_folder(folder)) return false;
  if (strcmp(folder, "/etc/config") == 0) return true;
  if (!under_share_root(folder) || !has_system_component(folder)) return false;
  std::vector<std::string> shares;
  if (!share_folders(&shares)) return false;
  for (const std::string& share : shares) {
    if (at_or_under(folder, share)) return false;
  }
  return true;
}

bool relocation_target_allowed(const char* path) {
  if (path == nullptr || path[0] != '/' || !display_path_is_clean(path)) return false;
  const char* slash = strrchr(path, '/');
  if (slash[1] == '\0') return false;  // names a folder, not a file
  std::string folder(path, slash == path ? 1 : static_cast<size_t>(slash - path));
  return relocation_folder_allowed(folder.c_str());
}

bool relocation_volume_allowed(const char* volume) {
  return canonical_folder(volume) && under_share_root(volume);
}
