#include "registry/registry_lock.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>

#include <cerrno>
#include <cstring>

#include "platform/fs.h"
#include "platform/os.h"

namespace {

constexpr char kTempSuffix[] = ".tmp";
constexpr size_t kUniqueLen = 6;  // the "XXXXXX" vexa_mktmpname fills

// True when `name` (a folder entry) is a temporary file or the ".del" file
// of the registry whose base name is `base`.
bool is_leftover(const char* name, const std::string& base) {
  if (strncmp(name, base.c_str(), base.size()) != 0) return false;
  const char* rest = name + base.size();
  if (strcmp(rest, ".del") == 0) return true;
  const size_t suffix = sizeof kTempSuffix - 1;
  return strncmp(rest, kTempSuffix, suffix) == 0 && strlen(rest + suffix) == kUniqueLen;
}

}  // namespace

std::string registry_temp_template(const char* registry) {
  return std::string(registry) + kTempSuffix + "XXXXXX";
}
std::string registry_del_path(const char* registry) { return std::string(registry) + ".del"; }
std::string registry_lock_path(const char* registry) { return std::string(registry) + ".lock"; }

RegistryLock::RegistryLock(const char* registry) {
  int fd = fs_open(registry_lock_path(registry).c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666);
  if (fd < 0) return;
  int r;
  do {
    r = os.flock(fd, LOCK_EX);
  } while (r != 0 && errno == EINTR);
  if (r != 0) {
    os.close(fd);
    return;
  }
  fd_ = fd;
  remove_registry_leftovers(registry);
}

RegistryLock::~RegistryLock() {
  // Closing the descriptor releases the lock.
  if (fd_ >= 0) os.close(fd_);
}

int remove_registry_leftovers(const char* registry) {
  std::string path(registry);
  size_t slash = path.rfind('/');
  if (slash == std::string::npos) return 0;
  const std::string folder = slash == 0 ? "/" : path.substr(0, slash);
  const std::string base = path.substr(slash + 1);
  DIR* dir = fs_opendir(folder.c_str());
  if (dir == nullptr) return 0;
  int removed = 0;
  while (dirent* entry = readdir(dir)) {
    if (!is_leftover(entry->d_name, base)) continue;
    std::string leftover = folder + (slash == 0 ? "" : "/") + entry->d_name;
    if (remove_file(leftover.c_str()) == 0) ++removed;
  }
  closedir(dir);
  return removed;
}
