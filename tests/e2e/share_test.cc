// share.cgi behind the real lighttpd in a temporary appliance root, curl as client.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "support/appliance.h"
#include "support/web_server.h"

namespace {

const char kPublic[] = "/share/VOL1/Public";
const char kSecret[] = "outside the share";

std::string share_config(const ApplianceRoot& root, int port, bool x_sendfile) {
  return "server.modules = (\"mod_alias\", \"mod_setenv\", \"mod_cgi\")\n"
         "server.bind = \"127.0.0.1\"\n"
         "server.port = " + std::to_string(port) + "\n"
         "server.document-root = \"" + root.path("/web/htdocs") + "\"\n"
         "server.errorlog = \"" + root.path("/web/logs/error.log") + "\"\n"
         "server.range-requests = \"disable\"\n"
         "alias.url = (\"/share.cgi\" => \"" SLT_BUILD_DIR "/share.cgi\")\n"
         "cgi.assign = (\".cgi\" => \"\")\n" +
         (x_sendfile ? "cgi.x-sendfile = \"enable\"\n" : "") +
         "setenv.add-environment = (\"SHARELINK_ROOT\" => \"" + root.dir() + "\"" +
         (x_sendfile ? ", \"SHARE_X_SENDFILE\" => \"1\"" : "") + ")\n";
}

class ShareTest : public ::testing::Test {
 protected:
  void SetUp() override {
    lighttpd_ = find_program("lighttpd");
    curl_ = find_program("curl");
    if (lighttpd_.empty() || curl_.empty()) GTEST_SKIP() << "lighttpd or curl is not installed";
    root_.write("/etc/config/smb.conf", std::string("[Public]\npath = ") + kPublic + "\n");
    ASSERT_EQ(0, run_program(ctl_binary(), {"init"}, root_).status);
    for (int i = 0; i < 20000; ++i) report_ += static_cast<char>((i * 131 + i / 256) & 0xff);
    put("/docs/report 1.pdf", report_);
    put("/docs/page.html", "<script>alert(1)</script>");
    put("/folder/a.txt", "inside");
    put("/folder/sub/b.txt", "deeper");
    root_.write("/share/VOL1/Secret/s.txt", kSecret);
    root_.write("/etc/passwd", kSecret);
    add({"report", "/Public/docs/report 1.pdf"});
    add({"folder", "/Public/folder"});
  }

  void start(bool x_sendfile = false) {
    server_ = std::make_unique<WebServer>(
        root_, lighttpd_, [&](int port) { return share_config(root_, port, x_sendfile); });
    ASSERT_TRUE(server_->running()) << root_.read("/web/logs/console.log")
                                    << root_.read("/web/logs/error.log");
  }

  void put(const std::string& rel, const std::string& content) {
    root_.write(kPublic + rel, content);
    root_.set_mtime(kPublic + rel, 1000000000);
  }

  void add(std::vector<std::string> args) {
    args.insert(args.begin(), "add");
    args.insert(args.end(), {"--creator", "admin"});
    RunResult r = run_program(ctl_binary(), args, root_);
    ASSERT_EQ(0, r.status) << r.err;
  }

  Response get(const std::string& target, const std::vector<std::string>& extra = {}) {
    std::vector<std::string> args = {"-s", "-i", "--max-time", "30", "--globoff", "-A", agent_};
    args.insert(args.end(), extra.begin(), extra.end());
    args.push_back(server_->url(target));
    RunResult r = run_program(curl_, args, root_);
    EXPECT_EQ(0, r.status) << "curl " << target << ": " << r.err;
    return parse_response(r.out);
  }

  std::string sql(const std::string& statement) {
    RunResult r = run_program("/usr/bin/sqlite3", {root_.path("/etc/config/share_link.db"), statement}, root_);
    EXPECT_EQ(0, r.status) << r.err;
    return r.out;
  }

  int count(const std::string& key) {
    std::string n = sql("SELECT download_count FROM SHARELINK_EVENT WHERE pkey='" + key + "'");
    return n.empty() ? -1 : atoi(n.c_str());
  }

  std::string log_in(const std::string& key, const std::string& code) {
    Response r = get("/share.cgi?ssid=" + key, {"--data", "code=" + code});
    EXPECT_EQ(303, r.status) << r.head;
    std::string c = r.header("set-cookie");
    return c.substr(0, c.find(';'));
  }

  ApplianceRoot root_;
  std::string lighttpd_;
  std::string curl_;
  std::string agent_ = "Mozilla/5.0 (X11; Linux x86_64) Firefox/128.0";
  std::string report_;
  std::unique_ptr<WebServer> server_;
};

const char kPageCsp[] =
    "default-src 'none'; style-src 'unsafe-inline'; img-src 'self'; form-action 'self'; "
    "frame-ancestors 'none'";

TEST_F(ShareTest, EveryAnswerCarriesItsStatusAndHeaders) {
  add({"gone", "/Public/folder", "--expire", "1000", "--createtic", "900"});
  add({"used", "/Public/folder/a.txt", "--download-limit", "1"});
  sql("UPDATE SHARELINK_EVENT SET download_count = 1 WHERE pkey = 'used'");
  start();
  struct Case {
    std::string target;
    std::vector<std::string> extra;
    int status;
    bool page;         // page CSP, else the sandbox of a file body
    std::string text;  // in the body
  } cases[] = {
      {"/share.cgi?ssid=report", {}, 200, true, "Downloads left: no limit"},
      {"/share.cgi?ssid=report&dl=1", {}, 200, false, ""},
      {"/share.cgi?ssid=folder", {}, 200, true, "a.txt"},
      {"/share.cgi?ssid=nosuch", {}, 404, true, "does not exist"},
      {"/share.cgi", {}, 404, true, "does not exist"},
      {"/share.cgi?ssid=gone", {}, 410, true, "expired on 1970-01-01 00:16 UTC"},
      {"/share.cgi?ssid=used&dl=1", {}, 410, true, "download limit"},
      {"/share.cgi?ssid=used", {}, 410, true, "download limit"},
      {"/share.cgi?ssid=report", {"-X", "PUT"}, 405, true, "GET, HEAD and POST"},
      {"/share.cgi?ssid=report&dl=1", {"-A", "Slackbot-LinkExpanding 1.0"}, 403, true, "person"},
      {"/share.cgi?ssid=report&dl=1", {"-A", "Mozilla/5.0 (compatible; bingbot/2.0)"}, 403, true, ""},
      {"/share.cgi?ssid=report", {"-A", "facebookexternalhit/1.1"}, 200, true, "Download"},
  };
  for (const Case& c : cases) {
    Response r = get(c.target, c.extra);
    SCOPED_TRACE(c.target + " " + (c.extra.empty() ? "" : c.extra.back()));
    EXPECT_EQ(c.status, r.status) << r.head;
    EXPECT_EQ("nosniff", r.header("x-content-type-options"));
    EXPECT_EQ("no-referrer", r.header("referrer-policy"));
    EXPECT_EQ("noindex, nofollow", r.header("x-robots-tag"));
    EXPECT_EQ(c.page ? kPageCsp : "sandbox", r.header("content-security-policy"));
    if (c.page) {
      EXPECT_EQ("no-store", r.header("cache-control"));
      EXPECT_EQ("text/html; charset=utf-8", r.header("content-type"));
    }
    EXPECT_NE(std::string::npos, r.body.find(c.text)) << r.body;
  }
  EXPECT_EQ("GET, HEAD, POST", get("/share.cgi?ssid=report", {"-X", "DELETE"}).header("allow"));
  EXPECT_EQ(1, count("used"));  // reading never changes a link
  EXPECT_EQ(1, count("report"));
}

TEST_F(ShareTest, FileBodiesAreAttachmentsWithValidators) {
  start();
  Response r = get("/share.cgi?ssid=report&dl=1");
  EXPECT_TRUE(r.body == report_) << r.body.size();
  EXPECT_EQ("application/pdf", r.header("content-type"));
  EXPECT_EQ("attachment; filename=\"report 1.pdf\"; filename*=UTF-8''report%201.pdf",
            r.header("content-disposition"));
  EXPECT_EQ("20000", r.header("content-length"));
  EXPECT_EQ("Sun, 09 Sep 2001 01:46:40 GMT", r.header("last-modified"));
  const std::string etag = r.header("etag");
  ASSERT_EQ('"', etag.front());
  EXPECT_EQ("inline; filename=\"report 1.pdf\"; filename*=UTF-8''report%201.pdf",
            get("/share.cgi?ssid=report&dl=1&inline=1").header("content-disposition"));
  add({"html", "/Public/docs/page.html"});
  Response html = get("/share.cgi?ssid=html&dl=1&inline=1");
  EXPECT_EQ(std::string::npos, html.header("content-type").find("html"));
  EXPECT_EQ(0u, html.header("content-disposition").find("attachment;"));
  Response part = get("/share.cgi?ssid=report&dl=1", {"-H", "Range: bytes=10-19", "-H",
                                                       "If-Range: " + etag});
  EXPECT_EQ(206, part.status);
  EXPECT_EQ("bytes 10-19/20000", part.header("content-range"));
  EXPECT_EQ(report_.substr(10, 10), part.body);
  Response stale = get("/share.cgi?ssid=report&dl=1", {"-H", "Range: bytes=10-19", "-H",
                                                        "If-Range: \"old\""});
  EXPECT_EQ(200, stale.status);
  EXPECT_EQ(20000u, stale.body.size());
  EXPECT_EQ(304, get("/share.cgi?ssid=report&dl=1", {"-H", "If-None-Match: " + etag}).status);
  EXPECT_EQ(304, get("/share.cgi?ssid=report&dl=1",
                     {"-H", "If-Modified-Since: Sun, 09 Sep 2001 01:46:40 GMT"})
                     .status);
}

TEST_F(ShareTest, DownloadsCountByTheRules) {
  add({"lim", "/Public/docs/report 1.pdf", "--download-limit", "3"});
  start();
  const std::string dl = "/share.cgi?ssid=lim&dl=1";
  struct Step {
    std::string agent;
    std::vector<std::string> extra;
    int status;
    int count_after;
  } steps[] = {
      {"A", {}, 200, 0},  // the page itself (no dl) is first, below
      {"A", {"-I"}, 200, 0},
      {"A", {"-H", "Range: bytes=99999-"}, 416, 0},
      {"A", {"-H", "Range: bytes=0-99"}, 206, 1},  // from byte 0: counts
      {"A", {}, 200, 1},                           // the same visitor within the hour
      {"A", {"-H", "If-None-Match: *"}, 304, 1},
      {"Googlebot/2.1", {}, 403, 1},
      {"B", {"-H", "Range: bytes=5-"}, 206, 1},  // under the limit, not from 0: served, not counted
      {"B", {}, 200, 2},
      {"C", {}, 200, 3},
      {"D", {}, 410, 3},
      {"D", {"-H", "Range: bytes=1-"}, 410, 3},  // a range cannot get around the limit
      {"A", {"-H", "Range: bytes=100-"}, 206, 3},  // but a counted visitor may resume
  };
  EXPECT_EQ(200, get("/share.cgi?ssid=lim").status);
  for (size_t i = 1; i < sizeof steps / sizeof steps[0]; ++i) {
    agent_ = steps[i].agent;
    Response r = get(dl, steps[i].extra);
    EXPECT_EQ(steps[i].status, r.status) << "step " << i << "\n" << r.head;
    EXPECT_EQ(steps[i].count_after, count("lim")) << "step " << i;
  }
}

TEST_F(ShareTest, CurlResumeGivesTheSameBytesAndOneCount) {
  add({"resume", "/Public/docs/report 1.pdf", "--download-limit", "5"});
  start();
  const std::string out = root_.path("/out.pdf");
  const std::string url = server_->url("/share.cgi?ssid=resume&dl=1");
  RunResult first = run_program(curl_, {"-s", "-A", "R", "-r", "0-4999", "-o", out, url}, root_);
  ASSERT_EQ(0, first.status);
  RunResult rest = run_program(curl_, {"-s", "-A", "R", "-C", "-", "-o", out, url}, root_);
  ASSERT_EQ(0, rest.status) << rest.err;
  EXPECT_TRUE(root_.read("/out.pdf") == report_) << root_.read("/out.pdf").size();
  EXPECT_EQ(1, count("resume"));
}

TEST_F(ShareTest, AccessCodeCookieAndThrottling) {
  add({"coded", "/Public/docs/report 1.pdf", "--accesscode", "s3cret"});
  start();
  const std::string page = "/share.cgi?ssid=coded";
  Response form = get(page);
  EXPECT_EQ(200, form.status);
  EXPECT_NE(std::string::npos, form.body.find("name=\"code\""));
  EXPECT_EQ(403, get(page + "&dl=1").status);
  EXPECT_EQ(200, get(page + "&code=s3cret").status);  // the query string is no way in
  EXPECT_EQ(std::string::npos, get(page + "&code=s3cret").body.find("Download"));
  Response wrong = get(page, {"--data", "code=guess-one"});
  EXPECT_EQ(403, wrong.status);
  EXPECT_EQ(std::string::npos, wrong.body.find("guess-one"));

  Response ok = get(page, {"--data", "code=s3cret"});
  ASSERT_EQ(303, ok.status);
  const std::string set = ok.header("set-cookie");
  for (const char* flag : {"; HttpOnly", "; SameSite=Lax", "; Path=/share.cgi", "; Max-Age=43200"}) {
    EXPECT_NE(std::string::npos, set.find(flag)) << set;
  }
  EXPECT_EQ(std::string::npos, set.find("Secure"));
  const std::string cookie = set.substr(0, set.find(';'));
  EXPECT_EQ(200, get(page + "&dl=1", {"-b", cookie}).status);
  EXPECT_EQ(403, get(page + "&dl=1", {"-b", cookie + "0"}).status);  // a forged value

  sql("UPDATE SHARELINK_EVENT SET accesscode = 'n3w' WHERE pkey = 'coded'");
  EXPECT_NE(std::string::npos, get(page, {"-b", cookie}).body.find("name=\"code\""));
  const std::string fresh = log_in("coded", "n3w");

  for (int i = 0; i < 4; ++i) EXPECT_EQ(403, get(page, {"--data", "code=x"}).status) << i;
  Response slow = get(page, {"--data", "code=n3w"});
  EXPECT_EQ(429, slow.status);
  const int wait = atoi(slow.header("retry-after").c_str());
  EXPECT_TRUE(wait > 0 && wait <= 900) << wait;
  EXPECT_EQ(429, get(page).status);
  EXPECT_EQ(200, get(page + "&dl=1", {"-b", fresh}).status);  // a valid cookie is never throttled

  add({"other", "/Public/folder", "--accesscode", "pw"});
  for (int i = 0; i < 15; ++i) EXPECT_EQ(404, get("/share.cgi?ssid=guess" + std::to_string(i)).status);
  EXPECT_EQ(429, get("/share.cgi?ssid=other").status);
  EXPECT_EQ(429, get("/share.cgi?ssid=guess99").status);
  EXPECT_EQ(200, get("/share.cgi?ssid=folder").status);  // a link without a code stays open

  RunResult audit = run_program(ctl_binary(), {"audit", "coded"}, root_);
  EXPECT_EQ(0, audit.status);
  EXPECT_NE(std::string::npos, audit.out.find("\tbad-code\n"));
  EXPECT_NE(std::string::npos, audit.out.find("\tdownload\n"));
  EXPECT_EQ(std::string::npos, audit.out.find("guess99"));
  for (const std::string& text : {audit.out, root_.read("/web/logs/error.log"),
                                  run_program(ctl_binary(), {"audit"}, root_).out}) {
    EXPECT_EQ(std::string::npos, text.find("s3cret"));
    EXPECT_EQ(std::string::npos, text.find("guess-one"));
  }
}

TEST_F(ShareTest, NothingOutsideTheShareIsServed) {
  root_.mkdirs("/share/VOL1/Public/folder/empty");
  ASSERT_EQ(0, symlink(root_.path("/share/VOL1/Secret").c_str(),
                       root_.path("/share/VOL1/Public/folder/out").c_str()));
  ASSERT_EQ(0, symlink("../../Secret/s.txt", root_.path("/share/VOL1/Public/folder/s.txt").c_str()));
  ASSERT_EQ(0, mkfifo(root_.path("/share/VOL1/Public/folder/pipe").c_str(), 0644));
  add({"multi", "/Public/docs", "--fid", "f1:/Public/folder/a.txt", "--fid", "f2:/Public/docs"});
  start();
  const std::string not_found = get("/share.cgi?ssid=nosuch").body;
  const std::string base = "/share.cgi?ssid=folder&dl=1&path=";
  const std::vector<std::string> targets = {
      base + "../../Secret/s.txt", base + "..%2F..%2FSecret%2Fs.txt",
      base + "%2e%2e/%2e%2e/Secret/s.txt", base + "sub/../../../Secret/s.txt",
      base + "/etc/passwd", base + "%2Fetc%2Fpasswd",
      base + "..%5C..%5CSecret%5Cs.txt", base + "sub%5Cb.txt", base + "out/s.txt", base + "s.txt",
      base + "pipe", base + "sub", base + "empty", base + "nosuch.txt",
      "/share.cgi?ssid=folder&path=..", "/share.cgi?ssid=report&path=a.txt",
      "/share.cgi?ssid=multi&fid=f9&dl=1", "/share.cgi?ssid=multi&fid=f2&dl=1",
      "/share.cgi?ssid=multi&fid=f1&path=a.txt&dl=1", "/share.cgi?ssid=multi&dl=1",
  };
  for (const std::string& t : targets) {
    Response r = get(t);
    EXPECT_EQ(404, r.status) << t;
    EXPECT_EQ(not_found, r.body) << t;
  }
  EXPECT_EQ("deeper", get(base + "sub/b.txt").body);
  EXPECT_EQ("inside", get("/share.cgi?ssid=multi&fid=f1&dl=1").body);
  EXPECT_NE(std::string::npos, get("/share.cgi?ssid=multi").body.find("fid=f1&amp;dl=1"));
}

TEST_F(ShareTest, FolderSwappedForALinkNeverLeadsOut) {
  put("/folder/race/s.txt", "inside");
  const std::string dir = root_.path("/share/VOL1/Public/folder/race");
  const std::string parked = root_.path("/share/VOL1/Public/folder/parked");
  const std::string link = root_.path("/share/VOL1/Public/folder/link");
  ASSERT_EQ(0, symlink(root_.path("/share/VOL1/Secret").c_str(), link.c_str()));
  start();
  std::atomic<bool> stop{false};
  std::thread swapper([&] {
    while (!stop) {
      rename(dir.c_str(), parked.c_str());
      rename(link.c_str(), dir.c_str());
      rename(dir.c_str(), link.c_str());
      rename(parked.c_str(), dir.c_str());
    }
  });
  for (int i = 0; i < 25; ++i) {
    Response r = get("/share.cgi?ssid=folder&dl=1&path=race/s.txt");
    EXPECT_EQ(std::string::npos, r.body.find(kSecret));
    EXPECT_TRUE(r.status == 200 || r.status == 404) << r.status;
  }
  stop = true;
  swapper.join();
  EXPECT_EQ("inside", get("/share.cgi?ssid=folder&dl=1&path=race/s.txt").body);
}

TEST_F(ShareTest, HostileNamesAreEscapedEverywhere) {
  put("/folder/<img src=x onerror=alert(1)>.txt", "xss");
  for (int i = 0; i < 205; ++i) put("/big/f" + std::to_string(1000 + i), "x");
  root_.mkdirs(std::string(kPublic) + "/big/zdir");
  add({"big", "/Public/big"});
  start();
  Response list = get("/share.cgi?ssid=folder");
  EXPECT_EQ(std::string::npos, list.body.find("<img src=x"));
  EXPECT_NE(std::string::npos, list.body.find("&lt;img src=x onerror=alert(1)&gt;.txt"));
  EXPECT_LT(list.body.find(">sub/<"), list.body.find(">a.txt<"));  // folders first
  Response page0 = get("/share.cgi?ssid=big");
  Response page1 = get("/share.cgi?ssid=big&page=1");
  auto rows = [](const std::string& body) {
    size_t n = 0;
    for (size_t p = body.find("<tr><td>"); p != std::string::npos; p = body.find("<tr><td>", p + 1)) ++n;
    return n;
  };
  EXPECT_EQ(200u, rows(page0.body));
  EXPECT_EQ(6u, rows(page1.body));
  EXPECT_NE(std::string::npos, page0.body.find(">zdir/<"));
  EXPECT_NE(std::string::npos, page0.body.find("page=1\">Next"));
  EXPECT_NE(std::string::npos, page1.body.find("page=0\">Previous"));
}

TEST_F(ShareTest, RegistryLinksAndXSendfile) {
  root_.write("/etc/config/shareFileEx.ini",
              std::string("reg1\thost\tx\t0\t") + kPublic + "/folder/a.txt\tx\t0\tx\tx\n" +
                  "reg2\thost\tx\t0\t" + kPublic + "/folder/a.txt\tx\t1000\tx\tx\n");
  start(true);
  EXPECT_EQ(200, get("/share.cgi?ssid=reg1").status);
  EXPECT_EQ("inside", get("/share.cgi?ssid=reg1&dl=1").body);
  EXPECT_EQ(410, get("/share.cgi?ssid=reg2").status);
  Response sent = get("/share.cgi?ssid=report&dl=1");
  EXPECT_TRUE(sent.body == report_) << sent.body.size();
  EXPECT_FALSE(sent.has("x-sendfile"));
  EXPECT_EQ("sandbox", sent.header("content-security-policy"));
  EXPECT_EQ(1, count("report"));
}

TEST(ShareCgiProgram, AnyRequestGetsASafeAnswer) {
  ApplianceRoot root;
  root.write("/etc/config/smb.conf", std::string("[Public]\npath = ") + kPublic + "\n");
  ASSERT_EQ(0, run_program(ctl_binary(), {"init"}, root).status);
  root.write(std::string(kPublic) + "/f/a.txt", "inside");
  root.write(std::string(kPublic) + "/f/evil\r\nX-Injected: 1\".txt", "crlf");
  ASSERT_EQ(0, run_program(ctl_binary(), {"add", "f", "/Public/f", "--creator", "admin"}, root).status);
  struct Case {
    std::string query;
    std::string status;
  } cases[] = {
      {"ssid=f&dl=1&path=a.txt%00", "404"},       {"ssid=f&dl=1&path=a.txt%00.jpg", "404"},
      {"ssid=f&dl=1&path=%00", "404"},            {"ssid=f%00&dl=1&path=a.txt", "404"},
      {"ssid=f&dl=1&path=a.txt", "206"},          {"ssid=f&dl=1&path=sub%5C..%5Ca.txt", "404"},
      {"ssid=f&&&=&dl&path", "200"},              {"ssid=f&page=-5", "200"},
      {"ssid=f&page=99999999999999999999", "200"}, {"ssid=" + std::string(70000, 'k'), "404"},
      {"ssid=f&dl=1&path=" + std::string(5000, 'a'), "404"},
      {"ssid=f&dl=1&path=evil%0D%0AX-Injected%3A%201%22.txt", "206"},
  };
  for (const Case& c : cases) {
    RunResult r = run_program(SLT_BUILD_DIR "/share.cgi", {}, root,
                              {{"QUERY_STRING", c.query},
                               {"REQUEST_METHOD", "GET"},
                               {"REMOTE_ADDR", "2001:db8::1"},
                               {"HTTP_RANGE", "bytes=0-"},
                               {"HTTP_COOKIE", "slt_share_x=1.2.3; ;;=="}});
    EXPECT_EQ(0, r.status) << c.query.substr(0, 80);
    EXPECT_EQ(0u, r.out.find("Status: " + c.status)) << c.query.substr(0, 80) << r.out.substr(0, 200);
    std::string head = r.out.substr(0, r.out.find("\r\n\r\n"));
    EXPECT_EQ(std::string::npos, head.find("\nX-Injected")) << head;
  }
  RunResult crlf = run_program(SLT_BUILD_DIR "/share.cgi", {}, root,
                               {{"QUERY_STRING", cases[11].query}, {"REQUEST_METHOD", "GET"}});
  EXPECT_NE(std::string::npos,
            crlf.out.find("\r\nContent-Disposition: attachment; filename=\"evilX-Injected: 1.txt\"; "
                          "filename*=UTF-8''evil%0D%0AX-Injected%3A%201%22.txt\r\n"));
  EXPECT_EQ("crlf", crlf.out.substr(crlf.out.find("\r\n\r\n") + 4));
  RunResult handed = run_program(SLT_BUILD_DIR "/share.cgi", {}, root,
                                 {{"QUERY_STRING", "ssid=f&dl=1&path=a.txt"},
                                  {"REQUEST_METHOD", "GET"},
                                  {"SHARE_X_SENDFILE", "1"}});
  const std::string tail = "\r\nX-Sendfile: " + root.path(std::string(kPublic) + "/f/a.txt") + "\r\n\r\n";
  ASSERT_GE(handed.out.size(), tail.size());
  EXPECT_EQ(tail, handed.out.substr(handed.out.size() - tail.size()));
}

}  // namespace
