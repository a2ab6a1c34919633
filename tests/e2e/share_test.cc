// share.cgi behind the real lighttpd in a temporary appliance root, curl as client.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <thread>

#include "support/store_fixture.h"
#include "support/zip_share.h"

namespace {

const char kSecret[] = "outside the share";

class ShareTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (find_program("lighttpd").empty()) GTEST_SKIP() << "lighttpd is not installed";
    zip_prepare_root(root_);
    for (int i = 0; i < 20000; ++i) report_ += static_cast<char>((i * 131 + i / 256) & 0xff);
    put("/docs/report 1.pdf", report_);
    put("/docs/page.html", "<script>alert(1)</script>");
    put("/folder/a.txt", "inside");
    put("/folder/sub/b.txt", "deeper");
    root_.write("/share/VOL1/Secret/s.txt", kSecret);
    root_.write("/etc/passwd", kSecret);
    add({"report", "/Public/docs/report 1.pdf"});
    add({"folder", "/Public/folder"});
    server_ = zip_server(root_, false);
    ASSERT_TRUE(server_->running()) << root_.read("/web/logs/error.log");
  }
  void put(const std::string& rel, const std::string& content) {
    root_.write(kZipPublic + rel, content);
    root_.set_mtime(kZipPublic + rel, 1000000000);
  }
  void add(const std::vector<std::string>& args) { ASSERT_EQ(0, share_add(root_, args)); }
  Download get(const std::string& query, const std::vector<std::string>& extra = {}) {
    return zip_fetch(root_, server_->url("/share.cgi" + query), "", extra);
  }
  int count(const std::string& key) { return share_count(root_, key); }

  ApplianceRoot root_;
  std::string report_;
  std::unique_ptr<WebServer> server_;
};

TEST_F(ShareTest, EveryAnswerCarriesItsStatusAndHeaders) {
  add({"gone", "/Public/folder", "--expire", "1000", "--createtic", "900"});
  add({"used", "/Public/folder/a.txt", "--download-limit", "1"});
  store_exec(root_, "UPDATE SHARELINK_EVENT SET download_count = 1 WHERE pkey = 'used'");
  struct Case {
    std::string query;
    std::vector<std::string> extra;
    int status;
    std::string text;  // in the body; "" for a file body
  } cases[] = {
      {"?ssid=report", {}, 200, "Downloads left: no limit"},
      {"?ssid=report&dl=1", {}, 200, ""},
      {"?ssid=folder", {}, 200, "a.txt"},
      {"?ssid=nosuch", {}, 404, "does not exist"},
      {"", {}, 404, "does not exist"},
      {"?ssid=gone", {}, 410, "expired on 1970-01-01 00:16 UTC"},
      {"?ssid=used&dl=1", {}, 410, "download limit"},
      {"?ssid=used", {}, 410, "download limit"},
      {"?ssid=report", {"-X", "PUT"}, 405, "GET, HEAD and POST"},
      {"?ssid=report&dl=1", {"-A", "Slackbot-LinkExpanding 1.0"}, 403, "person"},
      {"?ssid=report&dl=1", {"-A", "Mozilla/5.0 (compatible; bingbot/2.0)"}, 403, "</html>"},
      {"?ssid=report", {"-A", "facebookexternalhit/1.1"}, 200, "Download"},
  };
  for (const Case& c : cases) {
    Download r = get(c.query, c.extra);
    SCOPED_TRACE(c.query + " " + (c.extra.empty() ? "" : c.extra.back()));
    EXPECT_EQ(c.status, r.status) << r.head;
    const bool page = !c.text.empty();
    const std::pair<const char*, std::string> headers[] = {
        {"x-content-type-options", "nosniff"}, {"referrer-policy", "no-referrer"},
        {"x-robots-tag", "noindex, nofollow"},
        {"content-security-policy", page ? "default-src 'none'; style-src 'unsafe-inline'; img-src "
                                           "'self'; form-action 'self'; frame-ancestors 'none'"
                                         : "sandbox"},
        {"cache-control", page ? "no-store" : r.header("cache-control")},
        {"content-type", page ? "text/html; charset=utf-8" : r.header("content-type")}};
    for (const auto& [name, value] : headers) EXPECT_EQ(value, r.header(name)) << name;
    EXPECT_NE(std::string::npos, r.body.find(c.text)) << r.body;
  }
  EXPECT_EQ("GET, HEAD, POST", get("?ssid=report", {"-X", "DELETE"}).header("allow"));
  EXPECT_EQ(1, count("used"));  // reading never changes a link
  EXPECT_EQ(1, count("report"));
}

TEST_F(ShareTest, FileBodiesAreAttachmentsWithValidators) {
  add({"html", "/Public/docs/page.html"});
  Download r = get("?ssid=report&dl=1");
  EXPECT_TRUE(r.body == report_) << r.body.size();
  EXPECT_EQ("application/pdf", r.header("content-type"));
  const std::string name = "; filename=\"report 1.pdf\"; filename*=UTF-8''report%201.pdf";
  EXPECT_EQ("attachment" + name, r.header("content-disposition"));
  EXPECT_EQ("inline" + name, get("?ssid=report&dl=1&inline=1").header("content-disposition"));
  EXPECT_EQ(20000, r.length);
  const std::string modified = "Sun, 09 Sep 2001 01:46:40 GMT", etag = r.header("etag");
  EXPECT_EQ(modified, r.header("last-modified"));
  ASSERT_EQ('"', etag.front());
  Download html = get("?ssid=html&dl=1&inline=1");  // never rendered as a page
  EXPECT_EQ(std::string::npos, html.header("content-type").find("html"));
  EXPECT_EQ(0u, html.header("content-disposition").find("attachment;"));
  struct Case {
    std::vector<std::string> extra;
    int status;
    std::string body, range;
  } cases[] = {
      {{"-H", "Range: bytes=10-19", "-H", "If-Range: " + etag}, 206, report_.substr(10, 10),
       "bytes 10-19/20000"},
      {{"-H", "Range: bytes=10-19", "-H", "If-Range: \"old\""}, 200, report_, ""},
      {{"-H", "If-None-Match: " + etag}, 304, "", ""},
      {{"-H", "If-Modified-Since: " + modified}, 304, "", ""},
  };
  for (const Case& c : cases) {
    Download p = get("?ssid=report&dl=1", c.extra);
    EXPECT_EQ(c.status, p.status) << c.extra.back();
    EXPECT_TRUE(c.body == p.body) << c.extra.back() << ": " << p.body.size();
    EXPECT_EQ(c.range, p.header("content-range"));
  }
}

TEST_F(ShareTest, DownloadsCountByTheRules) {
  add({"lim", "/Public/docs/report 1.pdf", "--download-limit", "3"});
  add({"resume", "/Public/docs/report 1.pdf", "--download-limit", "5"});
  EXPECT_EQ(200, get("?ssid=lim").status);  // the page itself counts nothing
  struct Step {
    std::vector<std::string> extra;  // -A first: the visitor
    int status, count_after;
  } steps[] = {
      {{"-A", "A", "-I"}, 200, 0},
      {{"-A", "A", "-H", "Range: bytes=99999-"}, 416, 0},
      {{"-A", "A", "-H", "Range: bytes=0-99"}, 206, 1},  // from byte 0: counts
      {{"-A", "A"}, 200, 1},                              // the same visitor within the hour
      {{"-A", "A", "-H", "If-None-Match: *"}, 304, 1},
      {{"-A", "Googlebot/2.1"}, 403, 1},
      {{"-A", "B", "-H", "Range: bytes=5-"}, 206, 1},  // under the limit, not from 0: not counted
      {{"-A", "B"}, 200, 2},
      {{"-A", "C"}, 200, 3},
      {{"-A", "D"}, 410, 3},
      {{"-A", "D", "-H", "Range: bytes=1-"}, 410, 3},    // a range cannot get around the limit
      {{"-A", "A", "-H", "Range: bytes=100-"}, 206, 3},  // but a counted visitor may resume
  };
  for (const Step& s : steps) {
    Download r = get("?ssid=lim&dl=1", s.extra);
    EXPECT_EQ(s.status, r.status) << "step " << &s - steps << "\n" << r.head;
    EXPECT_EQ(s.count_after, count("lim")) << "step " << &s - steps;
  }
  // curl's own resume: the same bytes, one count.
  const std::string url = server_->url("/share.cgi?ssid=resume&dl=1");
  ASSERT_EQ(5000, zip_fetch(root_, url, "/out.pdf", {"-A", "R", "-r", "0-4999"}).received);
  EXPECT_EQ(206, zip_fetch(root_, url, "/out.pdf", {"-A", "R", "-C", "-"}).status);
  EXPECT_TRUE(root_.read("/out.pdf") == report_) << root_.read("/out.pdf").size();
  EXPECT_EQ(1, count("resume"));
}

TEST_F(ShareTest, AccessCodeCookieAndThrottling) {
  add({"coded", "/Public/docs/report 1.pdf", "--accesscode", "s3cret"});
  add({"other", "/Public/folder", "--accesscode", "pw"});
  auto log_in = [&](const std::string& code) {
    Download r = get("?ssid=coded", {"--data", "code=" + code});
    EXPECT_EQ(303, r.status);
    return r.header("set-cookie");
  };
  EXPECT_NE(std::string::npos, get("?ssid=coded").body.find("name=\"code\""));
  EXPECT_EQ(403, get("?ssid=coded&dl=1").status);
  Download query = get("?ssid=coded&code=s3cret");  // the query string is no way in
  EXPECT_EQ(200, query.status);
  EXPECT_EQ(std::string::npos, query.body.find("Download"));
  Download wrong = get("?ssid=coded", {"--data", "code=guess-one"});
  EXPECT_EQ(403, wrong.status);
  EXPECT_EQ(std::string::npos, wrong.body.find("guess-one"));

  const std::string set = log_in("s3cret"), cookie = set.substr(0, set.find(';'));
  for (const char* flag : {"; HttpOnly", "; SameSite=Lax", "; Path=/share.cgi", "; Max-Age=43200"}) {
    EXPECT_NE(std::string::npos, set.find(flag)) << set;
  }
  EXPECT_EQ(std::string::npos, set.find("Secure"));
  EXPECT_EQ(200, get("?ssid=coded&dl=1", {"-b", cookie}).status);
  EXPECT_EQ(403, get("?ssid=coded&dl=1", {"-b", cookie + "0"}).status);  // a forged value

  store_exec(root_, "UPDATE SHARELINK_EVENT SET accesscode = 'n3w' WHERE pkey = 'coded'");
  EXPECT_NE(std::string::npos, get("?ssid=coded", {"-b", cookie}).body.find("name=\"code\""));
  const std::string again = log_in("n3w"), fresh = again.substr(0, again.find(';'));
  for (int i = 0; i < 4; ++i) EXPECT_EQ(403, get("?ssid=coded", {"--data", "code=x"}).status) << i;
  Download slow = get("?ssid=coded", {"--data", "code=n3w"});
  EXPECT_EQ(429, slow.status);
  const int wait = atoi(slow.header("retry-after").c_str());
  EXPECT_TRUE(wait > 0 && wait <= 900) << wait;
  EXPECT_EQ(429, get("?ssid=coded").status);
  EXPECT_EQ(200, get("?ssid=coded&dl=1", {"-b", fresh}).status);  // a valid cookie is never throttled

  for (int i = 0; i < 15; ++i) EXPECT_EQ(404, get("?ssid=guess" + std::to_string(i)).status);
  EXPECT_EQ(429, get("?ssid=other").status);
  EXPECT_EQ(429, get("?ssid=guess99").status);
  EXPECT_EQ(200, get("?ssid=folder").status);  // a link without a code stays open

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
  const std::string folder = root_.path(std::string(kZipPublic) + "/folder/");
  root_.mkdirs(std::string(kZipPublic) + "/folder/empty");
  ASSERT_EQ(0, symlink(root_.path("/share/VOL1/Secret").c_str(), (folder + "out").c_str()));
  ASSERT_EQ(0, symlink("../../Secret/s.txt", (folder + "s.txt").c_str()));
  ASSERT_EQ(0, mkfifo((folder + "pipe").c_str(), 0644));
  add({"multi", "/Public/docs", "--fid", "f1:/Public/folder/a.txt", "--fid", "f2:/Public/docs"});
  const std::string not_found = get("?ssid=nosuch").body, base = "?ssid=folder&dl=1&path=";
  for (const char* path : {"../../Secret/s.txt", "..%2F..%2FSecret%2Fs.txt", "%2e%2e/%2e%2e/Secret/s.txt",
                           "sub/../../../Secret/s.txt", "/etc/passwd", "%2Fetc%2Fpasswd",
                           "..%5C..%5CSecret%5Cs.txt", "sub%5Cb.txt", "out/s.txt", "s.txt", "pipe",
                           "sub", "empty", "nosuch.txt", "?ssid=folder&path=..",
                           "?ssid=report&path=a.txt", "?ssid=multi&fid=f9&dl=1",
                           "?ssid=multi&fid=f2&dl=1", "?ssid=multi&fid=f1&path=a.txt&dl=1",
                           "?ssid=multi&dl=1"}) {
    const std::string target = path[0] == '?' ? path : base + path;
    Download r = get(target);
    EXPECT_EQ(404, r.status) << target;
    EXPECT_EQ(not_found, r.body) << target;
  }
  EXPECT_EQ("deeper", get(base + "sub/b.txt").body);
  EXPECT_EQ("inside", get("?ssid=multi&fid=f1&dl=1").body);
  EXPECT_NE(std::string::npos, get("?ssid=multi").body.find("fid=f1&amp;dl=1"));

  // The folder swapped for a link to outside, again and again, while served.
  put("/folder/race/s.txt", "inside");
  const std::string dir = folder + "race", parked = folder + "parked", link = folder + "link";
  ASSERT_EQ(0, symlink(root_.path("/share/VOL1/Secret").c_str(), link.c_str()));
  std::atomic<bool> stop{false};
  std::thread swapper([&] {
    while (!stop) {
      rename(dir.c_str(), parked.c_str()), rename(link.c_str(), dir.c_str());
      rename(dir.c_str(), link.c_str()), rename(parked.c_str(), dir.c_str());
    }
  });
  for (int i = 0; i < 25; ++i) {
    Download r = get(base + "race/s.txt");
    EXPECT_EQ(std::string::npos, r.body.find(kSecret));
    EXPECT_TRUE(r.status == 200 || r.status == 404) << r.status;
  }
  stop = true;
  swapper.join();
  EXPECT_EQ("inside", get(base + "race/s.txt").body);
}

TEST_F(ShareTest, NamesEscapedListsPagedRegistryLinksAndXSendfile) {
  put("/folder/<img src=x onerror=alert(1)>.txt", "xss");
  for (int i = 0; i < 205; ++i) put("/big/f" + std::to_string(1000 + i), "x");
  root_.mkdirs(std::string(kZipPublic) + "/big/zdir");
  add({"big", "/Public/big"});
  const std::string list = get("?ssid=folder").body;
  EXPECT_EQ(std::string::npos, list.find("<img src=x"));
  EXPECT_NE(std::string::npos, list.find("&lt;img src=x onerror=alert(1)&gt;.txt"));
  EXPECT_LT(list.find(">sub/<"), list.find(">a.txt<"));  // folders first
  const std::string page0 = get("?ssid=big").body, page1 = get("?ssid=big&page=1").body;
  auto rows = [](const std::string& body) {
    size_t n = 0;
    for (size_t p = body.find("<tr><td>"); p != std::string::npos; p = body.find("<tr><td>", p + 1)) ++n;
    return n;
  };
  EXPECT_EQ(200u, rows(page0));
  EXPECT_EQ(6u, rows(page1));
  EXPECT_NE(std::string::npos, page0.find(">zdir/<"));
  EXPECT_NE(std::string::npos, page0.find("page=1\">Next"));
  EXPECT_NE(std::string::npos, page1.find("page=0\">Previous"));

  const std::string a = std::string(kZipPublic) + "/folder/a.txt";
  root_.write("/etc/config/shareFileEx.ini", "reg1\thost\tx\t0\t" + a + "\tx\t0\tx\tx\n" +
                                                 "reg2\thost\tx\t0\t" + a + "\tx\t1000\tx\tx\n");
  server_ = zip_server(root_, false, true);
  ASSERT_TRUE(server_->running());
  EXPECT_EQ(200, get("?ssid=reg1").status);
  EXPECT_EQ("inside", get("?ssid=reg1&dl=1").body);
  EXPECT_EQ(410, get("?ssid=reg2").status);
  Download sent = get("?ssid=report&dl=1");
  EXPECT_TRUE(sent.body == report_) << sent.body.size();
  EXPECT_FALSE(sent.has("x-sendfile"));
  EXPECT_EQ("sandbox", sent.header("content-security-policy"));
  EXPECT_EQ(1, count("report"));
}

TEST(ShareCgiProgram, AnyRequestGetsASafeAnswer) {
  ApplianceRoot root;
  zip_prepare_root(root);
  const std::string dir = std::string(kZipPublic) + "/f/";
  root.write(dir + "a.txt", "inside");
  root.write(dir + "evil\r\nX-Injected: 1\".txt", "crlf");
  ASSERT_EQ(0, share_add(root, {"f", "/Public/f"}));
  const std::string crlf = "ssid=f&dl=1&path=evil%0D%0AX-Injected%3A%201%22.txt";
  struct Case {
    std::string query, status;
  } cases[] = {
      {"ssid=f&dl=1&path=a.txt%00", "404"},        {"ssid=f&dl=1&path=a.txt%00.jpg", "404"},
      {"ssid=f&dl=1&path=%00", "404"},             {"ssid=f%00&dl=1&path=a.txt", "404"},
      {"ssid=f&dl=1&path=a.txt", "206"},           {"ssid=f&dl=1&path=sub%5C..%5Ca.txt", "404"},
      {"ssid=f&&&=&dl&path", "200"},               {"ssid=f&page=-5", "200"},
      {"ssid=f&page=99999999999999999999", "200"}, {"ssid=" + std::string(70000, 'k'), "404"},
      {"ssid=f&dl=1&path=" + std::string(5000, 'a'), "404"}, {crlf, "206"},
  };
  auto cgi = [&](const std::string& query, std::map<std::string, std::string> env) {
    env.insert({{"QUERY_STRING", query}, {"REQUEST_METHOD", "GET"}});
    return run_program(SLT_BUILD_DIR "/share.cgi", {}, root, env);
  };
  for (const Case& c : cases) {
    RunResult r = cgi(c.query, {{"REMOTE_ADDR", "2001:db8::1"}, {"HTTP_RANGE", "bytes=0-"},
                                {"HTTP_COOKIE", "slt_share_x=1.2.3; ;;=="}});
    SCOPED_TRACE(c.query.substr(0, 80));
    EXPECT_EQ(0, r.status);
    EXPECT_EQ(0u, r.out.find("Status: " + c.status)) << r.out.substr(0, 200);
    EXPECT_EQ(std::string::npos, r.out.substr(0, r.out.find("\r\n\r\n")).find("\nX-Injected"));
  }
  RunResult named = cgi(crlf, {});
  EXPECT_NE(std::string::npos, named.out.find("\r\nContent-Disposition: attachment; filename=\"evilX-Injected:"
                                              " 1.txt\"; filename*=UTF-8''evil%0D%0AX-Injected%3A%201%22.txt\r\n"));
  EXPECT_EQ("crlf", named.out.substr(named.out.find("\r\n\r\n") + 4));
  RunResult handed = cgi("ssid=f&dl=1&path=a.txt", {{"SHARE_X_SENDFILE", "1"}});
  const std::string tail = "\r\nX-Sendfile: " + root.path(dir + "a.txt") + "\r\n\r\n";
  ASSERT_GE(handed.out.size(), tail.size());
  EXPECT_EQ(tail, handed.out.substr(handed.out.size() - tail.size()));
}

}  // namespace
