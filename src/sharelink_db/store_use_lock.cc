#include "sharelink_db/store_use_lock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <cerrno>

#include "platform/fs.h"
#include "platform/os.h"

const char kSfStoreUseLockFile[] = "/tmp/kdx_shareLink_use.lock";
const char kSfStoreUseGateFile[] = "/tmp/kdx_shareLink_use_gate.lock";

namespace {

constexpr int kFlags = O_RDONLY | O_CLOEXEC | O_NOFOLLOW;

// Opens the lock file, making it when missing. An existing file is opened
// without O_CREAT: in a sticky /tmp the kernel refuses O_CREAT on another
// user's file, and the web server's user and root both open this one.
int open_lock_file(const char* path) {
  for (int attempt = 0; attempt < 3; ++attempt) {
    int fd = fs_open(path, kFlags);
    if (fd >= 0 || errno != ENOENT) return fd;
    fd = fs_open(path, kFlags | O_CREAT | O_EXCL, 0666);
    if (fd >= 0) {
      // The umask must not keep the other user out.
      fs_chmod(path, 0666);
      return fd;
    }
    if (errno != EEXIST) return -1;
  }
  return -1;
}

// The locked descriptor, or -1 (closed again when flock refused or the name
// is no plain file: a folder would take the lock as well).
int lock_file(const char* path, int op) {
  int fd = open_lock_file(path);
  if (fd < 0) return -1;
  struct stat st;
  if (fs_lstat(path, &st) != 0 || !S_ISREG(st.st_mode)) {
    os.close(fd);
    return -1;
  }
  int rc;
  do {
    rc = os.flock(fd, op);
  } while (rc != 0 && errno == EINTR);
  if (rc != 0) {
    os.close(fd);
    return -1;
  }
  return fd;
}

}  // namespace

StoreUseLock::StoreUseLock(Mode mode) {
  // A shared holder passes the gate only while no relocation holds it, and
  // lets it go at once; a relocation keeps it, so no new holder gets in
  // while it waits for the present ones.
  gate_fd_ = lock_file(kSfStoreUseGateFile, LOCK_EX);
  if (gate_fd_ < 0) return;
  fd_ = lock_file(kSfStoreUseLockFile, mode == kShared ? LOCK_SH : LOCK_EX);
  if (fd_ < 0 || mode == kShared) {
    os.close(gate_fd_);
    gate_fd_ = -1;
  }
}

StoreUseLock::~StoreUseLock() { release(); }

void StoreUseLock::release() {
  // Closing the descriptor drops its flock.
  if (fd_ >= 0) os.close(fd_);
  if (gate_fd_ >= 0) os.close(gate_fd_);
  fd_ = -1;
  gate_fd_ = -1;
}
