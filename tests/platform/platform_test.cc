#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "platform/base64.h"
#include "platform/cgi.h"
#include "platform/exec.h"
#include "platform/fs.h"
#include "platform/os.h"
#include "platform/root.h"
#include "support/appliance.h"

namespace {

TEST(Root, JoinsAndStripsTheRoot) {
  ScopedEnv env{{{"SHARELINK_ROOT", "/r/oot/"}}};
  EXPECT_EQ("/r/oot/etc/x", rooted_path("/etc/x"));
  EXPECT_EQ("rel/x", rooted_path("rel/x"));
  for (const auto& c : {std::make_pair("/r/oot/share/a", "/share/a"), std::make_pair("/r/oot", "/"),
                        std::make_pair("/r/ootx/a", "-"), std::make_pair("/etc/passwd", "-")}) {
    char out[64] = "-";
    EXPECT_EQ(c.second[0] != '-', unrooted_path(c.first, out, sizeof out)) << c.first;
    EXPECT_STREQ(c.second, out) << c.first;
  }
  ScopedEnv none{{{"SHARELINK_ROOT", ""}}};
  EXPECT_EQ("/etc/x", rooted_path("/etc/x"));
}

TEST(Fs, TemporaryNamesAreUniqueAndReserved) {
  ApplianceRoot root;
  ScopedEnv env{{{"SHARELINK_ROOT", root.dir()}}};
  char a[] = "/etc/config/tmpXXXXXX", b[] = "/etc/config/tmpXXXXXX", bad[] = "/etc/config/tmp";
  ASSERT_EQ(0, vexa_mktmpname(a));
  ASSERT_EQ(0, vexa_mktmpname(b));
  EXPECT_STRNE(a, b);
  struct stat st;
  ASSERT_EQ(0, stat(root.path(a).c_str(), &st));
  mode_t mask = umask(0);
  umask(mask);
  EXPECT_EQ(0666 & ~mask, st.st_mode & 0777);
  EXPECT_EQ(-1, vexa_mktmpname(bad));
}

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
  EXPECT_STREQ("a b||c|", hs_io_read(io.get(), &len));
  EXPECT_EQ(7u, len);
  EXPECT_EQ(-1, _hs_secure_execv("/usr/bin/none", missing, io.get()));

  int fd = open("/dev/null", O_RDONLY);
  int leak = dup2(fd, 200);
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

TEST(Base64, EncodesTheStandardAlphabet) {
  char out[base64_size(16)];
  const struct { const char* in; const char* out; } cases[] = {
      {"", ""}, {"f", "Zg=="}, {"fo", "Zm8="}, {"foo", "Zm9v"}, {"foob", "Zm9vYg=="}, {"\xff\xfe\xfd", "//79"}};
  for (const auto& c : cases) {
    int n = to64frombits(out, reinterpret_cast<const unsigned char*>(c.in), static_cast<int>(strlen(c.in)));
    EXPECT_STREQ(c.out, out);
    EXPECT_EQ(static_cast<int>(strlen(c.out)), n);
  }
}

}  // namespace
