// The lock between the store's users and its relocation, across processes.
#include <dirent.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <string>
#include "sharelink_db/store_use_lock.h"
#include "store_test_util.h"

namespace {
// A process that waits `delay_ms`, takes the lock in `mode`, logs `got`, holds it `hold_ms`, logs
// `left` and exits.
pid_t user(int log, int delay_ms, StoreUseLock::Mode mode, int hold_ms, char got, char left) {
  pid_t pid = fork();
  if (pid != 0) return pid;
  ::usleep(delay_ms * 1000);
  StoreUseLock lock(mode);
  if (!lock.held() || write(log, &got, 1) != 1) _exit(1);
  ::usleep(hold_ms * 1000);
  if (write(log, &left, 1) != 1) _exit(1);
  lock.release();
  _exit(0);
}
// Shared users overlap; an exclusive one waits for them, and a shared user that comes while it
// waits gets in only after it (no stream of readers starves a relocation).
TEST_F(StoreTest, ExclusiveWaitsForSharedUsersAndGoesBeforeLaterOnes) {
  int log[2];
  ASSERT_EQ(0, pipe(log));
  pid_t pids[] = {user(log[1], 0, StoreUseLock::kShared, 500, 'A', 'a'),
                  user(log[1], 100, StoreUseLock::kShared, 100, 'S', 's'),
                  user(log[1], 250, StoreUseLock::kExclusive, 200, 'X', 'x'),
                  user(log[1], 350, StoreUseLock::kShared, 0, 'B', 'b')};
  for (pid_t pid : pids) {
    int status = -1;
    waitpid(pid, &status, 0);
    EXPECT_EQ(0, status);
  }
  close(log[1]);
  std::string order(16, '\0');
  order.resize(static_cast<size_t>(read(log[0], &order[0], order.size())));
  close(log[0]);
  EXPECT_EQ("ASsaXxBb", order);
}
// Made for every user whatever the umask; a symbolic link in its place is refused.
TEST_F(StoreTest, TheLockFileIsEveryonesAndNoLink) {
  mode_t old = umask(077);
  { StoreUseLock lock(StoreUseLock::kExclusive); EXPECT_TRUE(lock.held()); }
  umask(old);
  struct stat st;
  ASSERT_EQ(0, stat(root.path(kSfStoreUseLockFile).c_str(), &st));
  EXPECT_EQ(0666u, st.st_mode & 07777);
  root.remove(kSfStoreUseLockFile);
  ASSERT_EQ(0, symlink(root.path("/tmp/elsewhere").c_str(), root.path(kSfStoreUseLockFile).c_str()));
  EXPECT_FALSE(StoreUseLock(StoreUseLock::kShared).held());
  EXPECT_FALSE(root.exists("/tmp/elsewhere"));
}
int open_fds() {
  int n = 0;
  DIR* d = opendir("/proc/self/fd");
  while (d != nullptr && readdir(d) != nullptr) ++n;
  if (d != nullptr) closedir(d);
  return n;
}
// flock interrupted by a signal is asked again; refused, or on a folder, nothing stays open.
TEST_F(StoreTest, AFailedLockLeavesNoDescriptorOpen) {
  static int calls;
  calls = 0;
  os.flock = [](int fd, int op) { return ++calls == 1 ? (errno = EINTR, -1) : flock(fd, op); };
  EXPECT_TRUE(StoreUseLock(StoreUseLock::kShared).held()); EXPECT_EQ(3, calls);
  const int before = open_fds();
  os.flock = [](int, int) { return errno = ENOLCK, -1; };
  EXPECT_FALSE(StoreUseLock(StoreUseLock::kExclusive).held());
  os_reset(); root.remove(kSfStoreUseLockFile); root.mkdirs(kSfStoreUseLockFile);
  EXPECT_FALSE(StoreUseLock(StoreUseLock::kShared).held());
  EXPECT_EQ(before, open_fds());
}
}  // namespace
