#include <dirent.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "mail/mail_delivery.h"
#include "platform/os.h"
#include "support/appliance.h"

namespace {

std::string fill(const char* name, const MailHeader& h) {
  char* data = nullptr;
  size_t len = 0;
  FILE* f = open_memstream(&data, &len);
  EXPECT_EQ(0, fill_placeholder(f, name, &h));
  fclose(f);
  std::string out(data, len);
  free(data);
  return out;
}

TEST(Strstrip, SplitsAtTheFirstPairOfDollars) {
  char line[] = "To: $MAIL_TO$ and $X$ end";
  char* rest = nullptr;
  char* name = strstrip(line, '$', &rest);
  ASSERT_NE(nullptr, name);
  EXPECT_STREQ("To: ", line);
  EXPECT_STREQ("MAIL_TO", name);
  EXPECT_STREQ(" and $X$ end", rest);

  char empty[] = "a$$b";
  name = strstrip(empty, '$', &rest);
  ASSERT_NE(nullptr, name);
  EXPECT_STREQ("", name);
  EXPECT_STREQ("b", rest);

  char single[] = "costs $5\n";
  rest = nullptr;
  EXPECT_EQ(nullptr, strstrip(single, '$', &rest));
  EXPECT_STREQ("costs $5\n", single);
  EXPECT_EQ(nullptr, rest);
  EXPECT_EQ(nullptr, strstrip(nullptr, '$', &rest));
}

TEST(TrimText, TrimsInPlaceOrIntoOut) {
  char text[] = " \t a@x.example \r\n\t ";
  char out[8];
  EXPECT_EQ(7, trim_text(text, out, sizeof out));  // cut at the bound
  EXPECT_STREQ("a@x.exa", out);
  EXPECT_STREQ(" \t a@x.example \r\n\t ", text);
  EXPECT_EQ(11, trim_text(text, nullptr, sizeof text));
  EXPECT_STREQ("a@x.example", text);

  char lead[] = "\r\nkeep";  // leading CR/LF are not blanks
  trim_text(lead, nullptr, sizeof lead);
  EXPECT_STREQ("\r\nkeep", lead);
  char blank[] = " \t\r\n";
  EXPECT_EQ(0, trim_text(blank, nullptr, sizeof blank));
  EXPECT_STREQ("", blank);
}

TEST(FillPlaceholder, WritesEveryKnownName) {
  ApplianceRoot root;
  ScopedEnv env{{{"SHARELINK_ROOT", root.dir()}}};
  MailHeader h{};
  snprintf(h.to_name, sizeof h.to_name, "bob");
  snprintf(h.to_address, sizeof h.to_address, "bob@x.example");
  snprintf(h.from_name, sizeof h.from_name, "alice");
  snprintf(h.from_address, sizeof h.from_address, "alice@x.example");
  snprintf(h.subject, sizeof h.subject, "Grüße");
  h.content = "body<br>\n$CONTENT$";

  EXPECT_EQ("\"bob\" <bob@x.example>", fill("MAIL_TO", h));
  EXPECT_EQ("\"alice\" <alice@x.example>", fill("MAIL_FROM", h));
  EXPECT_EQ("=?UTF-8?B?R3LDvMOfZQ==?=", fill("MAIL_SUBJECT", h));
  EXPECT_EQ("Grüße", fill("MAIL_SUBJECT_TXT", h));
  EXPECT_EQ("body<br>\n$CONTENT$", fill("CONTENT", h));  // not scanned again
  EXPECT_EQ("", fill("MAIL_TO ", h));
  EXPECT_EQ("", fill("UNKNOWN", h));

  h.from_address[0] = '\0';
  EXPECT_EQ("\"alice\" <alice>", fill("MAIL_FROM", h));

  os.time = [](time_t* t) -> time_t {
    if (t) *t = 1720000000;  // July 2024 in every time zone
    return 1720000000;
  };
  EXPECT_EQ("2024", fill("YEAR", h));
  os_reset();

  EXPECT_EQ("Vexa Systems Inc.\n", fill("VEXA", h));
  root.write("/etc/IS_G", "");
  EXPECT_EQ("", fill("VEXA", h));
}

TEST(FillPlaceholder, HeaderValuesCannotStartANewHeader) {
  MailHeader h{};
  snprintf(h.to_name, sizeof h.to_name, "a\r\nBcc: v@x.example");
  snprintf(h.to_address, sizeof h.to_address, "a@x.example\nCc: w@x.example");
  snprintf(h.from_name, sizeof h.from_name, "x\r\nBcc: victim@example.org");
  snprintf(h.subject, sizeof h.subject, "hi\r\nBcc: victim@example.org");
  EXPECT_EQ("\"aBcc: v@x.example\" <a@x.exampleCc: w@x.example>", fill("MAIL_TO", h));
  EXPECT_EQ("\"xBcc: victim@example.org\" <xBcc: victim@example.org>", fill("MAIL_FROM", h));
  EXPECT_EQ("hiBcc: victim@example.org", fill("MAIL_SUBJECT_TXT", h));
}

TEST(FillPlaceholder, LongSubjectIsCutWholeCharactersInto512Bytes) {
  MailHeader h{};
  std::string subject;
  for (int i = 0; i < 300; ++i) subject += "é";  // 600 bytes
  snprintf(h.subject, sizeof h.subject, "%s", subject.c_str());
  std::string word = fill("MAIL_SUBJECT", h);
  ASSERT_EQ(0u, word.rfind("=?UTF-8?B?", 0));
  std::string b64 = word.substr(10, word.size() - 12);
  EXPECT_LE(b64.size(), 511u);
  // 381 bytes would split a character: 380 bytes (190 letters) are encoded.
  EXPECT_EQ(380u / 3 * 4 + 4, b64.size());
  EXPECT_EQ("w6k=", b64.substr(b64.size() - 4));
}

// A stand-in mail program that keeps its arguments and standard input as
// numbered files under /mailout, and fails for recipients named fail@...
const char kStandIn[] =
    "d=\"$SHARELINK_ROOT/mailout\"; mkdir -p \"$d\"; i=1\n"
    "while [ -e \"$d/$i.args\" ]; do i=$((i+1)); done\n"
    "printf '%s\\n' \"$@\" > \"$d/$i.args\"\n"
    "cat > \"$d/$i.msg\"\n"
    "grep -q '^To: .*<fail@' \"$d/$i.msg\" && exit 3\n"
    "exit 0\n";

class SendMail : public ::testing::Test {
 protected:
  SendMail() : env_{{{"SHARELINK_ROOT", root_.dir()}}} {
    root_.write("/etc/config/Korvix.conf",
                "[Alert]\nSMTP Server = 192.0.2.25\nSMTP Enable = 1\n");
    root_.write(kMailTemplatePath,
                "To: $MAIL_TO$\nFrom: $MAIL_FROM$\nSubject: $MAIL_SUBJECT_TXT$\n\n$CONTENT$|$NOPE$|\n");
    root_.script(kMailProgramPath, kStandIn);
  }
  ~SendMail() override { os_reset(); }

  std::string args(int n) const { return root_.read("/mailout/" + std::to_string(n) + ".args"); }
  std::string msg(int n) const { return root_.read("/mailout/" + std::to_string(n) + ".msg"); }
  bool sent(int n) const { return root_.exists("/mailout/" + std::to_string(n) + ".args"); }
  // Names left in /tmp by the mail (none should be).
  std::vector<std::string> leftovers() const {
    std::vector<std::string> names;
    DIR* d = opendir(root_.path("/tmp").c_str());
    while (dirent* e = d ? readdir(d) : nullptr) {
      if (strncmp(e->d_name, "share_mail.html.", 16) == 0) names.push_back(e->d_name);
    }
    if (d) closedir(d);
    return names;
  }

  ApplianceRoot root_;
  ScopedEnv env_;
  RunContext ctx_{};
};

// Without an alert sender the recipient is also the sender.
TEST_F(SendMail, FillsTheTemplateAndRunsTheMailProgram) {
  EXPECT_EQ(0, send_share_mail("Hi", "<b>x</b>", "", "bob@x.example", nullptr, &ctx_));
  EXPECT_EQ("-t\n", args(1));
  EXPECT_EQ(
      "To: \"bob\" <bob@x.example>\nFrom: \"bob\" <bob@x.example>\nSubject: Hi\n\n<b>x</b>||\n",
      msg(1));
  EXPECT_TRUE(leftovers().empty());
}

TEST_F(SendMail, PersonalAccountUsesItsUserId) {
  snprintf(ctx_.account_type, sizeof ctx_.account_type, "personal");
  snprintf(ctx_.personal_account, sizeof ctx_.personal_account, "root");
  root_.write("/etc/config/Korvix.conf", "[Alert]\nSMTP Server = 192.0.2.25\n");  // alert off
  EXPECT_EQ(0, send_share_mail("s", "b", "", "bob@x.example", nullptr, &ctx_));
  EXPECT_EQ("-u\n0\n-t\n", args(1));

  snprintf(ctx_.personal_account, sizeof ctx_.personal_account, "no-such-user-slt");
  EXPECT_EQ(-1, send_share_mail("s", "b", "", "bob@x.example", nullptr, &ctx_));
  EXPECT_FALSE(sent(2));
  EXPECT_TRUE(leftovers().empty());
}

TEST_F(SendMail, ReportsEachReasonForNotSending) {
  EXPECT_EQ(2, send_share_mail("s", "b", "", "", nullptr, &ctx_));
  EXPECT_EQ(2, send_share_mail("s", "b", "", nullptr, nullptr, &ctx_));

  // The mail program's raw wait status comes back as it is.
  EXPECT_EQ(3 << 8, send_share_mail("s", "b", "", "fail@x.example", nullptr, &ctx_));

  root_.write("/etc/config/Korvix.conf", "[Alert]\nSMTP Server = 192.0.2.25\nSMTP Enable = 0\n");
  EXPECT_EQ(-1, send_share_mail("s", "b", "", "bob@x.example", nullptr, &ctx_));
  root_.write("/etc/config/Korvix.conf", "[Alert]\nSMTP Enable = 1\n");
  EXPECT_EQ(1, send_share_mail("s", "b", "", "bob@x.example", nullptr, &ctx_));
  EXPECT_FALSE(sent(2));
  root_.write("/etc/config/Korvix.conf", "[Alert]\nSMTP Server = 192.0.2.25\nSMTP Enable = 1\n");

  // A program that cannot be executed ends like a child that exited 1.
  root_.remove(kMailProgramPath);
  EXPECT_EQ(1 << 8, send_share_mail("s", "b", "", "bob@x.example", nullptr, &ctx_));
  EXPECT_TRUE(leftovers().empty());
}

TEST_F(SendMail, AMessageFileThatCannotBeWrittenIsNotSent) {
  os.fopen = [](const char* path, const char* mode) -> FILE* {
    if (strstr(path, "share_mail.html.") != nullptr) {
      errno = ENOSPC;
      return nullptr;
    }
    return fopen(path, mode);
  };
  EXPECT_EQ(3, send_share_mail("s", "b", "", "bob@x.example", nullptr, &ctx_));
  os_reset();
  os.ferror = [](FILE*) { return 1; };
  EXPECT_EQ(3, send_share_mail("s", "b", "", "bob@x.example", nullptr, &ctx_));
  os_reset();
  EXPECT_FALSE(sent(1));
  EXPECT_TRUE(leftovers().empty());

  // Without a template the message is empty and goes out all the same.
  root_.remove(kMailTemplatePath);
  EXPECT_EQ(0, send_share_mail("s", "b", "", "bob@x.example", nullptr, &ctx_));
  EXPECT_EQ("", msg(1));
}

TEST_F(SendMail, DeliverSplitsTrimsSkipsAndStopsAtTheFirstFailure) {
  char list[] = " a@x.example\n\tab ,,c@x.example \r\n";
  ctx_.recipients = list;
  ctx_.recipients_len = static_cast<int32_t>(strlen(list));
  EXPECT_EQ(0, deliver_share_mail("s", "b", "", "", &ctx_));
  EXPECT_NE(std::string::npos, msg(1).find("To: \"a\" <a@x.example>\n"));
  EXPECT_NE(std::string::npos, msg(2).find("To: \"c\" <c@x.example>\n"));  // "ab" skipped
  EXPECT_FALSE(sent(3));

  char failing[] = "d@x.example,fail@x.example,e@x.example";
  ctx_.recipients = failing;
  ctx_.recipients_len = static_cast<int32_t>(strlen(failing));
  EXPECT_EQ(-20, deliver_share_mail("s", "b", "", "", &ctx_));
  EXPECT_TRUE(sent(4));   // d, then fail
  EXPECT_FALSE(sent(5));  // e never mailed
  EXPECT_TRUE(leftovers().empty());

  char none[] = ",\n,";
  ctx_.recipients = none;
  ctx_.recipients_len = 3;
  EXPECT_EQ(-20, deliver_share_mail("s", "b", "", "", &ctx_));
  char short_only[] = "ab,c";
  ctx_.recipients = short_only;
  ctx_.recipients_len = 4;
  EXPECT_EQ(-20, deliver_share_mail("s", "b", "", "", &ctx_));
  ctx_.recipients = nullptr;
  EXPECT_EQ(-20, deliver_share_mail("s", "b", "", "", &ctx_));
  EXPECT_FALSE(sent(5));
}

TEST_F(SendMail, DeliverKeepsAtMostTwentyRecipients) {
  std::string list;
  for (int i = 1; i <= 25; ++i) list += "u" + std::to_string(i) + "@x.example,";
  ctx_.recipients = &list[0];
  ctx_.recipients_len = static_cast<int32_t>(list.size());
  EXPECT_EQ(0, deliver_share_mail("s", "b", "", "", &ctx_));
  EXPECT_NE(std::string::npos, msg(20).find("<u20@x.example>"));
  EXPECT_FALSE(sent(21));
}

}  // namespace
