#include "platform/os.h"

#include <fcntl.h>
#include <cerrno>
#include <sys/file.h>
#include <sys/random.h>
#include <sys/sendfile.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

int real_open(const char* path, int flags, mode_t mode) { return ::open(path, flags, mode); }
ssize_t real_read(int fd, void* buf, size_t len) { return ::read(fd, buf, len); }
ssize_t real_write(int fd, const void* buf, size_t len) { return ::write(fd, buf, len); }
int real_fsync(int fd) { return ::fsync(fd); }
int real_close(int fd) { return ::close(fd); }
int real_rename(const char* a, const char* b) { return ::rename(a, b); }
int real_unlink(const char* p) { return ::unlink(p); }
int real_stat(const char* p, struct stat* st) { return ::stat(p, st); }
int real_lstat(const char* p, struct stat* st) { return ::lstat(p, st); }
int real_flock(int fd, int op) { return ::flock(fd, op); }
FILE* real_fopen(const char* p, const char* m) { return ::fopen(p, m); }
size_t real_fwrite(const void* d, size_t s, size_t n, FILE* f) { return ::fwrite(d, s, n, f); }
int real_ferror(FILE* f) { return ::ferror(f); }
int real_fclose(FILE* f) { return ::fclose(f); }
int real_spawn(pid_t* pid, const char* path, const posix_spawn_file_actions_t* a,
               const posix_spawnattr_t* attr, char* const argv[], char* const envp[]) {
  return ::posix_spawn(pid, path, a, attr, argv, envp);
}
pid_t real_waitpid(pid_t pid, int* st, int opt) { return ::waitpid(pid, st, opt); }
time_t real_time(time_t* t) { return ::time(t); }
int real_usleep(useconds_t us) { return ::usleep(us); }
int real_openat(int dirfd, const char* p, int flags, mode_t mode) {
  return ::openat(dirfd, p, flags, mode);
}
long real_openat2(int dirfd, const char* p, void* how, size_t size) {
#ifdef SYS_openat2
  return ::syscall(SYS_openat2, dirfd, p, how, size);
#else
  errno = ENOSYS;
  return -1;
#endif
}
ssize_t real_getrandom(void* buf, size_t len, unsigned flags) {
  return ::getrandom(buf, len, flags);
}
ssize_t real_sendfile(int out, int in, off_t* offset, size_t count) {
  return ::sendfile(out, in, offset, count);
}
int real_poll(struct pollfd* fds, nfds_t n, int timeout_ms) { return ::poll(fds, n, timeout_ms); }

constexpr OsCalls kDefaults = {
    real_open,  real_read,   real_write,  real_fsync,  real_close,  real_rename,
    real_unlink, real_stat,  real_lstat,  real_flock,  real_fopen,  real_fwrite,
    real_ferror, real_fclose, real_spawn, real_waitpid, real_time,  real_usleep,
    real_openat, real_openat2, real_getrandom, real_sendfile, real_poll,
};

}  // namespace

OsCalls os = kDefaults;

void os_reset() { os = kDefaults; }
