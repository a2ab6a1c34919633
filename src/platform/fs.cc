#include "platform/fs.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/inotify.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <string>

#include "platform/fs_beneath.h"
#include "platform/os.h"
#include "platform/root.h"
#include "platform/run_scope.h"

int fs_open(const char* path, int flags, mode_t mode) {
  return os.open(rooted_path(path).c_str(), flags, mode);
}

FILE* fs_fopen(const char* path, const char* mode) {
  return os.fopen(rooted_path(path).c_str(), mode);
}

int fs_stat(const char* path, struct stat* st) { return os.stat(rooted_path(path).c_str(), st); }

int fs_lstat(const char* path, struct stat* st) {
  return os.lstat(rooted_path(path).c_str(), st);
}

bool fs_exists(const char* path) {
  struct stat st;
  return fs_stat(path, &st) == 0;
}

bool fs_is_dir(const char* path) {
  struct stat st;
  return fs_stat(path, &st) == 0 && S_ISDIR(st.st_mode);
}

int fs_mkdir(const char* path, mode_t mode) { return os.mkdir(rooted_path(path).c_str(), mode); }

int fs_unlink(const char* path) { return os.unlink(rooted_path(path).c_str()); }

int fs_rename(const char* from, const char* to) {
  return os.rename(rooted_path(from).c_str(), rooted_path(to).c_str());
}

int fs_chmod(const char* path, mode_t mode) { return ::chmod(rooted_path(path).c_str(), mode); }

int fs_chown(const char* path, uid_t owner, gid_t group) {
  return ::chown(rooted_path(path).c_str(), owner, group);
}

DIR* fs_opendir(const char* path) { return ::opendir(rooted_path(path).c_str()); }

bool fs_realpath(const char* path, char* out, size_t size) {
  if (path == nullptr || out == nullptr || size == 0) return false;
  char* real = run_scope_realpath(rooted_path(path));
  if (real == nullptr) return false;
  bool ok = unrooted_path(real, out, size);
  free(real);
  return ok;
}

int fs_sync_stream(FILE* f) {
  if (f == nullptr) return -1;
  if (fflush(f) != 0) return -1;
  return os.fsync(fileno(f)) == 0 ? 0 : -1;
}

int fs_sync_parent_dir(const char* path) {
  std::string dir = rooted_path(path);
  size_t slash = dir.rfind('/');
  if (slash == std::string::npos) {
    dir = ".";
  } else if (slash == 0) {
    dir = "/";
  } else {
    dir.resize(slash);
  }
  int fd = os.open(dir.c_str(), O_RDONLY | O_DIRECTORY, 0);
  if (fd < 0) return -1;
  int r = os.fsync(fd);
  os.close(fd);
  return r == 0 ? 0 : -1;
}

void fs_widen_pipe(int fd, int bytes) { fcntl(fd, F_SETPIPE_SZ, bytes); }

bool fs_set_nonblocking(int fd) {
  const int flags = fcntl(fd, F_GETFL);
  return flags >= 0 && fcntl(fd, F_SETFL, flags | O_NONBLOCK) == 0;
}

FsSend fs_send_file(int out, int in, uint64_t from, uint64_t len, uint64_t* sent) {
  *sent = 0;
  while (*sent < len) {
    const uint64_t left = len - *sent;
    off_t at = static_cast<off_t>(from + *sent);
    ssize_t n = os.sendfile(out, in, &at, left < (1u << 20) ? static_cast<size_t>(left) : 1u << 20);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0 && *sent == 0 && (errno == EINVAL || errno == ENOSYS)) return FsSend::kRefused;
    if (n < 0) return FsSend::kFailed;
    if (n == 0) return FsSend::kShort;
    *sent += static_cast<uint64_t>(n);
  }
  return FsSend::kDone;
}

bool fs_is_pipe(int fd) {
  struct stat st;
  return fstat(fd, &st) == 0 && S_ISFIFO(st.st_mode);
}

long fs_pipe_unread(int fd) {
  int n = 0;
  return ioctl(fd, FIONREAD, &n) == 0 ? n : -1;
}

bool fs_pipe_reader_gone(int fd) {
  struct pollfd p = {fd, 0, 0};
  return poll(&p, 1, 0) < 0 || (p.revents & (POLLERR | POLLNVAL)) != 0;
}

int fs_dup(int fd) { return fcntl(fd, F_DUPFD_CLOEXEC, 0); }

int remove_file(const char* path) { return fs_unlink(path); }

int vexa_mktmpname(char* name) {
  static const char kChars[] = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789";
  if (name == nullptr) return -1;
  size_t len = strlen(name);
  if (len < 6 || strcmp(name + len - 6, "XXXXXX") != 0) return -1;
  static unsigned long long counter = 0;
  unsigned long long seed =
      (static_cast<unsigned long long>(getpid()) << 32) ^ static_cast<unsigned long long>(time(nullptr));
  for (int attempt = 0; attempt < 100; ++attempt) {
    unsigned long long v = seed ^ (++counter * 0x9E3779B97F4A7C15ULL);
    for (size_t i = len - 6; i < len; ++i) {
      name[i] = kChars[v % (sizeof(kChars) - 1)];
      v /= (sizeof(kChars) - 1);
    }
    int fd = fs_open(name, O_WRONLY | O_CREAT | O_EXCL, 0666);
    if (fd >= 0) {
      os.close(fd);
      return 0;
    }
    if (errno != EEXIST) return -1;
  }
  return -1;
}

int fs_open_private_dir(const char* path, std::string* fs_path) {
  const std::string rooted = rooted_path(path);
  if (os.mkdir(rooted.c_str(), 0700) != 0 && errno != EEXIST) return -1;
  UniqueFd fd(fs_open_dir(path));
  if (fd.get() < 0) return -1;
  struct stat st, named;
  char* real = realpath(rooted.c_str(), nullptr);
  // The text must lead here by itself: the other process resolves it anew.
  const bool ok = fstat(fd.get(), &st) == 0 && S_ISDIR(st.st_mode) && st.st_uid == geteuid() &&
                  (st.st_mode & 022) == 0 && real != nullptr && rooted == real &&
                  os.stat(rooted.c_str(), &named) == 0 && named.st_dev == st.st_dev &&
                  named.st_ino == st.st_ino;
  free(real);
  if (!ok) {
    errno = EPERM;
    return -1;
  }
  *fs_path = rooted;
  return fd.release();
}

int fs_link_open_file(int fd, int dirfd, const char* name) {
  char proc[40];
  snprintf(proc, sizeof proc, "/proc/self/fd/%d", fd);
  return os.linkat(AT_FDCWD, proc, dirfd, name, AT_SYMLINK_FOLLOW);
}

int fs_unlink_at(int dirfd, const char* name) { return os.unlinkat(dirfd, name, 0); }

std::vector<std::string> fs_list_names(int dirfd) {
  std::vector<std::string> names;
  // A description of its own: readdir moves the offset it reads from.
  int fd = os.openat(dirfd, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC, 0);
  if (fd < 0) return names;
  DIR* d = fdopendir(fd);
  if (d == nullptr) {
    os.close(fd);
    return names;
  }
  while (const dirent* e = readdir(d)) {
    if (strcmp(e->d_name, ".") != 0 && strcmp(e->d_name, "..") != 0) names.push_back(e->d_name);
  }
  closedir(d);
  return names;
}

int fs_watch_opens(int dirfd) {
  int watch = os.inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
  if (watch < 0) return -1;
  char proc[40];
  snprintf(proc, sizeof proc, "/proc/self/fd/%d", dirfd);
  if (os.inotify_add_watch(watch, proc, IN_OPEN | IN_ONLYDIR) < 0) {
    const int e = errno;
    os.close(watch);
    errno = e;
    return -1;
  }
  return watch;
}

namespace {

long long monotonic_ms() {
  struct timespec t;
  clock_gettime(CLOCK_MONOTONIC, &t);
  return static_cast<long long>(t.tv_sec) * 1000 + t.tv_nsec / 1000000;
}

}  // namespace

bool fs_wait_opened(int watch, const char* name, int timeout_ms) {
  const long long deadline = monotonic_ms() + timeout_ms;
  alignas(struct inotify_event) char buf[4096];
  while (true) {
    const long long left = deadline - monotonic_ms();
    struct pollfd p = {watch, POLLIN, 0};
    const int r = os.poll(&p, 1, left > 0 ? static_cast<int>(left) : 0);
    if (r < 0 && errno == EINTR && left > 0) continue;
    if (r <= 0) return false;
    const ssize_t n = os.read(watch, buf, sizeof buf);
    if (n < 0 && errno != EAGAIN && errno != EINTR) return false;
    for (ssize_t at = 0; n > 0 && at + static_cast<ssize_t>(sizeof(struct inotify_event)) <= n;) {
      const auto* e = reinterpret_cast<const struct inotify_event*>(buf + at);
      if ((e->mask & IN_OPEN) != 0 && e->len > 0 && strcmp(e->name, name) == 0) return true;
      at += static_cast<ssize_t>(sizeof(struct inotify_event) + e->len);
    }
    // A lost notice (queue overflow) only makes this wait run out.
    if (left <= 0) return false;
  }
}
