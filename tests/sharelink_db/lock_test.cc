// The marker lock, the flock lock and the empty-store check.
#include <fcntl.h>
#include <unistd.h>
#include <cerrno>
#include <ctime>
#include "diag/debug_log.h"
#include "store_test_util.h"

namespace {
const char kLock[] = "/tmp/kdx_shareLink.lock";
// Free: taken. Fresh: held after seven waits (logged at level 10 only). Past 30 minutes: broken.
TEST_F(StoreTest, MarkerLock) {
  EXPECT_EQ(0, sf_check_LockFile()); EXPECT_EQ(0, sleep_calls()); EXPECT_EQ(0, sf_Lock());
  EXPECT_TRUE(root.exists(kLock)); EXPECT_EQ(1, sf_UnLock()); EXPECT_FALSE(root.exists(kLock));
  root.write(kLock, ""); root.set_mtime(kLock, time(nullptr) - 1700);
  EXPECT_EQ(-100, sf_check_LockFile()); EXPECT_EQ(7, sleep_calls());
  EXPECT_TRUE(root.exists(kLock)); EXPECT_EQ(-100, sf_Lock());
  EXPECT_FALSE(root.exists("/tmp/parceldeck.log")); int saved = debug_level(); set_debug_level(10);
  EXPECT_EQ(-100, sf_check_LockFile()); set_debug_level(saved);
  std::string log = root.read("/tmp/parceldeck.log"); EXPECT_EQ(0u, log.find("sf_check_LockFile "));
  EXPECT_NE(std::string::npos, log.find(", sharelink lock error\n"));
  root.set_mtime(kLock, time(nullptr) - 1801); EXPECT_EQ(0, sf_check_LockFile());
  EXPECT_FALSE(root.exists(kLock)); root.write(kLock, "");
  root.set_mtime(kLock, time(nullptr) - 3600); EXPECT_EQ(0, sf_Lock()); EXPECT_TRUE(root.exists(kLock));
  os.fopen = [](const char*, const char*) -> FILE* { return errno = EACCES, nullptr; };
  EXPECT_EQ(1, sf_UnLock()); EXPECT_EQ(-102, sf_Lock());
}
int g_closed = 0;
TEST_F(StoreTest, FlockLockReportsOpenLockAndUnlockFailures) {
  int fd = sf_flock_lock(0666); ASSERT_GE(fd, 0);
  EXPECT_TRUE(root.exists("/tmp/kdx_shareLink_flock.lock")); EXPECT_EQ(0, sf_flock_unlock(fd));
  g_closed = 0; os.close = [](int fd) { return ++g_closed, ::close(fd); };
  os.flock = [](int, int) { return errno = EINTR, -1; }; EXPECT_EQ(kSfFlockLockFailed, sf_flock_lock(0666));
  EXPECT_EQ(1, g_closed);  // the descriptor is not kept
  fd = ::open(root.path("/tmp/kdx_shareLink_flock.lock").c_str(), O_WRONLY);
  ASSERT_GE(fd, 0); EXPECT_EQ(-2, sf_flock_unlock(fd)); EXPECT_EQ(2, g_closed);
  os.open = [](const char*, int, mode_t) { return errno = EACCES, -1; };
  EXPECT_EQ(kSfFlockOpenFailed, sf_flock_lock(0666));
}
// Missing or empty: nothing to count, and no file is made; a held lock: no check.
TEST_F(StoreTest, EmptyStoreCheck) {
  const char db[] = "/etc/config/share_link.db";
  EXPECT_EQ(0, sf_check_empty_db()); EXPECT_FALSE(root.exists(db)); root.write(db, "");
  EXPECT_EQ(0, sf_check_empty_db()); EXPECT_FALSE(root.exists(db)); make_store(root);
  EXPECT_EQ(0, sf_check_empty_db()); root.write(db, std::string(4096, 'x'));
  EXPECT_EQ(1, sf_check_empty_db()); EXPECT_FALSE(root.exists(kLock)); root.write(kLock, "");
  EXPECT_EQ(0, sf_check_empty_db());
}
}  // namespace
