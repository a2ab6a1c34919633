#include "platform/run_scope.h"

#include <sys/stat.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <map>

#include "platform/os.h"
#include "platform/profile.h"

namespace {

bool g_active = false;

// Folder (file-system path, as asked for) -> its canonical form.
std::map<std::string, std::string>& folders() {
  static std::map<std::string, std::string> known;
  return known;
}

void reset() {
  folders().clear();
  profile_cache_clear();
}

}  // namespace

RunScope::RunScope() {
  reset();
  g_active = true;
}

RunScope::~RunScope() {
  g_active = false;
  reset();
}

bool run_scope_active() { return g_active; }

char* run_scope_realpath(const std::string& path) {
  size_t slash = path.rfind('/');
  if (!g_active || path.empty() || path[0] != '/' || slash == 0 || slash == std::string::npos) {
    return realpath(path.c_str(), nullptr);
  }
  const std::string folder = path.substr(0, slash);
  const std::string name = path.substr(slash + 1);
  // Names that are not a plain entry of the folder take the full walk.
  if (name.empty() || name == "." || name == "..") return realpath(path.c_str(), nullptr);

  auto it = folders().find(folder);
  if (it == folders().end()) {
    char* canonical = realpath(folder.c_str(), nullptr);
    if (canonical == nullptr) return nullptr;  // the path cannot resolve either
    it = folders().emplace(folder, canonical).first;
    free(canonical);
  }
  std::string full = it->second == "/" ? "/" + name : it->second + "/" + name;
  if (full.size() >= PATH_MAX) return realpath(path.c_str(), nullptr);
  struct stat st;
  if (os.lstat(full.c_str(), &st) != 0) return nullptr;
  if (S_ISLNK(st.st_mode)) return realpath(path.c_str(), nullptr);
  char* copy = strdup(full.c_str());
  if (copy == nullptr) errno = ENOMEM;
  return copy;
}
