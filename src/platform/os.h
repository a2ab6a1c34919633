// The seam to the operating system: the calls that fail in interesting ways.
//
// Every module reaches these system calls through `os`, a plain table of
// function pointers whose defaults are the real calls. A test replaces one
// entry (a failed rename, a short write, a program that cannot start, a fixed
// clock) and puts the defaults back with os_reset(). Paths given here are
// file-system paths: callers root appliance paths first (see fs.h).
//
// Reads of an open stdio stream (fgets, fread) stay outside the table: every
// stream is opened through `fopen` here, which is where a test makes a file
// missing or unreadable, and a read that fails after a good open ends the
// stream as end-of-file does, which the readers already handle.
#ifndef SLT_PLATFORM_OS_H_
#define SLT_PLATFORM_OS_H_

#include <poll.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/types.h>

#include <cstdio>
#include <ctime>

struct OsCalls {
  int (*open)(const char* path, int flags, mode_t mode);
  ssize_t (*read)(int fd, void* buf, size_t len);
  ssize_t (*write)(int fd, const void* buf, size_t len);
  int (*fsync)(int fd);
  int (*close)(int fd);
  int (*rename)(const char* from, const char* to);
  int (*unlink)(const char* path);
  int (*stat)(const char* path, struct stat* st);
  int (*lstat)(const char* path, struct stat* st);
  int (*flock)(int fd, int op);
  FILE* (*fopen)(const char* path, const char* mode);
  size_t (*fwrite)(const void* data, size_t size, size_t n, FILE* f);
  int (*ferror)(FILE* f);
  int (*fclose)(FILE* f);
  int (*spawn)(pid_t* pid, const char* path, const posix_spawn_file_actions_t* actions,
               const posix_spawnattr_t* attr, char* const argv[], char* const envp[]);
  pid_t (*waitpid)(pid_t pid, int* status, int options);
  time_t (*time)(time_t* out);
  int (*usleep)(useconds_t usec);
  // Opens relative to a folder; openat2 is the raw system call (ENOSYS on
  // kernels before 5.6).
  int (*openat)(int dirfd, const char* path, int flags, mode_t mode);
  long (*openat2)(int dirfd, const char* path, void* how, size_t size);
  ssize_t (*getrandom)(void* buf, size_t len, unsigned flags);
  // Copies count bytes of in_fd from *offset to out_fd inside the kernel.
  ssize_t (*sendfile)(int out_fd, int in_fd, off_t* offset, size_t count);
  // Waits up to timeout_ms (-1: no limit) for one of the events; 0 when the
  // time passed.
  int (*poll)(struct pollfd* fds, nfds_t n, int timeout_ms);
};

extern OsCalls os;

// Restores every entry to the real system call.
void os_reset();

#endif  // SLT_PLATFORM_OS_H_
