#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>
#include <vector>

#include "mail/share_mail.h"
#include "platform/os.h"
#include "support/appliance.h"
#include "support/store_fixture.h"

namespace {

std::string br(const char* text, int length) {
  char* out = newlines_to_br(text, length);
  EXPECT_NE(nullptr, out);
  std::string s = out != nullptr ? out : "";
  free(out);
  return s;
}

TEST(CountLinkIds, CountsNonEmptyItems) {
  EXPECT_EQ(1, count_link_ids("AAA"));
  EXPECT_EQ(2, count_link_ids(",AAA,,NULL,"));
  EXPECT_EQ(0, count_link_ids(",,"));
  EXPECT_EQ(0, count_link_ids(""));
  EXPECT_EQ(0, count_link_ids(nullptr));
}

TEST(NewlinesToBr, ReplacesLineFeedsOfTheGivenLength) {
  EXPECT_EQ("Hi<br>two<br><br>", br("Hi\ntwo\n\n", 8));
  EXPECT_EQ("a<br>", br("a\nb", 2));
  EXPECT_EQ("<b>&amp;\r", br("<b>&amp;\r", 9));  // nothing else is escaped
  EXPECT_EQ("", br("abc", 0));
  EXPECT_EQ("", br("abc", -4));
  EXPECT_EQ("abc", br("abc", 100));  // never reads past the text's end
  EXPECT_EQ(nullptr, newlines_to_br(nullptr, 3));
}

// In-process runs against a real store; link hosts come from HTTP_HOST.
class ComposeMail : public ::testing::Test {
 protected:
  ComposeMail()
      : env_{{{"SHARELINK_ROOT", root_.dir()}, {"HTTP_HOST", "box.example:8080"}}} {
    root_.write("/etc/config/Korvix.conf",
                "[Alert]\nSMTP Server = 192.0.2.25\nSMTP Enable = 1\n"
                "[System]\nWeb Access Port = 8080\n[Stunnel]\nPort = 443\n");
  }
  ~ComposeMail() override { os_reset(); }
  void SetUp() override { make_store(root_); }

  void add_link(const char* id, const char* link_name, int expire) {
    FixtureLink l(id);
    l.sharefile = std::string("/Public/") + id + ".txt";
    l.link_name = link_name;
    l.createtic = static_cast<int>(time(nullptr)) - 1000;
    l.expire = expire;
    insert_links(root_, {l});
  }

  int compose(const char* ids, const char* recipients) {
    ids_ = ids;
    recipients_ = recipients;
    message_ = "Hi";
    ctx_.link_ids = &ids_[0];
    ctx_.link_ids_len = static_cast<int32_t>(ids_.size());
    ctx_.recipients = &recipients_[0];
    ctx_.recipients_len = static_cast<int32_t>(recipients_.size());
    ctx_.message = &message_[0];
    ctx_.message_len = 2;
    return compose_share_mail(&ctx_);
  }

  ApplianceRoot root_;
  ScopedEnv env_;
  RunContext ctx_{};
  std::string ids_, recipients_, message_;
};

TEST_F(ComposeMail, ResultFollowsTheLastPassAndTheFirstFailure) {
  add_link("AAA", "Report", 0);
  EXPECT_EQ(-20, compose(",,", "none@none"));
  EXPECT_EQ(0, compose("NULL,AAA", "none@none"));
  EXPECT_EQ(1, compose("AAA,NULL", "none@none"));
  EXPECT_EQ(2, ctx_.link_count);
  EXPECT_STREQ("NULL", ctx_.ssid);
  EXPECT_EQ(-2, compose("AAA,ZZZ,NULL", "none@none"));
  EXPECT_STREQ("ZZZ", ctx_.ssid);
  // An id of 41 characters cannot be read.
  EXPECT_EQ(-1, compose("AAA,12345678901234567890123456789012345678901", "none@none"));
  // A missing link ends the mail before anything is sent.
  root_.script("/usr/sbin/sendmail", "cat > \"$SHARELINK_ROOT/sent.msg\"\n");
  EXPECT_EQ(-2, compose("AAA,ZZZ", "bob@x.example"));
  EXPECT_FALSE(root_.exists("/sent.msg"));
  EXPECT_EQ(0, compose("AAA", "bob@x.example"));
  EXPECT_TRUE(root_.exists("/sent.msg"));
  // Delivery's failure (here: no mail program) is the result.
  root_.remove("/usr/sbin/sendmail");
  EXPECT_EQ(-20, compose("AAA", "bob@x.example"));
}

TEST_F(ComposeMail, LookupPurgesExpiredLinksAndPausesOnlyThen) {
  static std::vector<useconds_t> pauses;
  pauses.clear();
  os.usleep = [](useconds_t us) {
    pauses.push_back(us);
    return 0;
  };
  int now = static_cast<int>(time(nullptr));
  add_link("AAA", "Report", now + 3600);
  char url[512] = {0};
  ShareLinkRecord rec{};
  ASSERT_EQ(0, get_share_link("AAA", url, sizeof url, &rec));
  EXPECT_STREQ("Report", rec.link_name);
  EXPECT_STREQ("/Public/AAA.txt", rec.sharefile);
  EXPECT_EQ(0u, std::string(url).find("http://nas.example"));
  EXPECT_NE(std::string::npos, std::string(url).find("/share.cgi?ssid=AAA"));
  EXPECT_TRUE(pauses.empty());

  add_link("OLD", "", now - 10);
  EXPECT_EQ(-1, get_share_link("OLD", url, sizeof url, nullptr));
  ASSERT_EQ(1u, pauses.size());
  EXPECT_EQ(10000u, pauses[0]);
  EXPECT_EQ("AAA", store_value(root_, "SELECT group_concat(pkey) FROM SHARELINK_EVENT"));
  EXPECT_EQ(-1, get_share_link("ZZZ", url, sizeof url, nullptr));
}

}  // namespace
