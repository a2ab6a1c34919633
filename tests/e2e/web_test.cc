// sharelink.cgi behind the real lighttpd with the shipped data/lighttpd/sharelink-admin.conf (basic
// authentication in front), curl as client; its own answers byte for byte are in security_test.cc.
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "support/appliance.h"
#include "support/web_server.h"

namespace {

const char kDownload[] = "/sharelink.cgi?func=download&path=/Public/docs/report%201.pdf";

std::string reply(int status) {
  return "{ \"version\": \"6.0.1.6963\", \"build\": \"20250804\", \"status\": " + std::to_string(status) +
         ", \"success\": \"true\" }\n";
}

class WebTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (find_program("lighttpd").empty() || curl_.empty()) GTEST_SKIP() << "lighttpd or curl is not installed";
    root_.write("/etc/config/smb.conf", "[Public]\npath = /share/VOL1/Public\n");
    root_.write("/etc/config/Korvix.conf", "[System]\nWeb Access Port = 8080\n");
    root_.mkdirs("/share/VOL1/.db");
    for (int i = 0; i < 20000; ++i) report_ += static_cast<char>((i * 131 + i / 256) & 0xff);
    put("/docs/report 1.pdf", report_); root_.write("/web/users", "admin:admin-pw\nbob:bob-pw\n");
    server_ = std::make_unique<WebServer>(root_, find_program("lighttpd"), [this](int port) {
      // The CGI answers ranges itself; the server must not cut its 200s.
      return "server.bind = \"127.0.0.1\"\nserver.port = " + std::to_string(port) +
             "\nserver.document-root = \"" + root_.path("/web/htdocs") + "\"\nserver.errorlog = \"" +
             root_.path("/web/logs/error.log") + "\"\nserver.range-requests = \"disable\"\n" +
             "var.sharelink_cgi = \"" + cgi_binary() + "\"\nvar.sharelink_root = \"" + root_.dir() +
             "\"\nvar.sharelink_userfile = \"" + root_.path("/web/users") +
             "\"\ninclude \"" SLT_SOURCE_DIR "/data/lighttpd/sharelink-admin.conf\"\n";
    });
    ASSERT_TRUE(server_->running()) << root_.read("/web/logs/console.log") << root_.read("/web/logs/error.log");
  }

  void put(const std::string& rel, const std::string& content) {
    root_.write("/share/VOL1/Public" + rel, content); root_.set_mtime("/share/VOL1/Public" + rel, 1000000000);
  }

  // With the given credentials ("": none).
  Response get(const std::string& target, const std::vector<std::string>& extra = {},
               const std::string& user = "admin:admin-pw") {
    std::vector<std::string> args = {"-s", "-i", "--max-time", "30", "--globoff"};
    if (!user.empty()) args.insert(args.end(), {"-u", user});
    args.insert(args.end(), extra.begin(), extra.end()); args.push_back(server_->url(target));
    RunResult r = run_program(curl_, args, root_);
    EXPECT_EQ(0, r.status) << "curl " << target << ": " << r.err;
    return parse_response(r.out);
  }

  ApplianceRoot root_;
  std::string curl_ = find_program("curl"), report_;
  std::unique_ptr<WebServer> server_;
};

// Every byte, also of a range across read chunks (the server leaves ranges to the CGI); the date sent back gets a 304.
TEST_F(WebTest, DownloadsRangesAndNotModified) {
  Response r = get(kDownload);
  EXPECT_EQ(200, r.status) << r.head; EXPECT_EQ("20000", r.header("content-length"));
  EXPECT_EQ("Sun, 09 Sep 2001 01:46:40 GMT", r.header("last-modified"));
  EXPECT_TRUE(r.body == report_) << "body differs, " << r.body.size() << " bytes";
  Response again = get(kDownload, {"-H", "If-Modified-Since: " + r.header("last-modified")});
  EXPECT_EQ(304, again.status) << again.head; EXPECT_EQ("", again.body);
  Response part = get(kDownload, {"-H", "Range: bytes=100-8700"});
  EXPECT_EQ(206, part.status) << part.head; EXPECT_EQ("bytes 100-8700/20000", part.header("content-range"));
  EXPECT_EQ("8601", part.header("content-length")); EXPECT_TRUE(report_.substr(100, 8601) == part.body);
}

// The server asks for credentials before the program runs and passes the
// user on: any user may download, only the administrator relocates the store.
TEST_F(WebTest, CredentialsAreAskedAndOnlyTheAdministratorRelocates) {
  Response anonymous = get(kDownload, {}, "");
  EXPECT_EQ(401, anonymous.status) << anonymous.head;
  EXPECT_NE(std::string::npos, anonymous.header("www-authenticate").find("Basic"));
  EXPECT_EQ(std::string::npos, anonymous.body.find(report_.substr(0, 64)));
  EXPECT_EQ(401, get(kDownload, {}, "admin:wrong").status);
  EXPECT_TRUE(get(kDownload, {}, "bob:bob-pw").body == report_);

  const std::string target = "/sharelink.cgi?func=set_share_link_db&share_link_db=/share/VOL1/.db/new.db";
  const std::string before = root_.read("/etc/config/Korvix.conf");
  EXPECT_EQ(reply(4), get(target, {}, "bob:bob-pw").body);
  EXPECT_EQ(before, root_.read("/etc/config/Korvix.conf"));
  EXPECT_FALSE(root_.exists("/share/VOL1/.db/new.db"));
  EXPECT_EQ(reply(1), get(target).body);
  EXPECT_NE(std::string::npos, root_.read("/etc/config/Korvix.conf").find("Share_Link_Db = /share/VOL1/.db/new.db\n"));
  EXPECT_TRUE(root_.exists("/share/VOL1/.db/new.db"));
}

}  // namespace
