// Mode 1 end to end: the built tool against a real store, the shipped mail
// template and a stand-in (or, in the last test, a real) sendmail.
#include <dirent.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <ctime>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "support/appliance.h"
#include "support/store_fixture.h"

extern char** environ;

namespace {

const char kTemplate[] = "/home/httpd/cgi-bin/html/email.tpl";
const char kConf[] =
    "[Alert]\nSMTP Server = 192.0.2.25\nSMTP Enable = 1\nSender = alerts@box.example\n"
    "[System]\nWeb Access Port = 8080\n[Stunnel]\nPort = 443\n";

// Keeps each call's arguments and standard input as /mailout/<n>.args and
// /mailout/<n>.msg of the appliance root.
const char kStandInSendmail[] =
    "d=\"$SHARELINK_ROOT/mailout\"; mkdir -p \"$d\"; i=1\n"
    "while [ -e \"$d/$i.args\" ]; do i=$((i+1)); done\n"
    "printf '%s\\n' \"$@\" > \"$d/$i.args\"\n"
    "cat > \"$d/$i.msg\"\n";

std::string read_file(const std::string& path) {
  std::ifstream f(path, std::ios::binary);
  std::stringstream ss;
  ss << f.rdbuf();
  return ss.str();
}

std::string this_year() {
  time_t now = time(nullptr);
  struct tm local;
  localtime_r(&now, &local);
  return std::to_string(local.tm_year + 1900);
}

// The command line of mode 1, argument by argument.
struct MailArgs {
  std::string count = "1", append = "0", ids = "AAA", to = "bob@x.example", subject = "Links",
              message = "Hello", line1 = "----", line2 = "", account = "", personal = "",
              sender = "";
  std::vector<std::string> argv() const {
    return {"1",     count, append, ids,     to,       subject,
            message, line1, line2,  account, personal, sender};
  }
};

class MailRun : public ::testing::Test {
 protected:
  void SetUp() override {
    root_.write("/etc/config/Korvix.conf", kConf);
    root_.write(kTemplate, read_file(source_path("data/email.tpl")));
    root_.script("/usr/sbin/sendmail", kStandInSendmail);
    make_store(root_);
  }

  void add_link(const std::string& id, const std::string& sharefile,
                const std::string& link_name, int expire = 0,
                const std::string& host = "nas.example") {
    FixtureLink l(id, host);
    l.sharefile = sharefile;
    l.link_name = link_name;
    l.createtic = static_cast<int>(time(nullptr)) - 1000;
    l.expire = expire;
    insert_links(root_, {l});
  }

  // Runs mode 1; every run must end with status 0 and leave no message file.
  void run(const MailArgs& a) {
    RunResult r = run_program(tool_binary(), a.argv(), root_, {{"HTTP_HOST", "box.example:8080"}});
    EXPECT_EQ(0, r.status) << r.err;
    EXPECT_EQ("", r.out);
    DIR* d = opendir(root_.path("/tmp").c_str());
    ASSERT_NE(nullptr, d);
    while (dirent* e = readdir(d)) {
      EXPECT_NE(0, strncmp(e->d_name, "share_mail.html.", 16)) << "left behind: " << e->d_name;
    }
    closedir(d);
  }

  bool sent(int n) const { return root_.exists("/mailout/" + std::to_string(n) + ".args"); }
  std::string args(int n) const { return root_.read("/mailout/" + std::to_string(n) + ".args"); }
  std::string msg(int n) const { return root_.read("/mailout/" + std::to_string(n) + ".msg"); }
  // What the template's $CONTENT$ became.
  std::string content(int n) const {
    std::string m = msg(n);
    size_t start = m.find("<div>\n");
    size_t end = m.find("\n</div>\n");
    if (start == std::string::npos || end == std::string::npos || end < start) return "?" + m;
    return m.substr(start + 6, end - start - 6);
  }
  bool has_line(int n, const std::string& line) const {
    return ("\n" + msg(n)).find("\n" + line + "\n") != std::string::npos;
  }
  int rows_with_key(const std::string& key) const {
    return std::stoi(
        store_value(root_, "SELECT COUNT(*) FROM SHARELINK_EVENT WHERE pkey = '" + key + "'"));
  }

  ApplianceRoot root_;
};

std::string url(const std::string& id) {
  return "http://nas.example:8080/share.cgi?ssid=" + id;
}

TEST_F(MailRun, OneLinkGivesTheWholeMessageUnnumbered) {
  add_link("AAA", "/Public/docs/report.pdf", "Report");
  MailArgs a;
  a.message = "Hello Bob,\nhere it is.";
  run(a);
  EXPECT_EQ("-t\n", args(1));
  EXPECT_EQ(
      "To: \"bob\" <bob@x.example>\n"
      "From: \"alerts\" <alerts@box.example>\n"
      "Subject: =?UTF-8?B?TGlua3M=?=\n"
      "MIME-Version: 1.0\n"
      "Content-Type: text/html; charset=UTF-8\n"
      "Content-Transfer-Encoding: 8bit\n"
      "\n"
      "<!DOCTYPE html>\n"
      "<html>\n"
      "<head>\n"
      "<meta http-equiv=\"Content-Type\" content=\"text/html; charset=UTF-8\">\n"
      "<title>Shared with you</title>\n"
      "</head>\n"
      "<body style=\"font-family: sans-serif; font-size: 14px;\">\n"
      "<div>\n"
      "Hello Bob,<br>here it is.<br>\n"
      "<a href=\"" + url("AAA") + "\">Report</a><br>\n"
      "\n"
      "</div>\n"
      "<hr>\n"
      "<p style=\"color: #808080; font-size: 12px;\">\n"
      "This message was sent by your storage appliance's file manager.<br>\n"
      "&copy; " + this_year() + " Vexa Systems Inc.\n"
      "\n"
      "</p>\n"
      "</body>\n"
      "</html>\n",
      msg(1));
  EXPECT_FALSE(sent(2));
}

TEST_F(MailRun, SeveralLinksAreNumberedWithNameThenFileNames) {
  add_link("AAA", "/Public/docs/report.pdf", "Report");
  add_link("BBB", "/Public/b.txt", "Bee");
  add_link("CCC", "/Public/pics/c.jpg", "Sea");
  add_link("DDD", "/Public/d.txt", "");
  MailArgs a;
  a.count = "1";  // corrected to the number of ids
  a.ids = "AAA,BBB,,CCC,DDD";
  run(a);
  EXPECT_EQ("Hello<br>\n"
            "1. <a href=\"" + url("AAA") + "\">Report</a><br>\n"
            "2. <a href=\"" + url("BBB") + "\">b.txt</a><br>\n"
            "3. <a href=\"" + url("CCC") + "\">c.jpg</a><br>\n"
            "<a href=\"" + url("DDD") + "\"> </a><br>\n",
            content(1));
}

TEST_F(MailRun, NullItemsGiveBlankLinksFromThenOn) {
  add_link("AAA", "/Public/a.txt", "Report");
  MailArgs a;
  a.count = "2";
  a.ids = "NULL,AAA";
  run(a);
  EXPECT_EQ("Hello<br>\n"
            "<a href=\"Share to You !\"> </a><br>\n"
            "<a href=\"" + url("AAA") + "\"> </a><br>\n",
            content(1));
}

TEST_F(MailRun, DetailLinesReplaceTheLinkLine) {
  add_link("AAA", "/Public/a.txt", "Ay");
  add_link("BBB", "/Public/b.txt", "Bee");
  MailArgs a;
  a.count = "2";
  a.ids = "AAA,BBB";
  a.line1 = "Valid for a week";
  run(a);
  EXPECT_EQ("Hello<br>\nValid for a week<br>\nValid for a week<br>\n", content(1));

  a.append = "1";
  a.line2 = "Code: 1234";
  run(a);
  EXPECT_EQ("Hello<br>\nCode: 1234<br>\nCode: 1234<br>\n", content(2));

  a.line1 = "----";
  a.line2 = "";
  run(a);
  EXPECT_EQ("Hello<br>\n1. <a href=\"" + url("AAA") + "\">Ay</a><br>\n2. <a href=\"" +
                url("BBB") + "\">b.txt</a><br>\n",
            content(3));

  a.line2 = "Code: 99";
  run(a);
  EXPECT_EQ("Hello<br>\nCode: 99<br>\nCode: 99<br>\n", content(4));

  // Without append_line2 the second line is ignored.
  a.append = "0";
  run(a);
  EXPECT_EQ("Hello<br>\n1. <a href=\"" + url("AAA") + "\">Ay</a><br>\n2. <a href=\"" +
                url("BBB") + "\">b.txt</a><br>\n",
            content(5));
}

TEST_F(MailRun, AnOversizedLineIsCutAtTheBodySize) {
  // One link, mail_line1 "----" (4 bytes, counted though not printed), an
  // empty mail_line2, a message of 5 bytes: the body holds
  // (0 + 1 + 4 + 1 + 32) + 512 + 5 + 1 + 199 = 755 bytes, terminator included.
  std::string host(470, 'h');
  add_link("AAA", "/Public/a.txt", std::string(256, 'n'), 0, host);
  MailArgs a;
  run(a);
  std::string link_line =
      "<a href=\"http://" + host + ":8080/share.cgi?ssid=AAA\">" + std::string(256, 'n') +
      "</a><br>\n";
  ASSERT_GT(link_line.size(), 740u);
  EXPECT_EQ("Hello<br>\n" + link_line.substr(0, 755 - 1 - 10), content(1));
}

TEST_F(MailRun, AMissingLinkSendsNothing) {
  add_link("AAA", "/Public/a.txt", "Report");
  MailArgs a;
  a.count = "2";
  a.ids = "AAA,ZZZ";
  run(a);
  EXPECT_FALSE(sent(1));
}

TEST_F(MailRun, NoneAtNoneSendsNothingButPurgesExpiredLinks) {
  int now = static_cast<int>(time(nullptr));
  add_link("AAA", "/Public/a.txt", "Report");
  add_link("OLD", "/Public/old.txt", "Old", now - 60);
  add_link("NEW", "/Public/new.txt", "New", now + 3600);
  MailArgs a;
  a.to = "none@none";
  run(a);
  EXPECT_FALSE(sent(1));
  EXPECT_EQ(0, rows_with_key("OLD"));
  EXPECT_EQ(1, rows_with_key("AAA"));
  EXPECT_EQ(1, rows_with_key("NEW"));
}

TEST_F(MailRun, RecipientsAreSplitTrimmedAndShortOnesSkipped) {
  add_link("AAA", "/Public/a.txt", "Report");
  MailArgs a;
  a.to = "a@x.example, b@x.example";
  run(a);
  EXPECT_TRUE(has_line(1, "To: \"a\" <a@x.example>"));
  EXPECT_TRUE(has_line(2, "To: \"b\" <b@x.example>"));
  EXPECT_FALSE(sent(3));

  a.to = "c@,d@x.example";  // "c@" has two characters
  run(a);
  EXPECT_TRUE(has_line(3, "To: \"d\" <d@x.example>"));
  EXPECT_FALSE(sent(4));
}

TEST_F(MailRun, TheAccountDecidesWhetherAndHowTheMailGoesOut) {
  add_link("AAA", "/Public/a.txt", "Report");
  MailArgs a;
  root_.write("/etc/config/ssmtp/ssmtp.conf", "# alert account\nAuthUser = mailer\n");
  run(a);
  EXPECT_EQ("-au\nmailer\n-t\n", args(1));

  // A personal account that does not exist: the first delivery fails and
  // nobody is mailed.
  a.to = "a@x.example,b@x.example";
  a.account = "personal";
  a.personal = "no-such-user-slt";
  run(a);
  EXPECT_FALSE(sent(2));

  // The alert account switched off.
  a.account = "";
  a.personal = "";
  root_.write("/etc/config/Korvix.conf",
              "[Alert]\nSMTP Server = 192.0.2.25\nSMTP Enable = 0\n");
  run(a);
  EXPECT_FALSE(sent(2));
}

TEST_F(MailRun, TheSenderArgumentNamesBothPartsOfFrom) {
  add_link("AAA", "/Public/a.txt", "Report");
  MailArgs a;
  a.sender = "carol@x.example";
  run(a);
  EXPECT_TRUE(has_line(1, "From: \"carol@x.example\" <carol@x.example>"));
}

TEST_F(MailRun, ASenderCannotAddHeaders) {
  add_link("AAA", "/Public/a.txt", "Report");
  MailArgs a;
  a.sender = "x\r\nBcc: victim@example.org";
  a.subject = "s";
  run(a);
  std::string m = msg(1);
  EXPECT_TRUE(has_line(1, "From: \"xBcc: victim@example.org\" <xBcc: victim@example.org>"));
  EXPECT_EQ(std::string::npos, m.find("\nBcc:"));
  EXPECT_EQ(std::string::npos, m.find('\r'));
}

TEST_F(MailRun, TemplatePlaceholdersUnknownAndCompanyLine) {
  add_link("AAA", "/Public/a.txt", "Report");
  root_.write(kTemplate, "To: $MAIL_TO$\nX-Note: [$NOT_A_NAME$] $5\nSubject: $MAIL_SUBJECT_TXT$\n\n"
                         "$CONTENT$--$VEXA$--\n");
  MailArgs a;
  run(a);
  EXPECT_EQ("To: \"bob\" <bob@x.example>\nX-Note: [] $5\nSubject: Links\n\n"
            "Hello<br>\n<a href=\"" + url("AAA") + "\">Report</a><br>\n--Vexa Systems Inc.\n--\n",
            msg(1));
  root_.write("/etc/IS_G", "");
  run(a);
  EXPECT_EQ("To: \"bob\" <bob@x.example>\nX-Note: [] $5\nSubject: Links\n\n"
            "Hello<br>\n<a href=\"" + url("AAA") + "\">Report</a><br>\n----\n",
            msg(2));
}

// --- Real delivery: msmtp to a local SMTP server -------------------------------

const char kSmtpServer[] = R"(import asyncio, os, sys
from aiosmtpd.smtp import SMTP

outdir, portfile = sys.argv[1], sys.argv[2]

class Handler:
    def __init__(self):
        self.count = 0

    async def handle_DATA(self, server, session, envelope):
        self.count += 1
        base = os.path.join(outdir, str(self.count))
        with open(base + ".rcpt", "w") as f:
            f.write("\n".join(envelope.rcpt_tos) + "\n")
        with open(base + ".part", "wb") as f:
            f.write(envelope.original_content)
        os.rename(base + ".part", base + ".eml")
        return "250 Message accepted"

async def main():
    handler = Handler()
    server = await asyncio.get_running_loop().create_server(
        lambda: SMTP(handler), "127.0.0.1", 0)
    port = server.sockets[0].getsockname()[1]
    with open(portfile + ".part", "w") as f:
        f.write(str(port))
    os.rename(portfile + ".part", portfile)
    await asyncio.Event().wait()

asyncio.run(main())
)";

// Prints the decoded To, From and Subject, the parser's defect count and the
// HTML body of a received message.
const char kParseMail[] = R"(import sys
from email import policy
from email.parser import BytesParser

with open(sys.argv[1], "rb") as f:
    m = BytesParser(policy=policy.default).parse(f)
defects = len(m.defects) + sum(len(m[h].defects) for h in ("To", "From", "Subject"))
print(m["To"].addresses[0].display_name, m["To"].addresses[0].addr_spec)
print(m["From"].addresses[0].display_name, m["From"].addresses[0].addr_spec)
print(m["Subject"])
print("defects", defects)
print(m.get_content_type(), m.get_content_charset())
sys.stdout.write(m.get_content())
)";

// The SMTP server child; always stopped and reaped.
class SmtpServer {
 public:
  SmtpServer(const std::string& script, const std::string& outdir, const std::string& portfile) {
    std::vector<std::string> args = {"/usr/bin/python3", script, outdir, portfile};
    std::vector<char*> argv;
    for (auto& s : args) argv.push_back(&s[0]);
    argv.push_back(nullptr);
    if (posix_spawn(&pid_, argv[0], nullptr, nullptr, argv.data(), environ) != 0) pid_ = -1;
  }
  ~SmtpServer() {
    if (pid_ <= 0) return;
    kill(pid_, SIGTERM);
    int status = 0;
    waitpid(pid_, &status, 0);
  }
  SmtpServer(const SmtpServer&) = delete;
  SmtpServer& operator=(const SmtpServer&) = delete;
  bool started() const { return pid_ > 0; }
  // The port once the server listens; 0 when it ended or did not come up
  // within about 20 seconds.
  int wait_port(const std::string& portfile) const {
    for (int i = 0; i < 400; ++i) {
      std::string text = read_file(portfile);
      if (!text.empty()) return atoi(text.c_str());
      int status = 0;
      if (waitpid(pid_, &status, WNOHANG) == pid_) return 0;
      usleep(50 * 1000);
    }
    return 0;
  }

 private:
  pid_t pid_ = -1;
};

bool python_has_aiosmtpd() {
  return access("/usr/bin/python3", X_OK) == 0 &&
         system("/usr/bin/python3 -c 'import aiosmtpd' >/dev/null 2>&1") == 0;
}

TEST_F(MailRun, DeliversThroughMsmtpToARealSmtpServer) {
  if (access("/usr/bin/msmtp", X_OK) != 0) GTEST_SKIP() << "msmtp is not installed";
  if (!python_has_aiosmtpd()) GTEST_SKIP() << "python3-aiosmtpd is not installed";

  root_.write("/srv/smtpd.py", kSmtpServer);
  root_.write("/srv/parse.py", kParseMail);
  root_.mkdirs("/srv/inbox");
  std::string portfile = root_.path("/srv/port");
  SmtpServer server(root_.path("/srv/smtpd.py"), root_.path("/srv/inbox"), portfile);
  ASSERT_TRUE(server.started());
  int port = server.wait_port(portfile);
  ASSERT_GT(port, 0) << "the SMTP server did not start";

  root_.write("/etc/msmtprc",
              "defaults\ntimeout 20\naccount default\nhost 127.0.0.1\nport " +
                  std::to_string(port) + "\nfrom alerts@box.example\nauth off\ntls off\n",
              0600);
  // msmtp takes its account from the configuration: it has no "-au NAME" or
  // "-u UID", which the tool puts before "-t", so those pairs are dropped.
  root_.script("/usr/sbin/sendmail",
               "case \"$1\" in -au|-u) shift 2 ;; esac\n"
               "exec /usr/bin/msmtp -C \"$SHARELINK_ROOT/etc/msmtprc\" \"$@\"\n");
  root_.write("/etc/config/ssmtp/ssmtp.conf", "AuthUser = mailer\n");

  add_link("AAA", "/Public/docs/report.pdf", "Report");
  add_link("BBB", "/Public/b.txt", "Bee");
  MailArgs a;
  a.count = "2";
  a.ids = "AAA,BBB";
  a.subject = "Grüße aus Köln – Dateien";
  run(a);

  ASSERT_TRUE(root_.exists("/srv/inbox/1.eml")) << "no message arrived";
  EXPECT_FALSE(root_.exists("/srv/inbox/2.eml"));
  EXPECT_EQ("bob@x.example\n", root_.read("/srv/inbox/1.rcpt"));
  RunResult parsed = run_program("/usr/bin/python3",
                                 {root_.path("/srv/parse.py"), root_.path("/srv/inbox/1.eml")},
                                 root_);
  ASSERT_EQ(0, parsed.status) << parsed.err;
  std::istringstream lines(parsed.out);
  std::string to, from, subject, defects, type;
  std::getline(lines, to);
  std::getline(lines, from);
  std::getline(lines, subject);
  std::getline(lines, defects);
  std::getline(lines, type);
  std::string html((std::istreambuf_iterator<char>(lines)), std::istreambuf_iterator<char>());
  EXPECT_EQ("bob bob@x.example", to);
  EXPECT_EQ("alerts alerts@box.example", from);
  EXPECT_EQ("Grüße aus Köln – Dateien", subject);
  EXPECT_EQ("defects 0", defects);
  EXPECT_EQ("text/html utf-8", type);
  EXPECT_NE(std::string::npos,
            html.find("1. <a href=\"" + url("AAA") + "\">Report</a><br>\n"));
  EXPECT_NE(std::string::npos, html.find("2. <a href=\"" + url("BBB") + "\">b.txt</a><br>\n"));
}

}  // namespace
