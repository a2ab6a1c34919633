// A run scope caches what it saw; canonical paths come out as without it.
#include <gtest/gtest.h>
#include <unistd.h>
#include <memory>
#include <string>
#include <utility>
#include "platform/fs.h"
#include "platform/profile.h"
#include "platform/run_scope.h"
#include "support/appliance.h"

namespace {
std::string value(const char* section, const char* key, const char* file) {
  char out[64];
  Get_Private_Profile_String(section, key, "-", out, sizeof out, file);
  return out;
}
// Within a scope a file is read (or found missing) once, until the process writes it.
TEST(RunScope, ProfileFilesAreLookedAtOncePerScope) {
  ApplianceRoot root;
  ScopedEnv env{{{"SHARELINK_ROOT", root.dir()}}};
  const char *conf = "/etc/config/Korvix.conf", *late = "/etc/config/late.conf";
  auto seen = [&] { return value("A", "k", conf) + " " + value("B", "k", late) + " " + value("A", "j", conf); };
  root.write(conf, "[A]\nk = 1\n");
  {
    RunScope scope;
    EXPECT_TRUE(run_scope_active());
    EXPECT_EQ("1 - -", seen());
    root.write(conf, "[A]\nk = 22\n"), root.write(late, "[B]\nk = late\n");
    EXPECT_EQ("1 - -", seen());
    ASSERT_EQ(0, Set_Private_Profile_String("A", "j", "3", conf));
    EXPECT_EQ("22 - 3", seen());
    ASSERT_EQ(0, Set_Private_Profile_String("B", "k", "new", late));  // written: read again
    EXPECT_EQ("new", value("B", "k", late));
  }
  EXPECT_FALSE(run_scope_active());
  root.write(conf, "[A]\nk = 333\nj = 4\n");
  EXPECT_EQ("333 new 4", seen());
}
// Links followed inside the root, never out of it; each result the same under a scope, twice.
TEST(RunScope, CanonicalPathsAreTheSameAsWithoutIt) {
  ApplianceRoot root;
  ScopedEnv env{{{"SHARELINK_ROOT", root.dir()}}};
  root.write("/share/Public/dir/b.txt", "b");
  root.write("/share/Public/a.txt", "a");
  for (const auto& l : std::initializer_list<std::pair<const char*, const char*>>{
           {"link", "dir"}, {"dangling", "nowhere"}, {"out", "../../.."}, {"up", "/etc"}, {"../X", "Public"},
           {"dir/back", "../a.txt"}, {"loop", "loop"}}) {
    ASSERT_EQ(0, symlink(l.second, root.path(std::string("/share/Public/") + l.first).c_str())) << l.first;
  }
  const std::pair<const char*, const char*> cases[] = {  // the result, "-" for none
      {"/share/X/dir/back", "/share/Public/a.txt"}, {"/share/Public/../Public/a.txt", "/share/Public/a.txt"},
      {"/share//Public//a.txt", "/share/Public/a.txt"}, {"/share/X/link/b.txt", "/share/Public/dir/b.txt"},
      {"/share/Public/dir/..", "/share/Public"}, {"/share/Public/up/passwd", "-"}, {"/share/Public/out/..", "-"},
      {"/share/X/dir/none", "-"}, {"/share/Public/dangling", "-"}, {"/share/Public/loop/x", "-"}, {"relative/a", "-"}};
  for (int pass = 0; pass < 2; ++pass) {  // without a scope, then twice within one
    std::unique_ptr<RunScope> scope(pass == 1 ? new RunScope : nullptr);
    for (int again = 0; again <= pass; ++again) {
      for (const auto& c : cases) {
        char out[256] = "";
        bool ok = fs_realpath(c.first, out, sizeof out);
        EXPECT_EQ(c.second, ok ? std::string(out) : "-") << c.first << " pass " << pass;
      }
    }
  }
}
}  // namespace
