// A run scope caches what it saw; canonical paths come out as without it.
#include <gtest/gtest.h>
#include <unistd.h>

#include <string>
#include <utility>

#include "platform/fs.h"
#include "platform/profile.h"
#include "platform/run_scope.h"
#include "support/appliance.h"

namespace {

const char kConf[] = "/etc/config/Korvix.conf";
const char kLate[] = "/etc/config/late.conf";

std::string value(const char* section, const char* key, const char* file) {
  char out[64];
  Get_Private_Profile_String(section, key, "-", out, sizeof out, file);
  return out;
}

TEST(RunScope, ProfileFilesAreLookedAtOncePerScope) {
  ApplianceRoot root;
  ScopedEnv env{{{"SHARELINK_ROOT", root.dir()}}};
  root.write(kConf, "[A]\nk = 1\n");
  {
    RunScope scope;
    EXPECT_TRUE(run_scope_active());
    EXPECT_EQ("1", value("A", "k", kConf));
    root.write(kConf, "[A]\nk = 22\n");
    EXPECT_EQ("1", value("A", "k", kConf));
    EXPECT_EQ("-", value("B", "k", kLate));
    root.write(kLate, "[B]\nk = late\n");
    EXPECT_EQ("-", value("B", "k", kLate));
    ASSERT_EQ(0, Set_Private_Profile_String("A", "j", "3", kConf));
    EXPECT_EQ("3", value("A", "j", kConf));
    EXPECT_EQ("22", value("A", "k", kConf));
    ASSERT_EQ(0, Set_Private_Profile_String("C", "k", "new", "/etc/config/new.conf"));
    EXPECT_EQ("new", value("C", "k", "/etc/config/new.conf"));
  }
  EXPECT_FALSE(run_scope_active());
  EXPECT_EQ("late", value("B", "k", kLate));
  root.write(kConf, "[A]\nk = 333\n");
  EXPECT_EQ("333", value("A", "k", kConf));
}

TEST(RunScope, CanonicalPathsAreTheSameAsWithoutIt) {
  ApplianceRoot root;
  ScopedEnv env{{{"SHARELINK_ROOT", root.dir()}}};
  root.write("/share/Public/a.txt", "a");
  root.write("/share/Public/dir/b.txt", "b");
  const std::pair<const char*, const char*> links[] = {
      {"/share/Public/link", "dir"},        {"/share/Public/flink", "a.txt"},
      {"/share/Public/dangling", "nowhere"}, {"/share/Public/out", "../../.."},
      {"/share/Public/up", "/etc"},          {"/share/X", "Public"},
      {"/share/Public/dir/back", "../a.txt"}, {"/share/Public/loop", "loop"},
  };
  for (const auto& l : links) ASSERT_EQ(0, symlink(l.second, root.path(l.first).c_str())) << l.first;
  const char* const paths[] = {
      "/share/Public/a.txt", "/share/Public/dir/b.txt", "/share/Public/link/b.txt",
      "/share/Public/flink", "/share/Public/dangling", "/share/Public/missing",
      "/share/Public/a.txt/x", "/share/Public/dir/../a.txt", "/share/Public/dir/.",
      "/share/Public/dir/..", "/share/Public/dir/", "/share/X/a.txt", "/share/X/link/b.txt",
      "/share/X/dir/back", "/share/Public/out", "/share/Public/out/share", "/share/Public/up",
      "/share/Public/up/passwd", "/share/Public/loop", "/share/Public/loop/x", "/share/nothing/a",
      "/", "/share", "/share//Public//a.txt", "relative/a.txt",
  };
  for (const char* path : paths) {
    char plain[256] = "";
    bool plain_ok = fs_realpath(path, plain, sizeof plain);
    RunScope scope;
    for (int again = 0; again < 2; ++again) {
      char scoped[256] = "";
      EXPECT_EQ(plain_ok, fs_realpath(path, scoped, sizeof scoped)) << path;
      if (plain_ok) {
        EXPECT_STREQ(plain, scoped) << path;
      }
    }
  }
  RunScope scope;
  char out[256];
  ASSERT_TRUE(fs_realpath("/share/X/dir/b.txt", out, sizeof out));
  EXPECT_STREQ("/share/Public/dir/b.txt", out);
  ASSERT_TRUE(fs_realpath("/share/X/dir/back", out, sizeof out));
  EXPECT_STREQ("/share/Public/a.txt", out);
  EXPECT_FALSE(fs_realpath("/share/X/dir/none", out, sizeof out));
}

}  // namespace
