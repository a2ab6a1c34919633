#include "registry/share_url.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "support/appliance.h"

namespace {

class ShareUrlTest : public ::testing::Test {
 protected:
  void SetUp() override {
    share_url_forget_port();
    memset(host, 0, sizeof host);
    memset(ssid, 0, sizeof ssid);
  }
  void TearDown() override { share_url_forget_port(); }
  int parse(const char* url) { return parse_share_url(url, host, sizeof host, ssid, sizeof ssid); }

  ApplianceRoot root;
  ScopedEnv env{{{"SHARELINK_ROOT", root.dir()}}};
  char host[513];
  char ssid[96];
};

TEST_F(ShareUrlTest, HttpsWithTheStandardPortEndsTheHostAtTheFirstSlash) {
  EXPECT_EQ(0, parse("https://nas.example:8443/share.cgi?a=1&ssid=AbC"));
  EXPECT_STREQ("nas.example:8443", host);
  EXPECT_STREQ("AbC", ssid);
}

TEST_F(ShareUrlTest, HttpsWithAnotherPortEndsTheHostAtTheFirstColon) {
  root.write("/etc/config/Korvix.conf", "[Stunnel]\nPort = 8443\n");
  EXPECT_EQ(0, parse("https://nas.example:8443/share.cgi?ssid=AbC"));
  EXPECT_STREQ("nas.example", host);
  // The port is read once per process.
  root.write("/etc/config/Korvix.conf", "[Stunnel]\nPort = 443\n");
  memset(host, 0, sizeof host);
  EXPECT_EQ(0, parse("https://other:1/x?ssid=AbC"));
  EXPECT_STREQ("other", host);
  share_url_forget_port();
  memset(host, 0, sizeof host);
  EXPECT_EQ(0, parse("https://other:1/x?ssid=AbC"));
  EXPECT_STREQ("other:1", host);
}

TEST_F(ShareUrlTest, HttpNeedsAPortForItsHost) {
  EXPECT_EQ(0, parse("http://10.0.0.5:8080/share.cgi?ssid=Q1"));
  EXPECT_STREQ("10.0.0.5", host);
  EXPECT_STREQ("Q1", ssid);
  memset(host, 0, sizeof host);
  EXPECT_EQ(0, parse("http://10.0.0.5/share.cgi?ssid=Q2"));
  EXPECT_STREQ("", host);
  EXPECT_STREQ("Q2", ssid);
}

TEST_F(ShareUrlTest, OutputsAreOverwrittenNeverCleared) {
  EXPECT_EQ(0, parse("http://longhostname:80/share.cgi?ssid=LONGID"));
  EXPECT_EQ(0, parse("http://ab:80/share.cgi?ssid=XY"));
  EXPECT_STREQ("abnghostname", host);
  EXPECT_STREQ("XYNGID", ssid);
  // Without "ssid=" or a separator nothing is written.
  EXPECT_EQ(0, parse("http://nohost/share.cgi?id=1"));
  EXPECT_STREQ("abnghostname", host);
  EXPECT_STREQ("XYNGID", ssid);
  EXPECT_EQ(-1, parse(""));
  EXPECT_EQ(-1, parse(nullptr));
  EXPECT_STREQ("XYNGID", ssid);
}

TEST_F(ShareUrlTest, OddAndOversizedUrlsStayInBounds) {
  EXPECT_EQ(0, parse("https"));
  EXPECT_STREQ("", host);
  std::string id(300, 'i');
  std::string big_host(2000, 'h');
  EXPECT_EQ(0, parse(("http://" + big_host + ":1/?ssid=" + id).c_str()));
  // The host lies beyond the 511 bytes looked at: no separator, no host.
  EXPECT_STREQ("", host);
  EXPECT_EQ(std::string(95, 'i'), ssid);
  EXPECT_EQ(0, parse(("http://" + std::string(500, 'h') + ":1/?ssid=x").c_str()));
  EXPECT_EQ(std::string(500, 'h'), host);
}

}  // namespace
