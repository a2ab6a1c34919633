// The marker lock, the flock lock and the empty-store check.
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <ctime>

#include "diag/debug_log.h"
#include "store_test_util.h"

namespace {

const char kLock[] = "/tmp/kdx_shareLink.lock";

TEST_F(StoreTest, AFreeMarkerLockIsTakenAndReleased) {
  EXPECT_EQ(0, sf_check_LockFile());
  EXPECT_EQ(0, sleep_calls());
  EXPECT_EQ(0, sf_Lock());
  EXPECT_TRUE(root.exists(kLock));
  EXPECT_EQ(1, sf_UnLock());
  EXPECT_FALSE(root.exists(kLock));
  os.fopen = [](const char*, const char*) -> FILE* {
    errno = EACCES;
    return nullptr;
  };
  EXPECT_EQ(-102, sf_Lock());
}

TEST_F(StoreTest, AFreshMarkerLockIsHeldAfterSevenWaits) {
  root.write(kLock, "");
  root.set_mtime(kLock, time(nullptr) - 1700);
  EXPECT_EQ(-100, sf_check_LockFile());
  EXPECT_EQ(7, sleep_calls());
  EXPECT_TRUE(root.exists(kLock));
  EXPECT_EQ(-100, sf_Lock());
  // The application log line is written only at diagnostic level 10.
  EXPECT_FALSE(root.exists("/tmp/parceldeck.log"));
  int saved = debug_level();
  set_debug_level(10);
  EXPECT_EQ(-100, sf_check_LockFile());
  set_debug_level(saved);
  std::string log = root.read("/tmp/parceldeck.log");
  EXPECT_EQ(0u, log.find("sf_check_LockFile "));
  EXPECT_NE(std::string::npos, log.find(", sharelink lock error\n"));
}

TEST_F(StoreTest, AStaleMarkerLockIsBroken) {
  root.write(kLock, "");
  root.set_mtime(kLock, time(nullptr) - 1801);
  EXPECT_EQ(0, sf_check_LockFile());
  EXPECT_FALSE(root.exists(kLock));
  root.write(kLock, "");
  root.set_mtime(kLock, time(nullptr) - 3600);
  EXPECT_EQ(0, sf_Lock());
  EXPECT_TRUE(root.exists(kLock));
}

int g_closed = 0;

TEST_F(StoreTest, FlockLockReportsOpenLockAndUnlockFailures) {
  int fd = sf_flock_lock(0666);
  ASSERT_GE(fd, 0);
  EXPECT_TRUE(root.exists("/tmp/kdx_shareLink_flock.lock"));
  EXPECT_EQ(0, sf_flock_unlock(fd));

  g_closed = 0;
  os.close = [](int fd) {
    ++g_closed;
    return ::close(fd);
  };
  os.flock = [](int, int) {
    errno = EINTR;
    return -1;
  };
  EXPECT_EQ(kSfFlockLockFailed, sf_flock_lock(0666));
  EXPECT_EQ(1, g_closed);  // the descriptor is not kept
  fd = ::open(root.path("/tmp/kdx_shareLink_flock.lock").c_str(), O_WRONLY);
  ASSERT_GE(fd, 0);
  EXPECT_EQ(-2, sf_flock_unlock(fd));
  EXPECT_EQ(2, g_closed);
  os.open = [](const char*, int, mode_t) {
    errno = EACCES;
    return -1;
  };
  EXPECT_EQ(kSfFlockOpenFailed, sf_flock_lock(0666));
}

TEST_F(StoreTest, EmptyStoreCheck) {
  const char db[] = "/etc/config/share_link.db";
  // Missing: nothing to count, and no file is made.
  EXPECT_EQ(0, sf_check_empty_db());
  EXPECT_FALSE(root.exists(db));
  root.write(db, "");
  EXPECT_EQ(0, sf_check_empty_db());
  EXPECT_FALSE(root.exists(db));
  make_store(root);
  EXPECT_EQ(0, sf_check_empty_db());
  root.write(db, std::string(4096, 'x'));
  EXPECT_EQ(1, sf_check_empty_db());
  EXPECT_FALSE(root.exists(kLock));
  // A held lock: no check at all.
  root.write(kLock, "");
  EXPECT_EQ(0, sf_check_empty_db());
}

}  // namespace
