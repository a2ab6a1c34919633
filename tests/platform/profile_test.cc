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
  root.write("/etc/config/a.ini",
             "top = level\r\n"
             "[System]\n"
             "  Web Access Port =  8081 \r\n"
             "; comment = no\n"
             "# also = no\n"
             "garbage line\n"
             "dup = first\n"
             "dup = second\n"
             "[Other]\n"
             "flag = Yes\n"
             "bad = maybe\n"
             "num = 12abc\n"
             "empty =\n");
  char out[64];
  EXPECT_EQ(4, Get_Private_Profile_String("system", "web access port", "x", out, sizeof out,
                                          "/etc/config/a.ini"));
  EXPECT_STREQ("8081", out);
  Get_Private_Profile_String("", "top", "x", out, sizeof out, "/etc/config/a.ini");
  EXPECT_STREQ("level", out);
  Get_Private_Profile_String("System", "dup", "x", out, sizeof out, "/etc/config/a.ini");
  EXPECT_STREQ("first", out);
  Get_Private_Profile_String("System", "; comment", "dflt", out, sizeof out, "/etc/config/a.ini");
  EXPECT_STREQ("dflt", out);
  EXPECT_EQ(3, Get_Private_Profile_String("System", "nope", "abcdef", out, 4, "/etc/config/a.ini"));
  EXPECT_STREQ("abc", out);
  EXPECT_EQ(1, Get_Private_Profile_Boolean("OTHER", "flag", 0, "/etc/config/a.ini"));
  EXPECT_EQ(7, Get_Private_Profile_Boolean("Other", "bad", 7, "/etc/config/a.ini"));
  EXPECT_EQ(12, Get_Private_Profile_Integer("Other", "num", 5, "/etc/config/a.ini"));
  EXPECT_EQ(5, Get_Private_Profile_Integer("Other", "empty", 5, "/etc/config/a.ini"));
  EXPECT_EQ(9, Get_Private_Profile_Integer("Other", "x", 9, "/etc/config/missing.ini"));
  EXPECT_EQ(-1, Conf_Get_Field_NoLock("/etc/config/a.ini", "Other", "none", out, sizeof out));
  EXPECT_STREQ("", out);
}

TEST_F(ProfileTest, WriterKeepsOtherLinesAndSeesChanges) {
  const std::string before =
      "; head\n[Depot]\nA = 1\n\n[Stunnel]\nPort = 443\n";
  root.write("/etc/config/Korvix.conf", before);
  char out[64];
  GetProfileString("Stunnel", "Port", "", out, sizeof out);
  EXPECT_STREQ("443", out);
  ASSERT_EQ(0, Set_Profile_String("stunnel", "port", "8443"));
  ASSERT_EQ(0, Set_Profile_String("Depot", "Share_Link_Db", "/share/x.db"));
  ASSERT_EQ(0, Set_Profile_String("New", "k", "v"));
  EXPECT_EQ("; head\n[Depot]\nA = 1\nShare_Link_Db = /share/x.db\n\n[Stunnel]\nPort = 8443\n[New]\nk = v\n",
            root.read("/etc/config/Korvix.conf"));
  GetProfileString("Stunnel", "Port", "", out, sizeof out);
  EXPECT_STREQ("8443", out);
  ASSERT_EQ(0, Set_Private_Profile_String("S", "k", "v", "/etc/config/created.ini"));
  EXPECT_EQ("[S]\nk = v\n", root.read("/etc/config/created.ini"));
}

TEST_F(ProfileTest, FileRootedOnlyUnderTheRoot) {
  root.write("/etc/config/Korvix.conf", "[System]\nWeb Access Port = 1234\n");
  char out[16];
  GetProfileString("System", "Web Access Port", "", out, sizeof out);
  EXPECT_STREQ("1234", out);
  ScopedEnv other{{{"SHARELINK_ROOT", root.dir() + "/nowhere"}}};
  GetProfileString("System", "Web Access Port", "none", out, sizeof out);
  EXPECT_STREQ("none", out);
}

}  // namespace
