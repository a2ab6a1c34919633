// The request library behind a real web server: lighttpd on 127.0.0.1 runs
// build/sharelink.cgi through mod_cgi in a temporary appliance root, and the
// curl program is the client. Logged-in users come from lighttpd's basic
// authentication (REMOTE_USER) on the "/secure/" alias of the same program.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <signal.h>
#include <sqlite3.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "support/appliance.h"
#include "support/web_server.h"

namespace {

// lighttpd's configuration: the CGI on two aliases, "/secure/" behind basic
// authentication.
std::string server_config(const ApplianceRoot& root, int port) {
  const std::string cgi = cgi_binary();
  return "server.modules = (\"mod_alias\", \"mod_auth\", \"mod_authn_file\", \"mod_setenv\", "
         "\"mod_cgi\")\n"
         "server.bind = \"127.0.0.1\"\n"
         "server.port = " + std::to_string(port) + "\n"
         "server.document-root = \"" + root.path("/web/htdocs") + "\"\n"
         "server.errorlog = \"" + root.path("/web/logs/error.log") + "\"\n"
         // The CGI answers ranges itself; the server must not cut its 200s.
         "server.range-requests = \"disable\"\n"
         "alias.url = (\"/cgi-bin/sharelink.cgi\" => \"" + cgi + "\", "
         "\"/secure/sharelink.cgi\" => \"" + cgi + "\")\n"
         "cgi.assign = (\".cgi\" => \"\")\n"
         "setenv.add-environment = (\"SHARELINK_ROOT\" => \"" + root.dir() + "\")\n"
         "auth.backend = \"plain\"\n"
         "auth.backend.plain.userfile = \"" + root.path("/web/users") + "\"\n"
         "auth.require = (\"/secure/\" => (\"method\" => \"basic\", \"realm\" => \"appliance\", "
         "\"require\" => \"valid-user\"))\n";
}

const char kSharePath[] = "/share/VOL1/Public";

class WebTest : public ::testing::Test {
 protected:
  void SetUp() override {
    lighttpd_ = find_program("lighttpd");
    curl_ = find_program("curl");
    if (lighttpd_.empty() || curl_.empty()) {
      GTEST_SKIP() << "lighttpd or curl is not installed (scripts/deps.sh test installs both)";
    }
    root_.write("/etc/config/smb.conf", std::string("[Public]\npath = ") + kSharePath + "\n");
    root_.write("/etc/config/Korvix.conf", "[System]\nWeb Access Port = 8080\n");
    root_.mkdirs("/share/VOL1/.db");
    for (int i = 0; i < 20000; ++i) report_ += static_cast<char>((i * 131 + i / 256) & 0xff);
    put("/docs/report 1.pdf", report_);
    root_.write("/web/users", "admin:admin-pw\nbob:bob-pw\n");
    server_ = std::make_unique<WebServer>(root_, lighttpd_,
                                          [this](int port) { return server_config(root_, port); });
    ASSERT_TRUE(server_->running()) << root_.read("/web/logs/console.log")
                                    << root_.read("/web/logs/error.log");
  }

  // A file of the Public share, dated 2001-09-09 01:46:40 UTC.
  void put(const std::string& rel, const std::string& content) {
    root_.write(kSharePath + rel, content);
    root_.set_mtime(kSharePath + rel, 1000000000);
  }

  Response get(const std::string& target, const std::vector<std::string>& extra = {}) {
    std::vector<std::string> args = {"-s", "-i", "--max-time", "30", "--globoff"};
    args.insert(args.end(), extra.begin(), extra.end());
    args.push_back(server_->url(target));
    RunResult r = run_program(curl_, args, root_);
    EXPECT_EQ(0, r.status) << "curl " << target << ": " << r.err;
    return parse_response(r.out);
  }

  std::string config() const { return root_.read("/etc/config/Korvix.conf"); }

  ApplianceRoot root_;
  std::string lighttpd_;
  std::string curl_;
  std::string report_;
  std::unique_ptr<WebServer> server_;
};

const char kDownload[] = "/cgi-bin/sharelink.cgi?func=download&path=/Public/docs/report%201.pdf";

TEST_F(WebTest, FullDownloadCarriesItsHeadersAndEveryByte) {
  Response r = get(kDownload);
  EXPECT_EQ(200, r.status) << r.head;
  EXPECT_EQ("20000", r.header("content-length"));
  EXPECT_EQ("application/pdf", r.header("content-type"));
  EXPECT_EQ("inline; filename=\"report%201.pdf\"; filename*=utf-8''report%201.pdf",
            r.header("content-disposition"));
  EXPECT_EQ("bytes", r.header("accept-ranges"));
  EXPECT_EQ("binary", r.header("content-transfer-encoding"));
  EXPECT_EQ("private, max-age=604800, pre-check=604800", r.header("cache-control"));
  EXPECT_EQ("private", r.header("pragma"));
  EXPECT_EQ("Sun, 09 Sep 2001 01:46:40 GMT", r.header("last-modified"));
  EXPECT_EQ(29u, r.header("expires").size());
  EXPECT_TRUE(r.body == report_) << "body differs, " << r.body.size() << " bytes";
}

TEST_F(WebTest, OneRangeGetsA206WithExactlyThoseBytes) {
  Response r = get(kDownload, {"-H", "Range: bytes=100-8291"});
  EXPECT_EQ(206, r.status) << r.head;
  EXPECT_EQ("bytes 100-8291/20000", r.header("content-range"));
  EXPECT_EQ("8192", r.header("content-length"));
  EXPECT_EQ("application/pdf", r.header("content-type"));
  EXPECT_TRUE(r.body == report_.substr(100, 8192));

  r = get(kDownload, {"-H", "Range: bytes=19990-30000"});
  EXPECT_EQ(206, r.status);
  EXPECT_EQ("bytes 19990-19999/20000", r.header("content-range"));
  EXPECT_TRUE(r.body == report_.substr(19990));
}

TEST_F(WebTest, RefusedRangesGet416WithoutABody) {
  for (const char* range : {"bytes=0-1,5-6", "bytes=20000-", "bytes=9-3", "bytes=-3"}) {
    Response r = get(kDownload, {"-H", std::string("Range: ") + range});
    EXPECT_EQ(416, r.status) << range;
    EXPECT_EQ("bytes 0-19999/20000", r.header("content-range")) << range;
    EXPECT_EQ("", r.body) << range;
  }
  put("/docs/empty.txt", "");
  Response r = get("/cgi-bin/sharelink.cgi?func=download&path=/Public/docs/empty.txt",
                   {"-H", "Range: bytes=0-"});
  EXPECT_EQ(416, r.status);
  EXPECT_EQ("bytes 0-18446744073709551615/0", r.header("content-range"));
}

TEST_F(WebTest, LastModifiedSentBackGets304) {
  Response first = get(kDownload);
  ASSERT_EQ(200, first.status);
  std::string stamp = first.header("last-modified");
  ASSERT_FALSE(stamp.empty());
  Response again = get(kDownload, {"-H", "If-Modified-Since: " + stamp});
  EXPECT_EQ(304, again.status) << again.head;
  EXPECT_EQ("", again.body);

  // Another date (or one that is not an HTTP date) gets the file again,
  // without caching headers for a date that differs.
  Response other = get(kDownload, {"-H", "If-Modified-Since: Mon, 10 Sep 2001 01:46:40 GMT"});
  EXPECT_EQ(200, other.status);
  EXPECT_FALSE(other.has("cache-control"));
  EXPECT_TRUE(other.body == report_);
  Response bad = get(kDownload, {"-H", "If-Modified-Since: 1000000000"});
  EXPECT_EQ(200, bad.status);
  EXPECT_TRUE(bad.has("cache-control"));
}

TEST_F(WebTest, MimeTableMatchesTheOperatorCommand) {
  Response r = get("/cgi-bin/sharelink.cgi?func=mime_table");
  EXPECT_EQ(200, r.status);
  EXPECT_EQ("application/json; charset=\"UTF-8\"", r.header("content-type"));
  RunResult ctl = run_program(ctl_binary(), {"mime"}, root_);
  EXPECT_EQ(0, ctl.status);
  EXPECT_EQ(ctl.out, r.body);
  EXPECT_EQ(0u, r.body.find("{ \"datas\": [ { \"ext_name\": \"pdf\", \"mime_type\": \"application\\/pdf\" }"));
}

int count_tables(const std::string& file) {
  sqlite3* db = nullptr;
  int n = -1;
  if (sqlite3_open_v2(file.c_str(), &db, SQLITE_OPEN_READONLY, nullptr) == SQLITE_OK) {
    sqlite3_stmt* st = nullptr;
    if (sqlite3_prepare_v2(db,
                           "SELECT COUNT(*) FROM sqlite_master WHERE type='table' AND name IN "
                           "('SHARELINK_EVENT','SHARELINK_FID','SHARELINK_ACX','SHARELINK_USER')",
                           -1, &st, nullptr) == SQLITE_OK &&
        sqlite3_step(st) == SQLITE_ROW) {
      n = sqlite3_column_int(st, 0);
    }
    sqlite3_finalize(st);
  }
  sqlite3_close(db);
  return n;
}

TEST_F(WebTest, RelocationIsForTheAdministratorOnly) {
  const std::string target = "/secure/sharelink.cgi?func=set_share_link_db&share_link_db=/share/VOL1/.db/new.db";
  const std::string before = config();
  Response bob = get(target, {"-u", "bob:bob-pw"});
  EXPECT_EQ(200, bob.status);
  EXPECT_EQ("{ \"version\": \"6.0.1.6963\", \"build\": \"20250804\", \"status\": 4, \"success\": \"true\" }\n",
            bob.body);
  EXPECT_EQ(before, config());
  EXPECT_FALSE(root_.exists("/share/VOL1/.db/new.db"));

  Response admin = get(target, {"-u", "admin:admin-pw"});
  EXPECT_EQ("application/json; charset=\"UTF-8\"", admin.header("content-type"));
  EXPECT_EQ("{ \"version\": \"6.0.1.6963\", \"build\": \"20250804\", \"status\": 1, \"success\": \"true\" }\n",
            admin.body);
  EXPECT_NE(std::string::npos, config().find("Share_Link_Db = /share/VOL1/.db/new.db\n"))
      << config();
  EXPECT_EQ(4, count_tables(root_.path("/share/VOL1/.db/new.db")));

  // A folder that does not exist: refused, the configuration stays.
  const std::string kept = config();
  Response missing = get("/secure/sharelink.cgi?func=set_share_link_db&share_link_db=/share/NOPE/x.db",
                         {"-u", "admin:admin-pw"});
  EXPECT_NE(std::string::npos, missing.body.find("\"status\": 20,"));
  EXPECT_EQ(kept, config());
}

TEST_F(WebTest, TranscodedVariantIsAnAttachment) {
  root_.mkdirs(std::string(kSharePath) + "/v/.@__thumb/transcode");
  put("/v/a-b;c.mp4", "original video");
  put("/v/.@__thumb/transcode/a-b;c.mp4.ipad720p", "the 720p variant bytes");
  const std::string target = "/cgi-bin/sharelink.cgi?func=transcode&path=/Public/v/a-b%3Bc.mp4&variant=mp4_720";
  Response r = get(target);
  EXPECT_EQ(200, r.status) << r.head;
  EXPECT_EQ("attachment; filename=\"a-b%3Bc.mp4\"; filename*=utf-8''a-b%3Bc.mp4",
            r.header("content-disposition"));
  EXPECT_EQ("application/force-download", r.header("content-type"));
  EXPECT_EQ("22", r.header("content-length"));
  EXPECT_EQ("the 720p variant bytes", r.body);

  Response ie = get(target, {"-A", "Mozilla/5.0 (Windows NT 10.0; Trident/7.0)"});
  EXPECT_EQ("attachment; filename=\"a%252Db%253Bc.mp4\"; filename*=utf-8''a%252Db%253Bc.mp4",
            ie.header("content-disposition"));

  Response part = get(target, {"-H", "Range: bytes=4-7"});
  EXPECT_EQ(206, part.status);
  EXPECT_EQ("video/mp4", part.header("content-type"));
  EXPECT_EQ("720p", part.body);

  Response absent = get("/cgi-bin/sharelink.cgi?func=transcode&path=/Public/v/a-b%3Bc.mp4&variant=mp4_480");
  EXPECT_NE(std::string::npos, absent.body.find("\"status\": 20,"));
}

TEST_F(WebTest, UnknownRequestsAndMissingFilesGetAStatusReply) {
  const std::string reply20 =
      "{ \"version\": \"6.0.1.6963\", \"build\": \"20250804\", \"status\": 20, \"success\": \"true\" }\n";
  for (const char* target : {"/cgi-bin/sharelink.cgi", "/cgi-bin/sharelink.cgi?func=nothing",
                             "/cgi-bin/sharelink.cgi?func=download",
                             "/cgi-bin/sharelink.cgi?func=download&path=/Public/docs/none.pdf",
                             "/cgi-bin/sharelink.cgi?func=download&path=/Public/docs",
                             "/cgi-bin/sharelink.cgi?func=download&path=/Nowhere/a.txt"}) {
    Response r = get(target);
    EXPECT_EQ(200, r.status) << target;
    EXPECT_EQ("application/json; charset=\"UTF-8\"", r.header("content-type")) << target;
    EXPECT_EQ(reply20, r.body) << target;
  }
}

// Run directly as the web server would, with any query string: the program
// answers and exits 0, never crashes.
TEST(CgiProgram, AnyQueryStringGetsAnAnswer) {
  ApplianceRoot root;
  root.write("/etc/config/smb.conf", "[Public]\npath = /share/VOL1/Public\n");
  root.write("/share/VOL1/Public/a.txt", "0123456789");
  const std::string long_path = "/Public/" + std::string(70000, 'a');
  const std::vector<std::string> queries = {
      "", "&&&", "=", "func", "func=", "func=download&path=", "func=download&path=%",
      "func=download&path=%ZZ%00", "func=download&path=/Public/../../etc/passwd",
      "func=download&path=/Public/a.txt", "func=download&path=" + long_path,
      "func=transcode&path=/Public/a.txt&variant=", "func=transcode&path=/Public/a.txt&variant=mp4_org",
      "func=transcode&path=tfx://x&variant=mp4_240", "func=download&path=/remote:99@x/y",
      "func=set_share_link_db&share_link_db=" + std::string(5000, '/'),
      "func=set_share_link_db&share_link_db=/etc/config/x%0A[Evil]%0Ak=v.db",
      "func=set_share_link_db&share_link_db=relative.db&force_delete=1",
      "func=mime_table&func=download",
  };
  for (const std::string& q : queries) {
    RunResult r = run_program(cgi_binary(), {}, root,
                              {{"QUERY_STRING", q},
                               {"REQUEST_METHOD", "GET"},
                               {"HTTP_RANGE", "bytes=99999999999999999999999999-,"},
                               {"HTTP_IF_MODIFIED_SINCE", "garbage"}});
    EXPECT_EQ(0, r.status) << q.substr(0, 80) << "\n" << r.err;
    EXPECT_FALSE(r.out.empty()) << q.substr(0, 80);
  }
  // The configuration never took a value that would break its lines.
  EXPECT_EQ(std::string::npos, root.read("/etc/config/Korvix.conf").find("[Evil]"));
}

}  // namespace
