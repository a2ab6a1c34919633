// Mail results no run of the tool shows: result codes, injected file failures, the first failed
// recipient, the lookup's pause. Whole messages are checked end to end in e2e/mail_test.
#include <dirent.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <functional>

#include "mail/mail_delivery.h"
#include "mail/share_mail.h"
#include "platform/os.h"
#include "support/appliance.h"
#include "support/store_fixture.h"

namespace {

// A stand-in mail program that keeps its arguments and standard input as numbered files under
// /mailout, and fails for recipients named fail@...
const char kStandIn[] =
    "d=\"$SHARELINK_ROOT/mailout\"; mkdir -p \"$d\"; i=1\n"
    "while [ -e \"$d/$i.args\" ]; do i=$((i+1)); done\n"
    "printf '%s\\n' \"$@\" > \"$d/$i.args\"\ncat > \"$d/$i.msg\"\n"
    "grep -q '^To: .*<fail@' \"$d/$i.msg\" && exit 3\nexit 0\n";
const char kAlertOn[] = "[Alert]\nSMTP Server = 192.0.2.25\nSMTP Enable = 1\n";

class Mail : public ::testing::Test {
 protected:
  Mail() : env_{{{"SHARELINK_ROOT", root_.dir()}, {"HTTP_HOST", "box.example:8080"}}} {
    root_.write("/etc/config/Korvix.conf", kAlertOn);
    root_.write(kMailTemplatePath, "To: $MAIL_TO$\n\n$CONTENT$\n");
    root_.script(kMailProgramPath, kStandIn);
  }
  ~Mail() override {  // no path leaves its message file behind
    os_reset();
    DIR* d = opendir(root_.path("/tmp").c_str());
    while (dirent* e = d ? readdir(d) : nullptr) EXPECT_NE(0, strncmp(e->d_name, "share_mail.html.", 16));
    if (d) closedir(d);
  }
  bool sent(int n) const { return root_.exists("/mailout/" + std::to_string(n) + ".args"); }
  int send(const char* to) { return send_share_mail("s", "b", "", to, nullptr, &ctx_); }

  ApplianceRoot root_;
  ScopedEnv env_;
  RunContext ctx_{};
};

// Each step changes the appliance and sends once; the stand-in keeps what reached it.
TEST_F(Mail, SendReportsEachReasonForNotSending) {
  auto conf = [&](const char* text) { return [this, text] { root_.write("/etc/config/Korvix.conf", text); }; };
  const struct { std::function<void()> change; const char* to; int result; } steps[] = {
      {[] {}, "", 2},
      {[] {}, nullptr, 2},
      {[] {}, "fail@x.example", 3 << 8},  // the raw wait status
      {conf("[Alert]\nSMTP Server = 192.0.2.25\nSMTP Enable = 0\n"), "bob@x.example", -1},
      {conf("[Alert]\nSMTP Enable = 1\n"), "bob@x.example", 1},
      {[this] {
         root_.write("/etc/config/Korvix.conf", kAlertOn);
         snprintf(ctx_.account_type, sizeof ctx_.account_type, "personal");
         snprintf(ctx_.personal_account, sizeof ctx_.personal_account, "no-such-user-slt");
       }, "bob@x.example", -1},
      // A message file that cannot be written or flushed is not sent.
      {[] { os.fopen = [](const char* p, const char* m) { return strstr(p, "share_mail.html.") ? (errno = ENOSPC, nullptr) : fopen(p, m); }; },
       "bob@x.example", 3},
      {[] { os.ferror = [](FILE*) { return 1; }; }, "bob@x.example", 3},
      // Without a template the message is empty and goes out all the same.
      {[this] { root_.remove(kMailTemplatePath); }, "bob@x.example", 0},
      // A program that cannot be executed ends like a child that exited 1.
      {[this] { root_.remove(kMailProgramPath); }, "bob@x.example", 1 << 8},
  };
  for (const auto& step : steps) {
    os_reset();
    ctx_ = RunContext{};
    step.change();
    EXPECT_EQ(step.result, send(step.to)) << (step.to ? step.to : "null") << " expecting " << step.result;
  }
  EXPECT_TRUE(sent(2));
  EXPECT_EQ("", root_.read("/mailout/2.msg"));
  EXPECT_FALSE(sent(3));
}

// Compose stops at a missing link or the first failed recipient.
TEST_F(Mail, ComposeResultFollowsTheLastPassAndTheFirstFailure) {
  make_store(root_);
  insert_links(root_, {FixtureLink("AAA")});
  const struct { const char* ids; const char* to; int result; const char* last; } cases[] = {
      {",,", "none@none", -20, nullptr},
      {"NULL,AAA", "none@none", 0, "AAA"},
      {"AAA,NULL", "none@none", 1, "NULL"},
      {"AAA,ZZZ,NULL", "none@none", -2, "ZZZ"},
      {"AAA,12345678901234567890123456789012345678901", "none@none", -1, nullptr},  // 41 characters
      {"AAA,ZZZ", "bob@x.example", -2, "ZZZ"},  // a missing link: nothing is sent
      {"AAA", "bob@x.example", 0, "AAA"},
      {"AAA", "fail@x.example", -20, "AAA"},  // delivery's failure is the result
      {"AAA", "d@x.example,fail@x.example,e@x.example", -20, "AAA"},  // e is never mailed
      {"AAA", ",\n,", -20, "AAA"},  // delivery needs a recipient
      {"AAA", "ab,c", -20, "AAA"},
  };
  for (const auto& c : cases) {
    std::string ids = c.ids, to = c.to, message = "Hi";
    ctx_ = RunContext{};
    ctx_.link_ids = &ids[0], ctx_.link_ids_len = static_cast<int32_t>(ids.size());
    ctx_.recipients = &to[0], ctx_.recipients_len = static_cast<int32_t>(to.size());
    ctx_.message = &message[0], ctx_.message_len = 2;
    EXPECT_EQ(c.result, compose_share_mail(&ctx_)) << c.ids << " " << c.to;
    if (c.last != nullptr) { EXPECT_STREQ(c.last, ctx_.ssid) << c.ids; }
  }
  ctx_ = RunContext{};
  EXPECT_TRUE(sent(4));
  EXPECT_FALSE(sent(5));
}

// The lookup pauses only after purging expired links.
TEST_F(Mail, LookupPausesOnlyAfterAPurge) {
  static std::vector<useconds_t> pauses;
  pauses.clear();
  os.usleep = [](useconds_t us) { return pauses.push_back(us), 0; };
  char url[512] = {0};
  make_store(root_);
  FixtureLink live("AAA"), old("OLD");
  live.expire = static_cast<int>(time(nullptr)) + 3600, old.expire = static_cast<int>(time(nullptr)) - 10;
  insert_links(root_, {live});
  ShareLinkRecord rec{};
  ASSERT_EQ(0, get_share_link("AAA", url, sizeof url, &rec));
  EXPECT_TRUE(pauses.empty());
  insert_links(root_, {old});
  EXPECT_EQ(-1, get_share_link("OLD", url, sizeof url, nullptr));
  EXPECT_EQ(std::vector<useconds_t>{10000}, pauses);
}

}  // namespace
