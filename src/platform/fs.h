// File-system access by appliance path.
//
// Each call roots its appliance path(s) (root.h) and goes through the OS seam
// (os.h), so every file the program touches lies under SHARELINK_ROOT when it
// is set, and every failure can be injected. Results follow the system calls:
// 0 or a descriptor on success, -1 with errno on failure.
#ifndef SLT_PLATFORM_FS_H_
#define SLT_PLATFORM_FS_H_

#include <dirent.h>
#include <sys/stat.h>
#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

int fs_open(const char* path, int flags, mode_t mode = 0);
FILE* fs_fopen(const char* path, const char* mode);
int fs_stat(const char* path, struct stat* st);
int fs_lstat(const char* path, struct stat* st);
bool fs_exists(const char* path);
bool fs_is_dir(const char* path);
int fs_mkdir(const char* path, mode_t mode);
int fs_unlink(const char* path);
int fs_rename(const char* from, const char* to);
int fs_chmod(const char* path, mode_t mode);
int fs_chown(const char* path, uid_t owner, gid_t group);
DIR* fs_opendir(const char* path);

// Canonical form of an appliance path, as an appliance path. Returns true and
// fills out on success; false when the path does not resolve, resolves outside
// the root, or does not fit in size bytes.
bool fs_realpath(const char* path, char* out, size_t size);

// Flushes a written stream to the disk (fflush, then fsync). 0 or -1.
int fs_sync_stream(FILE* f);

// Flushes the folder that holds `path`, so that a rename into it is durable.
int fs_sync_parent_dir(const char* path);

// Asks for a pipe buffer of `bytes` on fd, when fd is a pipe: fewer switches
// between the writer and the reader per MiB. A hint; nothing changes on failure.
void fs_widen_pipe(int fd, int bytes);

// Makes writes to fd that would wait fail with EAGAIN instead (O_NONBLOCK).
// False when the flag could not be set.
bool fs_set_nonblocking(int fd);

// Sends `len` bytes of the file `in` from offset `from` to `out` inside the
// kernel (sendfile), in pieces of at most 1 MiB, again after EINTR. *sent
// holds the bytes sent in every case. kRefused: the kernel takes no such
// output (EINVAL, ENOSYS) and nothing was sent; kShort: the file ended first.
enum class FsSend { kDone, kRefused, kShort, kFailed };
FsSend fs_send_file(int out, int in, uint64_t from, uint64_t len, uint64_t* sent);

// True when fd is a pipe.
bool fs_is_pipe(int fd);

// Bytes written into the pipe fd that its reader has not taken yet; -1 when
// that cannot be told.
long fs_pipe_unread(int fd);

// True when nobody can read the pipe fd any more (its reader closed it).
bool fs_pipe_reader_gone(int fd);

// A second descriptor for the open file fd (close-on-exec), or -1.
int fs_dup(int fd);

// Removes a file. The appliance kernel's own removal call exists only in the
// appliance build; everywhere else this is unlink. 0 or -1.
int remove_file(const char* path);

// Replaces the trailing "XXXXXX" of `name` (an appliance path, changed in
// place) with unique characters and reserves the name by creating the file
// with O_CREAT|O_EXCL and mode 0666 (the umask applies). 0, or -1 when the
// name has no such tail or no file could be created.
int vexa_mktmpname(char* name);

// Handing an open file to another process that opens by name (the web
// server's X-Sendfile): a private folder, a hard link in it to the open
// file, and notices of opens through that folder.

// Makes (mode 0700) and opens the appliance path `path` as a private folder.
// On success a descriptor (close-on-exec), and *fs_path holds the rooted
// path: the folder is owned by this process's user, nobody else may write
// in it, and fs_path is its canonical form (no symbolic link, "." or ".."
// on the way) naming this very folder, so whoever opens fs_path + "/" + name
// by text reaches the entry `name` of this folder. -1 with errno otherwise
// (ENOTDIR, ELOOP; EPERM: not private, or not reached by fs_path as written).
int fs_open_private_dir(const char* path, std::string* fs_path);

// Hard-links the open file fd as `name` in the open folder dirfd: linkat of
// /proc/self/fd/N with AT_SYMLINK_FOLLOW, which needs no privilege for a
// regular file and names exactly the open inode, wherever its paths lead
// now. 0, or -1 with errno (EEXIST: the name is taken; EXDEV: another file
// system; EPERM, EROFS; ENOENT without /proc).
int fs_link_open_file(int fd, int dirfd, const char* name);

// Removes the entry `name` of the open folder dirfd. 0 or -1 with errno.
int fs_unlink_at(int dirfd, const char* name);

// The names in the open folder dirfd, without "." and "..": empty when it
// cannot be read.
std::vector<std::string> fs_list_names(int dirfd);

// Watches opens of entries through the open folder dirfd (inotify IN_OPEN;
// an open of the same file through another of its names is not seen). A
// descriptor (non-blocking, close-on-exec), or -1 with errno.
int fs_watch_opens(int dirfd);

// Waits at most timeout_ms on `watch` for an open of the entry `name`. True
// when one was seen; false when the time ran out or a wait or read failed.
bool fs_wait_opened(int watch, const char* name, int timeout_ms);

#endif  // SLT_PLATFORM_FS_H_
