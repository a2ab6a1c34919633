// The request library behind a real web server: lighttpd on 127.0.0.1 runs
// build/sharelink.cgi through mod_cgi in a temporary appliance root, and the
// curl program is the client. The server's configuration includes the
// shipped data/lighttpd/sharelink-admin.conf: basic authentication in front
// of the program, which answers only authenticated requests (REMOTE_USER).
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "support/appliance.h"
#include "support/store_fixture.h"
#include "support/web_server.h"

namespace {

// lighttpd's configuration: a main config around the shipped snippet.
std::string server_config(const ApplianceRoot& root, int port) {
  return "server.bind = \"127.0.0.1\"\n"
         "server.port = " + std::to_string(port) + "\n"
         "server.document-root = \"" + root.path("/web/htdocs") + "\"\n"
         "server.errorlog = \"" + root.path("/web/logs/error.log") + "\"\n"
         // The CGI answers ranges itself; the server must not cut its 200s.
         "server.range-requests = \"disable\"\n"
         "var.sharelink_cgi = \"" + cgi_binary() + "\"\n"
         "var.sharelink_root = \"" + root.dir() + "\"\n"
         "var.sharelink_userfile = \"" + root.path("/web/users") + "\"\n"
         "include \"" SLT_SOURCE_DIR "/data/lighttpd/sharelink-admin.conf\"\n";
}

const char kSharePath[] = "/share/VOL1/Public";

std::string reply(int status) {
  return "{ \"version\": \"6.0.1.6963\", \"build\": \"20250804\", \"status\": " + std::to_string(status) +
         ", \"success\": \"true\" }\n";
}

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

  // As the administrator, unless `extra` names other credentials ("-u") or
  // none ("--anonymous", not passed on).
  Response get(const std::string& target, std::vector<std::string> extra = {}) {
    std::vector<std::string> args = {"-s", "-i", "--max-time", "30", "--globoff"};
    auto anonymous = std::find(extra.begin(), extra.end(), "--anonymous");
    if (anonymous != extra.end()) {
      extra.erase(anonymous);
    } else if (std::find(extra.begin(), extra.end(), "-u") == extra.end()) {
      args.insert(args.end(), {"-u", "admin:admin-pw"});
    }
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

const char kDownload[] = "/sharelink.cgi?func=download&path=/Public/docs/report%201.pdf";

TEST_F(WebTest, FullDownloadCarriesItsHeadersAndEveryByteUnlessNotModified) {
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

  // The stamp sent back gets a 304; another date (or one that is not an HTTP
  // date) gets the file again, without caching headers for a date that differs.
  const std::string stamp = r.header("last-modified");
  Response again = get(kDownload, {"-H", "If-Modified-Since: " + stamp});
  EXPECT_EQ(304, again.status) << again.head;
  EXPECT_EQ("", again.body);
  Response other = get(kDownload, {"-H", "If-Modified-Since: Mon, 10 Sep 2001 01:46:40 GMT"});
  EXPECT_EQ(200, other.status);
  EXPECT_FALSE(other.has("cache-control"));
  EXPECT_TRUE(other.body == report_);
  Response bad = get(kDownload, {"-H", "If-Modified-Since: 1000000000"});
  EXPECT_EQ(200, bad.status);
  EXPECT_TRUE(bad.has("cache-control"));
}

// Ranges: one range gets a 206 with exactly its bytes; the refused forms a
// 416 with the whole size and no body.
TEST_F(WebTest, RangesGetExactlyTheirBytesOrA416) {
  put("/docs/empty.txt", "");
  const std::string empty = "/sharelink.cgi?func=download&path=/Public/docs/empty.txt";
  const struct {
    std::string target;
    const char* range;
    int status;
    const char* content_range;
    std::string body;
  } cases[] = {
      {kDownload, "bytes=100-8700", 206, "bytes 100-8700/20000", report_.substr(100, 8601)},  // two chunks
      {kDownload, "bytes=19990-30000", 206, "bytes 19990-19999/20000", report_.substr(19990)},
      {kDownload, "bytes=0-1,5-6", 416, "bytes 0-19999/20000", ""},
      {kDownload, "bytes=20000-", 416, "bytes 0-19999/20000", ""},
      {kDownload, "bytes=9-3", 416, "bytes 0-19999/20000", ""},
      {kDownload, "bytes=-3", 416, "bytes 0-19999/20000", ""},
      {empty, "bytes=0-", 416, "bytes 0-18446744073709551615/0", ""},
  };
  for (const auto& c : cases) {
    Response r = get(c.target, {"-H", std::string("Range: ") + c.range});
    EXPECT_EQ(c.status, r.status) << c.range << r.head;
    EXPECT_EQ(c.content_range, r.header("content-range")) << c.range;
    EXPECT_TRUE(c.body == r.body) << c.range;
    if (c.status == 206) {
      EXPECT_EQ(std::to_string(c.body.size()), r.header("content-length")) << c.range;
      EXPECT_EQ("application/pdf", r.header("content-type")) << c.range;
    }
  }
}

TEST_F(WebTest, MimeTableMatchesTheOperatorCommand) {
  Response r = get("/sharelink.cgi?func=mime_table");
  EXPECT_EQ(200, r.status);
  EXPECT_EQ("application/json; charset=\"UTF-8\"", r.header("content-type"));
  RunResult ctl = run_program(ctl_binary(), {"mime"}, root_);
  EXPECT_EQ(0, ctl.status);
  EXPECT_EQ(ctl.out, r.body);
  EXPECT_EQ(0u, r.body.find("{ \"datas\": [ { \"ext_name\": \"pdf\", \"mime_type\": \"application\\/pdf\" }"));
}

TEST_F(WebTest, RelocationIsForTheAdministratorOnly) {
  const std::string target = "/sharelink.cgi?func=set_share_link_db&share_link_db=/share/VOL1/.db/new.db";
  const std::string before = config();
  Response bob = get(target, {"-u", "bob:bob-pw"});
  EXPECT_EQ(200, bob.status);
  EXPECT_EQ(reply(4), bob.body);
  EXPECT_EQ(before, config());
  EXPECT_FALSE(root_.exists("/share/VOL1/.db/new.db"));

  Response admin = get(target, {"-u", "admin:admin-pw"});
  EXPECT_EQ("application/json; charset=\"UTF-8\"", admin.header("content-type"));
  EXPECT_EQ(reply(1), admin.body);
  EXPECT_NE(std::string::npos, config().find("Share_Link_Db = /share/VOL1/.db/new.db\n"))
      << config();
  EXPECT_EQ("4", store_value(root_, "SELECT COUNT(*) FROM sqlite_master WHERE type = 'table'"));

  // A folder that does not exist: refused, the configuration stays.
  const std::string kept = config();
  Response missing = get("/sharelink.cgi?func=set_share_link_db&share_link_db=/share/NOPE/x.db",
                         {"-u", "admin:admin-pw"});
  EXPECT_EQ(reply(20), missing.body);
  EXPECT_EQ(kept, config());
}

TEST_F(WebTest, TranscodedVariantIsAnAttachment) {
  root_.mkdirs(std::string(kSharePath) + "/v/.@__thumb/transcode");
  put("/v/a-b;c.mp4", "original video");
  put("/v/.@__thumb/transcode/a-b;c.mp4.ipad720p", "the 720p variant bytes");
  const std::string target = "/sharelink.cgi?func=transcode&path=/Public/v/a-b%3Bc.mp4&variant=mp4_720";
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

  Response absent = get("/sharelink.cgi?func=transcode&path=/Public/v/a-b%3Bc.mp4&variant=mp4_480");
  EXPECT_EQ(reply(20), absent.body);
}

TEST_F(WebTest, UnknownRequestsAndMissingFilesGetAStatusReply) {
  for (const char* target : {"/sharelink.cgi", "/sharelink.cgi?func=nothing",
                             "/sharelink.cgi?func=download",
                             "/sharelink.cgi?func=download&path=/Public/docs/none.pdf",
                             "/sharelink.cgi?func=download&path=/Public/docs",
                             "/sharelink.cgi?func=download&path=/Nowhere/a.txt"}) {
    Response r = get(target);
    EXPECT_EQ(200, r.status) << target;
    EXPECT_EQ("application/json; charset=\"UTF-8\"", r.header("content-type")) << target;
    EXPECT_EQ(reply(20), r.body) << target;
  }
}

// The server asks for credentials before the program runs; with them the
// file comes, with wrong ones it does not.
TEST_F(WebTest, CredentialsAreAskedBeforeTheProgramRuns) {
  Response anonymous = get(kDownload, {"--anonymous"});
  EXPECT_EQ(401, anonymous.status) << anonymous.head;
  EXPECT_NE(std::string::npos, anonymous.header("www-authenticate").find("Basic"));
  EXPECT_EQ(std::string::npos, anonymous.body.find(report_.substr(0, 64)));
  Response wrong = get(kDownload, {"-u", "admin:wrong"});
  EXPECT_EQ(401, wrong.status);
  Response bob = get(kDownload, {"-u", "bob:bob-pw"});
  EXPECT_EQ(200, bob.status);
  EXPECT_TRUE(bob.body == report_);
}

// The two hostile requests through the server: a download that climbs out
// of a remote folder and a relocation that climbs out of a volume with
// force_delete. The files they aim at lie outside the appliance root.
TEST_F(WebTest, HostileRequestsGetNeitherTheFileNorTheDeletion) {
  ApplianceRoot outside;
  outside.write("/outside.txt", "the outside secret");
  outside.write("/victim", "victim");
  root_.write("/etc/config/remote_folder.conf", "[1]\nName = rf\nLocal Path = /share/VOL1/rf\n");
  root_.mkdirs("/share/VOL1/rf");
  std::string up;
  for (char c : root_.dir() + "/share/VOL1/rf") {
    if (c == '/') up += "../";
  }
  const std::string before = config();
  Response download = get("/sharelink.cgi?func=download&path=/remote:1@rf/" + up +
                          outside.dir().substr(1) + "/outside.txt");
  EXPECT_EQ(reply(20), download.body);
  Response relocation = get("/sharelink.cgi?func=set_share_link_db&force_delete=1&share_link_db=/share/VOL1/" +
                            up.substr(3) + outside.dir().substr(1) + "/victim");
  EXPECT_EQ(reply(20), relocation.body);
  EXPECT_EQ("victim", outside.read("/victim"));
  EXPECT_EQ(before, config());
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
                               {"REMOTE_USER", "admin"},
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
