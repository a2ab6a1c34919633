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

std::string value(const char* section, const char* file) {
  char out[64];
  Get_Private_Profile_String(section, "k", "-", out, sizeof out, file);
  return out;
}

TEST(RunScope, ProfileFilesAreLookedAtOncePerScope) {
  ApplianceRoot root;
  ScopedEnv env{{{"SHARELINK_ROOT", root.dir()}}};
  const char *conf = "/etc/config/Korvix.conf", *late = "/etc/config/late.conf";
  root.write(conf, "[A]\nk = 1\n");
  {
    RunScope scope;
    EXPECT_TRUE(run_scope_active());
    EXPECT_EQ("1", value("A", conf));
    root.write(conf, "[A]\nk = 22\n");
    EXPECT_EQ("1", value("A", conf));
    EXPECT_EQ("-", value("B", late));
    root.write(late, "[B]\nk = late\n");
    EXPECT_EQ("-", value("B", late));
    ASSERT_EQ(0, Set_Private_Profile_String("A", "j", "3", conf));  // a write reloads the file
    char out[8];
    Get_Private_Profile_String("A", "j", "-", out, sizeof out, conf);
    EXPECT_STREQ("3", out);
    EXPECT_EQ("22", value("A", conf));
    ASSERT_EQ(0, Set_Private_Profile_String("C", "k", "new", "/etc/config/new.conf"));
    EXPECT_EQ("new", value("C", "/etc/config/new.conf"));
  }
  EXPECT_FALSE(run_scope_active());
  EXPECT_EQ("late", value("B", late));
  root.write(conf, "[A]\nk = 333\n");
  EXPECT_EQ("333", value("A", conf));
}

TEST(RunScope, CanonicalPathsAreTheSameAsWithoutIt) {
  ApplianceRoot root;
  ScopedEnv env{{{"SHARELINK_ROOT", root.dir()}}};
  root.write("/share/Public/a.txt", "a");
  root.write("/share/Public/dir/b.txt", "b");
  const std::pair<const char*, const char*> links[] = {
      {"/share/Public/link", "dir"}, {"/share/Public/flink", "a.txt"}, {"/share/Public/dangling", "nowhere"},
      {"/share/Public/out", "../../.."}, {"/share/Public/up", "/etc"}, {"/share/X", "Public"},
      {"/share/Public/dir/back", "../a.txt"}, {"/share/Public/loop", "loop"},
  };
  for (const auto& l : links) ASSERT_EQ(0, symlink(l.second, root.path(l.first).c_str())) << l.first;
  for (const char* path :
       {"/share/Public/a.txt", "/share/Public/dir/b.txt", "/share/Public/link/b.txt", "/share/Public/flink",
        "/share/Public/dangling", "/share/Public/missing", "/share/Public/a.txt/x", "/share/Public/dir/../a.txt",
        "/share/Public/dir/.", "/share/Public/dir/..", "/share/Public/dir/", "/share/X/a.txt",
        "/share/X/link/b.txt", "/share/X/dir/back", "/share/Public/out", "/share/Public/out/share",
        "/share/Public/up", "/share/Public/up/passwd", "/share/Public/loop", "/share/Public/loop/x",
        "/share/nothing/a", "/", "/share", "/share//Public//a.txt", "relative/a.txt", "/share/X/dir/b.txt",
        "/share/X/dir/none", "/share/Public/../Public/a.txt", "/share/Public/out/.."}) {
    char plain[256] = "";
    bool plain_ok = fs_realpath(path, plain, sizeof plain);
    RunScope scope;
    for (int again = 0; again < 2; ++again) {
      char scoped[256] = "";
      EXPECT_EQ(plain_ok, fs_realpath(path, scoped, sizeof scoped)) << path;
      if (plain_ok) { EXPECT_STREQ(plain, scoped) << path; }
    }
  }
  // What they are: links followed inside the root, never out of it (the scope is checked above).
  const std::pair<const char*, const char*> expected[] = {
      {"/share/X/dir/b.txt", "/share/Public/dir/b.txt"}, {"/share/X/dir/back", "/share/Public/a.txt"},
      {"/share/Public/../Public/a.txt", "/share/Public/a.txt"}, {"/share/X/dir/none", nullptr},
      {"/share/Public/up/passwd", nullptr}, {"/share/Public/out/..", nullptr}};
  for (const auto& e : expected) {
    char out[256] = "";
    EXPECT_EQ(e.second != nullptr, fs_realpath(e.first, out, sizeof out)) << e.first;
    if (e.second != nullptr) { EXPECT_STREQ(e.second, out) << e.first; }
  }
}

}  // namespace
