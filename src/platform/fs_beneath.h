// Opening files inside a folder without ever leaving it: the share page
// serves what lies beneath a shared folder, and a symbolic link or a folder
// swapped for one between a check and the open must not lead elsewhere.
#ifndef SLT_PLATFORM_FS_BENEATH_H_
#define SLT_PLATFORM_FS_BENEATH_H_

#include <sys/types.h>

// Opens the appliance path `path` as a folder (read-only, close-on-exec; its
// last component must not be a symbolic link). A descriptor or -1 with errno.
int fs_open_dir(const char* path);

// Opens `rel`, a relative path, beneath the open folder dirfd with `flags`
// (O_CLOEXEC is added). openat2 with RESOLVE_BENEATH where the kernel has it
// (links that stay inside are followed); otherwise a walk of openat calls
// with O_NOFOLLOW on every component (no link is followed at all). An
// absolute path or a ".." component is refused with EXDEV. A descriptor, or
// -1 with errno.
int fs_open_beneath(int dirfd, const char* rel, int flags);

// Links appliance path `to` to the existing file `from` (link(2)). 0 or -1.
int fs_link(const char* from, const char* to);

// Closes a descriptor on every way out of a scope.
class UniqueFd {
 public:
  explicit UniqueFd(int fd = -1) : fd_(fd) {}
  ~UniqueFd() { reset(); }
  UniqueFd(UniqueFd&& other) noexcept : fd_(other.release()) {}
  UniqueFd& operator=(UniqueFd&& other) noexcept {
    if (this != &other) reset(other.release());
    return *this;
  }
  UniqueFd(const UniqueFd&) = delete;
  UniqueFd& operator=(const UniqueFd&) = delete;
  int get() const { return fd_; }
  int release() {
    int fd = fd_;
    fd_ = -1;
    return fd;
  }
  void reset(int fd = -1);

 private:
  int fd_;
};

#endif  // SLT_PLATFORM_FS_BENEATH_H_
