#include "platform/fs_beneath.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>

#include "platform/os.h"
#include "support/appliance.h"

namespace {

// Both ways of opening: openat2, and the walk used where the kernel lacks it.
TEST(FsBeneath, OpensInsideAndRefusesEveryWayOut) {
  ApplianceRoot root;
  ScopedEnv env{{{"SHARELINK_ROOT", root.dir()}}};
  root.write("/share/P/dir/a.txt", "inside"), root.write("/share/P/secret.txt", "outside");
  root.write("/share/P/dir/sub/b.txt", "");  // "sub/../a.txt" would stay inside; it is refused all the same
  ASSERT_EQ(0, symlink(root.path("/share/P").c_str(), root.path("/share/P/dir/abs").c_str()));
  ASSERT_EQ(0, symlink("..", root.path("/share/P/dir/up").c_str()));
  ASSERT_EQ(0, symlink("../secret.txt", root.path("/share/P/dir/s.txt").c_str()));
  for (bool walk : {false, true}) {
    if (walk) os.openat2 = [](int, const char*, void*, size_t) -> long { return errno = ENOSYS, -1; };
    UniqueFd dir(fs_open_dir("/share/P/dir"));
    ASSERT_GE(dir.get(), 0);
    for (const char* rel : {"a.txt", "./a.txt", ""}) {  // "" is the folder itself
      UniqueFd fd(fs_open_beneath(dir.get(), rel, O_RDONLY));
      char buf[16] = {};
      ASSERT_GE(fd.get(), 0) << rel << walk;
      EXPECT_EQ(*rel ? "inside" : "", std::string(buf, std::max(0L, read(fd.get(), buf, sizeof buf)))) << rel;
    }
    for (const char* rel : {"../secret.txt", "/share/P/secret.txt", "abs/secret.txt", "up/secret.txt",
                            "s.txt", "sub/../a.txt", "nosuch"}) {
      EXPECT_LT(UniqueFd(fs_open_beneath(dir.get(), rel, O_RDONLY)).get(), 0) << rel << walk;
    }
  }
  os_reset();
  EXPECT_LT(fs_open_dir("/share/P/dir/abs"), 0);  // the folder itself may not be a link
}

}  // namespace
