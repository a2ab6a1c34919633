#include "registry/share_url.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "support/appliance.h"

namespace {

class ShareUrlTest : public ::testing::Test {
 protected:
  void SetUp() override { share_url_forget_port(); }
  void TearDown() override { share_url_forget_port(); }
  // Parses url into buffers that are cleared first unless `keep`.
  int parse(const std::string& url, bool keep = false) {
    if (!keep) {
      memset(host, 0, sizeof host);
      memset(ssid, 0, sizeof ssid);
    }
    return parse_share_url(url.c_str(), host, sizeof host, ssid, sizeof ssid);
  }

  ApplianceRoot root;
  ScopedEnv env{{{"SHARELINK_ROOT", root.dir()}}};
  char host[513];
  char ssid[96];
};

TEST_F(ShareUrlTest, Table) {
  const std::string id(300, 'i');
  const struct {
    std::string url;
    std::string host;
    std::string ssid;
  } cases[] = {
      // https with the standard port ends the host at the first slash.
      {"https://nas.example:8443/share.cgi?a=1&ssid=AbC", "nas.example:8443", "AbC"},
      // http needs a port for its host.
      {"http://10.0.0.5:8080/share.cgi?ssid=Q1", "10.0.0.5", "Q1"},
      {"http://10.0.0.5/share.cgi?ssid=Q2", "", "Q2"},
      {"https", "", ""},
      // A host beyond the 511 bytes looked at: no separator, no host.
      {"http://" + std::string(2000, 'h') + ":1/?ssid=" + id, "", std::string(95, 'i')},
      {"http://" + std::string(500, 'h') + ":1/?ssid=x", std::string(500, 'h'), "x"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(0, parse(c.url)) << c.url.substr(0, 60);
    EXPECT_EQ(c.host, host) << c.url.substr(0, 60);
    EXPECT_EQ(c.ssid, ssid) << c.url.substr(0, 60);
  }
}

TEST_F(ShareUrlTest, HttpsWithAnotherPortEndsTheHostAtTheFirstColonReadOnce) {
  root.write("/etc/config/Korvix.conf", "[Stunnel]\nPort = 8443\n");
  EXPECT_EQ(0, parse("https://nas.example:8443/share.cgi?ssid=AbC"));
  EXPECT_STREQ("nas.example", host);
  root.write("/etc/config/Korvix.conf", "[Stunnel]\nPort = 443\n");
  EXPECT_EQ(0, parse("https://other:1/x?ssid=AbC"));
  EXPECT_STREQ("other", host);
  share_url_forget_port();
  EXPECT_EQ(0, parse("https://other:1/x?ssid=AbC"));
  EXPECT_STREQ("other:1", host);
}

TEST_F(ShareUrlTest, OutputsAreOverwrittenNeverCleared) {
  EXPECT_EQ(0, parse("http://longhostname:80/share.cgi?ssid=LONGID"));
  EXPECT_EQ(0, parse("http://ab:80/share.cgi?ssid=XY", true));
  EXPECT_STREQ("abnghostname", host);
  EXPECT_STREQ("XYNGID", ssid);
  // Without "ssid=" or a separator nothing is written.
  EXPECT_EQ(0, parse("http://nohost/share.cgi?id=1", true));
  EXPECT_EQ(-1, parse("", true));
  EXPECT_EQ(-1, parse_share_url(nullptr, host, sizeof host, ssid, sizeof ssid));
  EXPECT_STREQ("abnghostname", host);
  EXPECT_STREQ("XYNGID", ssid);
}

}  // namespace
