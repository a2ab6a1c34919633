#include "platform/fs_beneath.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "platform/os.h"
#include "support/appliance.h"

namespace {

long no_openat2(int, const char*, void*, size_t) {
  errno = ENOSYS;
  return -1;
}

std::string read_fd(int fd) {
  char buf[64];
  ssize_t n = read(fd, buf, sizeof buf);
  return n > 0 ? std::string(buf, static_cast<size_t>(n)) : std::string();
}

TEST(FsBeneath, OpensInsideAndRefusesEveryWayOut) {
  ApplianceRoot root;
  ScopedEnv env{{{"SHARELINK_ROOT", root.dir()}}};
  root.write("/share/P/dir/a.txt", "inside");
  root.write("/share/P/secret.txt", "outside");
  ASSERT_EQ(0, symlink(root.path("/share/P").c_str(), root.path("/share/P/dir/abs").c_str()));
  ASSERT_EQ(0, symlink("..", root.path("/share/P/dir/up").c_str()));
  ASSERT_EQ(0, symlink("../secret.txt", root.path("/share/P/dir/s.txt").c_str()));
  struct Case {
    const char* rel;
    bool opens;
  } cases[] = {
      {"a.txt", true},          {"./a.txt", true},         {"", true},
      {"../secret.txt", false}, {"/share/P/secret.txt", false}, {"abs/secret.txt", false},
      {"up/secret.txt", false}, {"s.txt", false},          {"x/../a.txt", false},
      {"nosuch", false},
  };
  for (bool fallback : {false, true}) {
    if (fallback) os.openat2 = no_openat2;
    UniqueFd dir(fs_open_dir("/share/P/dir"));
    ASSERT_GE(dir.get(), 0);
    for (const Case& c : cases) {
      UniqueFd fd(fs_open_beneath(dir.get(), c.rel, O_RDONLY));
      EXPECT_EQ(c.opens, fd.get() >= 0) << c.rel << (fallback ? " (walk)" : " (openat2)");
      if (fd.get() >= 0 && std::string(c.rel).find("a.txt") != std::string::npos) {
        EXPECT_EQ("inside", read_fd(fd.get()));
      }
    }
  }
  os_reset();
  EXPECT_LT(fs_open_dir("/share/P/dir/abs"), 0);  // the folder itself may not be a link
}

}  // namespace
