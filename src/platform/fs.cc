#include "platform/fs.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <string>

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

int fs_mkdir(const char* path, mode_t mode) { return ::mkdir(rooted_path(path).c_str(), mode); }

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
