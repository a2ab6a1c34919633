#include <fcntl.h>
#include <gtest/gtest.h>
#include <cerrno>
#include <cstring>
#include <string>
#include "platform/cgi.h"
#include "platform/exec.h"
#include "platform/fs.h"
#include "platform/os.h"
#include "support/appliance.h"

namespace {
// Also run with only descriptors 0-2 open: descriptor 200 is made here.
TEST(Exec, CapturesOutputReportsStatusAndClosesOtherDescriptors) {
  ApplianceRoot root;
  ScopedEnv env{{{"SHARELINK_ROOT", root.dir()}}};
  root.script("/usr/bin/echoer", "printf '%s|' \"$@\"; printf \"$SHARELINK_ROOT\" >&2; exit 3\n");
  root.script("/usr/sbin/reader", "cat > \"$SHARELINK_ROOT/tmp/got\"; "
                                  "ls /proc/self/fd > \"$SHARELINK_ROOT/tmp/fds\"; exit 2\n");
  root.write("/tmp/in", "message body\n");
  HsIoGuard io;
  const char* argv[] = {"/usr/bin/echoer", "a b", "", "c", nullptr};
  const char* reader[] = {"/usr/sbin/reader", "-t", nullptr};
  const char* missing[] = {"/usr/bin/none", nullptr};
  EXPECT_EQ(3, _hs_secure_execv("/usr/bin/echoer", argv, io.get()));
  size_t len = 0;
  const char* got = hs_io_read(io.get(), &len);
  EXPECT_EQ("a b||c|", std::string(got, len));
  EXPECT_EQ(-1, _hs_secure_execv("/usr/bin/none", missing, io.get()));
  int fd = open("/dev/null", O_RDONLY), leak = dup2(fd, 200);
  close(fd);
  ASSERT_EQ(200, leak);
  EXPECT_EQ(2 << 8, spawn_with_stdin_file("/usr/sbin/reader", reader, "/tmp/in"));
  close(leak);
  EXPECT_EQ("message body\n", root.read("/tmp/got"));
  EXPECT_EQ(std::string::npos, root.read("/tmp/fds").find("200\n"));
  EXPECT_EQ(1 << 8, spawn_with_stdin_file("/usr/bin/none", missing, "/tmp/in"));
  os.spawn = [](pid_t*, const char*, const posix_spawn_file_actions_t*, const posix_spawnattr_t*,
                char* const*, char* const*) { return EAGAIN; };
  EXPECT_EQ(-1, _hs_secure_execv("/usr/bin/echoer", argv, nullptr));
  EXPECT_EQ(-1, spawn_with_stdin_file("/usr/sbin/reader", reader, "/tmp/in"));
  os_reset();
  EXPECT_EQ(3, _hs_secure_execv("/usr/bin/echoer", argv, nullptr));
}
// A rename is durable only once the folder holding it is synced, inside the root.
TEST(Fs, SyncsTheFolderThatHoldsAPath) {
  ApplianceRoot root;
  ScopedEnv env{{{"SHARELINK_ROOT", root.dir()}}};
  root.write("/etc/config/a.conf", "");
  EXPECT_EQ(0, fs_sync_parent_dir("/etc/config/a.conf"));
  EXPECT_EQ(0, fs_sync_parent_dir("/etc/config/not-yet"));
  EXPECT_EQ(-1, fs_sync_parent_dir("/etc/nofolder/a.conf"));
}
TEST(Cgi, ParsesAndDecodesParameters) {
  CgiRequest req;
  const char q[] = "func=download&path=%2FPublic%2Fa+b.txt&empty=&flag&bad=%zz%4&func=second";
  cgi_parse_params(q, strlen(q), &req);
  for (const auto& c : {std::make_pair("func", "download"), std::make_pair("path", "/Public/a b.txt"),
                        std::make_pair("empty", ""), std::make_pair("flag", ""), std::make_pair("bad", "%zz%4")}) {
    EXPECT_STREQ(c.second, CGI_Find_Parameter(&req, c.first)) << c.first;
  }
  EXPECT_EQ(nullptr, CGI_Find_Parameter(&req, "none"));
}
}  // namespace
