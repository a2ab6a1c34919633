#include "platform/fs_beneath.h"

#include <fcntl.h>
#include <linux/openat2.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "platform/os.h"
#include "platform/root.h"

void UniqueFd::reset(int fd) {
  if (fd_ >= 0) os.close(fd_);
  fd_ = fd;
}

int fs_open_dir(const char* path) {
  return os.open(rooted_path(path).c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC, 0);
}

int fs_link(const char* from, const char* to) {
  return ::link(rooted_path(from).c_str(), rooted_path(to).c_str());
}

namespace {

// Component by component; every step refuses a symbolic link, so nothing
// swapped in between two opens can lead out.
int walk_beneath(int dirfd, const std::string& rel, int flags) {
  UniqueFd cur;
  int at = dirfd;
  size_t pos = 0;
  while (true) {
    size_t slash = rel.find('/', pos);
    std::string part = rel.substr(pos, slash == std::string::npos ? std::string::npos : slash - pos);
    bool last = slash == std::string::npos || rel.find_first_not_of('/', slash) == std::string::npos;
    if (part == "..") {
      errno = EXDEV;
      return -1;
    }
    if (last) {
      if (part.empty() || part == ".") part = ".";
      return os.openat(at, part.c_str(), flags | O_NOFOLLOW | O_CLOEXEC, 0);
    }
    if (!part.empty() && part != ".") {
      int fd = os.openat(at, part.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC, 0);
      if (fd < 0) return -1;
      cur.reset(fd);
      at = fd;
    }
    pos = rel.find_first_not_of('/', slash);
  }
}

}  // namespace

int fs_open_beneath(int dirfd, const char* rel, int flags) {
  if (rel == nullptr || rel[0] == '/') {
    errno = EXDEV;
    return -1;
  }
  std::string path(rel[0] == '\0' ? "." : rel);
  // ".." is refused even where it would stay inside: no caller needs it.
  for (size_t pos = 0; pos <= path.size();) {
    size_t slash = path.find('/', pos);
    if (slash == std::string::npos) slash = path.size();
    if (path.compare(pos, slash - pos, "..") == 0 && slash - pos == 2) {
      errno = EXDEV;
      return -1;
    }
    pos = slash + 1;
  }
  open_how how{};
  how.flags = static_cast<unsigned long long>(flags | O_CLOEXEC);
  how.resolve = RESOLVE_BENEATH | RESOLVE_NO_MAGICLINKS;
  long fd = os.openat2(dirfd, path.c_str(), &how, sizeof how);
  if (fd >= 0) return static_cast<int>(fd);
  // Older kernels, or a sandbox that hides the call.
  if (errno != ENOSYS && errno != EPERM) return -1;
  return walk_beneath(dirfd, path, flags);
}
