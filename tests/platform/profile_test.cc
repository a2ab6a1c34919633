#include "platform/profile.h"
#include <gtest/gtest.h>
#include "support/appliance.h"

namespace {
class ProfileTest : public ::testing::Test {
 protected:
  ApplianceRoot root;
  ScopedEnv env{{{"SHARELINK_ROOT", root.dir()}}};
};
TEST_F(ProfileTest, ReadsSectionsKeysCaseAndDefaults) {
  const char* ini = "/etc/config/a.ini";
  root.write(ini, "top = level\r\n[System]\n  Web Access Port =  8081 \r\n; comment = no\n# also = no\n"
                  "garbage line\ndup = first\ndup = second\n"
                  "[Other]\nflag = Yes\nbad = maybe\nnum = 12abc\nempty =\n");
  const struct { const char* section; const char* key; const char* out; int n; } strings[] = {
      {"system", "web access port", "8081", 4}, {"", "top", "level", 5}, {"System", "dup", "first", 5},
      {"System", "; comment", "dflt", 4}, {"System", "# also", "dflt", 4}};
  char out[64];
  for (const auto& s : strings) {
    EXPECT_EQ(s.n, Get_Private_Profile_String(s.section, s.key, "dflt", out, sizeof out, ini)) << s.key;
    EXPECT_STREQ(s.out, out) << s.key;
  }
  EXPECT_EQ(3, Get_Private_Profile_String("System", "nope", "abcdef", out, 4, ini));
  EXPECT_STREQ("abc", out);
  EXPECT_EQ(1, Get_Private_Profile_Boolean("OTHER", "flag", 0, ini));
  EXPECT_EQ(7, Get_Private_Profile_Boolean("Other", "bad", 7, ini));
  EXPECT_EQ(12, Get_Private_Profile_Integer("Other", "num", 5, ini));
  EXPECT_EQ(5, Get_Private_Profile_Integer("Other", "empty", 5, ini));
  EXPECT_EQ(9, Get_Private_Profile_Integer("Other", "x", 9, "/etc/config/missing.ini"));
  EXPECT_EQ(-1, Conf_Get_Field_NoLock(ini, "Other", "none", out, sizeof out));
  EXPECT_STREQ("", out);
}

}  // namespace
