// Mode 1 end to end: real store, shipped template, stand-in and real sendmail.
#include <dirent.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <ctime>

#include "support/appliance.h"
#include "support/store_fixture.h"

extern char** environ;

namespace {

const char kTemplate[] = "/home/httpd/cgi-bin/html/email.tpl";

struct MailArgs {
  std::string count = "1", append = "0", ids = "AAA", to = "bob@x.example", subject = "Links", message = "Hello",
              line1 = "----", line2 = "", account = "", personal = "", sender = "";
};

std::string a_href(const std::string& id) { return "<a href=\"http://nas.example:8080/share.cgi?ssid=" + id + "\">"; }

class MailRun : public ::testing::Test {
 protected:
  void SetUp() override {
    root_.write("/etc/config/Korvix.conf", "[Alert]\nSMTP Server = 192.0.2.25\nSMTP Enable = 1\nSender = alerts@box.example\n"
                                           "[System]\nWeb Access Port = 8080\n[Stunnel]\nPort = 443\n");
    root_.write(kTemplate, read_file(source_path("data/email.tpl")));
    // Keeps its arguments and standard input as numbered files under /mailout.
    root_.script("/usr/sbin/sendmail", "d=\"$SHARELINK_ROOT/mailout\"; mkdir -p \"$d\"; i=1\n"
                                       "while [ -e \"$d/$i.args\" ]; do i=$((i+1)); done\n"
                                       "printf '%s\\n' \"$@\" > \"$d/$i.args\"\ncat > \"$d/$i.msg\"\n");
    make_store(root_);
    add_link("AAA", "/Public/docs/report.pdf", "Report");
    add_link("BBB", "/Public/b.txt", "Bee");
  }
  void add_link(const std::string& id, const std::string& sharefile, const std::string& name, int expire = 0,
                const std::string& host = "nas.example") {
    FixtureLink l(id, host);
    l.sharefile = sharefile, l.link_name = name, l.createtic = static_cast<int>(time(nullptr)) - 1000, l.expire = expire;
    insert_links(root_, {l});
  }
  // Runs mode 1, which prints nothing and leaves no message file behind.
  void run(const MailArgs& a) {
    RunResult r = run_program(tool_binary(), {"1", a.count, a.append, a.ids, a.to, a.subject, a.message, a.line1,
                                              a.line2, a.account, a.personal, a.sender},
                              root_, {{"HTTP_HOST", "box.example:8080"}});
    EXPECT_EQ(0, r.status) << r.err;
    EXPECT_EQ("", r.out);
    DIR* d = opendir(root_.path("/tmp").c_str());
    ASSERT_NE(nullptr, d);
    while (dirent* e = readdir(d)) EXPECT_NE(0, strncmp(e->d_name, "share_mail.html.", 16)) << e->d_name;
    closedir(d);
  }
  bool sent(int n) const { return root_.exists("/mailout/" + std::to_string(n) + ".args"); }
  std::string args(int n) const { return root_.read("/mailout/" + std::to_string(n) + ".args"); }
  std::string msg(int n) const { return root_.read("/mailout/" + std::to_string(n) + ".msg"); }
  // The body between the shipped template's <div> lines.
  std::string content(int n) const {
    std::string m = msg(n);
    size_t start = m.find("<div>\n"), end = m.find("\n</div>\n");
    return start == std::string::npos || end == std::string::npos || end < start ? "?" + m : m.substr(start + 6, end - start - 6);
  }
  bool has_line(int n, const std::string& line) const { return ("\n" + msg(n)).find("\n" + line + "\n") != std::string::npos; }

  ApplianceRoot root_;
};

TEST_F(MailRun, BodyLinesFollowTheIdsAndTheDetailLines) {
  add_link("CCC", "/Public/pics/c.jpg", "Sea");
  add_link("DDD", "/Public/d.txt", "");
  add_link("EEE", "/Public/a.txt", std::string(256, 'n'), 0, std::string(470, 'h'));
  const std::string long_line = "<a href=\"http://" + std::string(470, 'h') + ":8080/share.cgi?ssid=EEE\">" + std::string(256, 'n');
  const std::string numbered = "Hello<br>\n1. " + a_href("AAA") + "Report</a><br>\n2. " + a_href("BBB") + "b.txt</a><br>\n";
  const struct { const char *ids, *append, *line1, *line2; std::string content; } cases[] = {
      {"AAA,BBB,,CCC,DDD", "0", "----", "", numbered + "3. " + a_href("CCC") + "c.jpg</a><br>\n" + a_href("DDD") + " </a><br>\n"},
      {"NULL,AAA", "0", "----", "", "Hello<br>\n<a href=\"Share to You !\"> </a><br>\n" + a_href("AAA") + " </a><br>\n"},
      {"AAA,BBB", "0", "Valid for a week", "", "Hello<br>\nValid for a week<br>\nValid for a week<br>\n"},
      {"AAA,BBB", "1", "Valid for a week", "Code: 1234", "Hello<br>\nCode: 1234<br>\nCode: 1234<br>\n"},
      {"AAA,BBB", "1", "----", "", numbered},
      {"AAA,BBB", "1", "----", "Code: 99", "Hello<br>\nCode: 99<br>\nCode: 99<br>\n"},
      {"AAA,BBB", "0", "----", "Code: 99", numbered},  // line 2 needs append_line2
      {"EEE", "0", "----", "", "Hello<br>\n" + long_line.substr(0, 755 - 1 - 10)},  // cut at the body's size
  };
  int n = 0;
  for (const auto& c : cases) {
    MailArgs m;
    m.ids = c.ids, m.append = c.append, m.line1 = c.line1, m.line2 = c.line2;
    run(m);
    EXPECT_EQ(c.content, content(++n)) << c.ids << " " << c.line1 << " " << c.line2;
  }
}

// A missing link or "none@none" sends nothing, but the lookup purges expired links; then each
// recipient gets a message, with the sender and the account's arguments.
TEST_F(MailRun, MissingLinksNoneAtNoneRecipientsSendersAndAccounts) {
  add_link("OLD", "/Public/old.txt", "Old", static_cast<int>(time(nullptr)) - 60);
  add_link("NEW", "/Public/new.txt", "New", static_cast<int>(time(nullptr)) + 3600);
  MailArgs a;
  a.ids = "AAA,ZZZ";
  run(a);
  a.ids = "AAA"; a.to = "none@none";
  run(a);
  EXPECT_FALSE(sent(1));
  EXPECT_EQ("AAA,BBB,NEW", store_value(root_, "SELECT group_concat(pkey) FROM (SELECT pkey FROM SHARELINK_EVENT ORDER BY pkey)"));
  root_.write("/etc/config/ssmtp/ssmtp.conf", "# alert account\nAuthUser = mailer\n");
  a.to = "a@x.example, b@x.example"; a.sender = "carol@x.example";
  run(a);
  EXPECT_EQ("-au\nmailer\n-t\n", args(1));
  EXPECT_TRUE(has_line(1, "To: \"a\" <a@x.example>"));
  EXPECT_TRUE(has_line(1, "From: \"carol@x.example\" <carol@x.example>"));
  EXPECT_TRUE(has_line(2, "To: \"b\" <b@x.example>"));
  a.to = "c@, \r\r\r,d@x.example";  // "c@" has two characters; a blank item is none
  a.sender = "x\r\nBcc: victim@example.org";
  run(a);
  EXPECT_TRUE(has_line(3, "To: \"d\" <d@x.example>"));
  EXPECT_TRUE(has_line(3, "From: \"xBcc: victim@example.org\" <xBcc: victim@example.org>"));
  a.to = "bob@x.example"; a.sender = std::string(300, 's'); a.account = "personal"; a.personal = "root";
  run(a);
  EXPECT_EQ("-u\n0\n-t\n", args(4));
  EXPECT_TRUE(has_line(4, "From: \"" + std::string(63, 's') + "\" <" + std::string(63, 's') + ">")) << msg(4);  // cut
  a.to = "a@x.example,b@x.example"; a.account = a.personal = "";
  root_.write("/etc/config/Korvix.conf", "[Alert]\nSMTP Server = 192.0.2.25\nSMTP Enable = 0\n");
  run(a);
  EXPECT_FALSE(sent(5));
}

// Every placeholder filled, unknown ones dropped, one link unnumbered; the company line goes on
// other models; a long subject is cut to whole characters within 512 bytes before it is encoded
// (190 of 300 two-byte letters). The shipped template is checked through the real mail server below.
TEST_F(MailRun, TemplatePlaceholdersCompanyLineAndSubjectCut) {
  root_.write(kTemplate, "To: $MAIL_TO$\nFrom: $MAIL_FROM$\nX-Note: [$NOT_A_NAME$] $YEAR$ $5\n"
                         "Subject: $MAIL_SUBJECT_TXT$ $MAIL_SUBJECT$\n\n$CONTENT$--$VEXA$--\n");
  const time_t now = time(nullptr);
  struct tm local;
  const std::string head = "To: \"bob\" <bob@x.example>\nFrom: \"alerts\" <alerts@box.example>\nX-Note: [] " +
                           std::to_string(localtime_r(&now, &local)->tm_year + 1900) +
                           " $5\nSubject: Links =?UTF-8?B?TGlua3M=?=\n\nHello Bob,<br>here it is.<br>\n" + a_href("AAA") + "Report</a><br>\n--";
  MailArgs a;
  a.message = "Hello Bob,\nhere it is.";
  run(a);
  EXPECT_EQ("-t\n", args(1));
  EXPECT_EQ(head + "Vexa Systems Inc.\n--\n", msg(1));
  root_.write("/etc/IS_G", "");
  run(a);
  EXPECT_EQ(head + "--\n", msg(2));
  root_.write(kTemplate, "Subject: $MAIL_SUBJECT$\n");
  a.subject = "";
  for (int i = 0; i < 300; ++i) a.subject += "é";
  run(a);
  std::string b64;
  for (int i = 0; i < 63; ++i) b64 += "w6nDqcOp";  // three letters each
  EXPECT_EQ("Subject: =?UTF-8?B?" + b64 + "w6k=?=\n", msg(3));
}

// A real SMTP server that parses what arrives and writes, per message, its recipients, the parsed
// headers (with their defect count) and the content.
const char kSmtpServer[] = R"(import asyncio, io, os, sys
from aiosmtpd.smtp import SMTP
from email import policy
from email.parser import BytesParser
outdir, portfile = sys.argv[1], sys.argv[2]
class Handler:
    count = 0
    async def handle_DATA(self, server, session, envelope):
        self.count += 1
        m = BytesParser(policy=policy.default).parse(io.BytesIO(envelope.original_content))
        out = "".join(r + "\n" for r in envelope.rcpt_tos)
        for h in ("To", "From"):
            out += "%s %s\n" % (m[h].addresses[0].display_name, m[h].addresses[0].addr_spec)
        out += "%s\ndefects %d\n" % (m["Subject"], len(m.defects) + sum(len(m[h].defects) for h in ("To", "From", "Subject")))
        out += "%s %s\n%s" % (m.get_content_type(), m.get_content_charset(), m.get_content())
        open(os.path.join(outdir, str(self.count) + ".eml"), "w").write(out)
        return "250 Message accepted"
async def main():
    server = await asyncio.get_running_loop().create_server(lambda: SMTP(Handler()), "127.0.0.1", 0)
    open(portfile + ".part", "w").write(str(server.sockets[0].getsockname()[1]))
    os.rename(portfile + ".part", portfile)
    await asyncio.Event().wait()
asyncio.run(main())
)";

TEST_F(MailRun, DeliversThroughMsmtpToARealSmtpServer) {
  if (access("/usr/bin/msmtp", X_OK) != 0) GTEST_SKIP() << "msmtp is not installed";
  if (system("/usr/bin/python3 -c 'import aiosmtpd' >/dev/null 2>&1") != 0) GTEST_SKIP() << "python3-aiosmtpd is not installed";
  root_.write("/srv/smtpd.py", kSmtpServer);
  std::string script = root_.path("/srv/smtpd.py"), inbox = root_.path("/srv"), portfile = root_.path("/srv/port");
  char* argv[] = {const_cast<char*>("/usr/bin/python3"), &script[0], &inbox[0], &portfile[0], nullptr};
  pid_t pid = -1;
  ASSERT_EQ(0, posix_spawn(&pid, argv[0], nullptr, nullptr, argv, environ));
  struct Reaper { pid_t pid; ~Reaper() { kill(pid, SIGTERM), waitpid(pid, nullptr, 0); } } reaper{pid};  // always reaped
  for (int i = 0; i < 400 && !root_.exists("/srv/port") && waitpid(pid, nullptr, WNOHANG) == 0; ++i) usleep(50 * 1000);
  const std::string port = root_.read("/srv/port");
  ASSERT_FALSE(port.empty()) << "the SMTP server did not start";
  root_.write("/etc/msmtprc", "defaults\ntimeout 20\naccount default\nhost 127.0.0.1\nport " + port +
                                  "\nfrom alerts@box.example\nauth off\ntls off\n", 0600);
  root_.script("/usr/sbin/sendmail", "case \"$1\" in -au|-u) shift 2 ;; esac\n"
                                     "exec /usr/bin/msmtp -C \"$SHARELINK_ROOT/etc/msmtprc\" \"$@\"\n");
  root_.write("/etc/config/ssmtp/ssmtp.conf", "AuthUser = mailer\n");
  MailArgs a;
  a.ids = "AAA,BBB"; a.subject = "Grüße aus Köln – Dateien";
  run(a);
  ASSERT_TRUE(root_.exists("/srv/1.eml")) << "no message arrived";
  EXPECT_FALSE(root_.exists("/srv/2.eml"));
  const std::string got = root_.read("/srv/1.eml");
  EXPECT_EQ("bob@x.example\nbob bob@x.example\nalerts alerts@box.example\nGrüße aus Köln – Dateien\ndefects 0\n"
            "text/html utf-8\n", got.substr(0, got.find("<!DOCTYPE")));
  EXPECT_NE(std::string::npos, got.find("1. " + a_href("AAA") + "Report</a><br>\n2. " + a_href("BBB") + "b.txt</a><br>\n"));
}

}  // namespace
