// share.cgi behind the real lighttpd in a temporary appliance root, curl as
// client; archives judged by three independent readers.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <thread>

#include "platform/fs_beneath.h"
#include "support/store_fixture.h"
#include "support/zip_share.h"

namespace {

const char kSecret[] = "outside the share";
const char kPageCsp[] = "default-src 'none'; style-src 'unsafe-inline'; img-src 'self'; "
                        "form-action 'self'; frame-ancestors 'none'";
using Args = std::vector<std::string>;
bool has(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }

class ShareTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (find_program("lighttpd").empty()) GTEST_SKIP() << "lighttpd is not installed";
    zip_prepare_root(root_);
    for (int i = 0; i < 20000; ++i) report_ += static_cast<char>((i * 131 + i / 256) & 0xff);
    put("/docs/report 1.pdf", report_), put("/docs/page.html", "<script>alert(1)</script>");
    put("/folder/a.txt", "inside"), put("/folder/sub/b.txt", "deeper");
    root_.write("/share/VOL1/Secret/s.txt", kSecret), root_.write("/etc/passwd", kSecret);
    add({"report", "/Public/docs/report 1.pdf"}), add({"folder", "/Public/folder"});
    server_ = zip_server(root_, false);
    ASSERT_TRUE(server_->running()) << root_.read("/web/logs/error.log");
  }
  // The archives' folder: odd names, an empty file and folder, and what no
  // archive may hold (links out, a pipe). False when a zip reader is missing.
  bool fotos() {
    for (auto [name, text] : {std::pair<const char*, std::string>{"Grüße.txt", "hällo wörld\n"},
                              {"空/東京 1.jpg", std::string(70000, 'x') + "tail"}, {"empty.bin", ""},
                              {"deep/er/still/n.txt", "n"}, {"back\\slash.txt", "b"},
                              {"../Secret/s.txt", "outside the folder"}}) {
      root_.write(fotos_ + "/" + name, text);
    }
    root_.mkdirs(fotos_ + "/hollow/inner"), add({"fotos", "/Public/Fotos"});
    symlink(root_.path(std::string(kZipPublic) + "/Secret").c_str(), root_.path(fotos_ + "/out").c_str());
    symlink("/etc/passwd", root_.path(fotos_ + "/pw").c_str()), mkfifo(root_.path(fotos_ + "/fifo").c_str(), 0600);
    return !find_program("7z").empty() && !find_program("unzip").empty();
  }
  void put(const std::string& rel, const std::string& content) {
    root_.write(kZipPublic + rel, content); root_.set_mtime(kZipPublic + rel, 1000000000);
  }
  void add(const Args& args) { ASSERT_EQ(0, share_add(root_, args)); }
  Download get(const std::string& query, const Args& extra = {}, const std::string& to = "") {
    return zip_fetch(root_, server_->url("/share.cgi" + query), to, extra);
  }
  Download save(const std::string& query, const Args& extra = {}) { return get(query, extra, "/web/got"); }
  int count(const std::string& key) { return share_count(root_, key); }
  // The code form's token for this client, as a browser would post it.
  std::string token(const std::string& query) {
    const std::string body = get(query).body, mark = "name=\"form_token\" value=\"";
    const size_t at = body.find(mark);
    return at == std::string::npos ? "" : body.substr(at + mark.size(), 64);
  }
  Download post_code(const std::string& query, const std::string& code, const Args& extra = {}) {
    Args args = {"--data", "form_token=" + token(query) + "&code=" + code};
    args.insert(args.end(), extra.begin(), extra.end());
    return get(query, args);
  }

  ApplianceRoot root_;
  const std::string fotos_ = std::string(kZipPublic) + "/Fotos";
  std::string report_;
  std::unique_ptr<WebServer> server_;
};

// Every answer of the gate with the headers of its kind; every way out of
// the share is the very 404 of an unknown link.
TEST_F(ShareTest, EveryAnswerCarriesItsStatusAndHeaders) {
  const std::string folder = root_.path(std::string(kZipPublic) + "/folder/");
  root_.mkdirs(std::string(kZipPublic) + "/folder/empty");
  ASSERT_EQ(0, symlink(root_.path("/share/VOL1/Secret").c_str(), (folder + "out").c_str()));
  ASSERT_EQ(0, symlink("../../Secret/s.txt", (folder + "s.txt").c_str()));
  ASSERT_EQ(0, mkfifo((folder + "pipe").c_str(), 0644));
  add({"multi", "/Public/docs", "--fid", "f1:/Public/folder/a.txt", "--fid", "f2:/Public/docs"});
  add({"gone", "/Public/folder", "--expire", "1000", "--createtic", "900"});
  add({"used", "/Public/folder/a.txt", "--download-limit", "1"});
  store_exec(root_, "UPDATE SHARELINK_EVENT SET download_count = 1 WHERE pkey = 'used'");
  const std::string a = std::string(kZipPublic) + "/folder/a.txt";  // and two links of the registry
  root_.write("/etc/config/shareFileEx.ini", "reg1\thost\tx\t0\t" + a + "\tx\t0\tx\tx\n" +
                                                 "reg2\thost\tx\t0\t" + a + "\tx\t1000\tx\tx\n");
  struct Case { std::string query; Args extra; int status; std::string text; };  // text "": a file
  const Case cases[] = {
      {"?ssid=report", {}, 200, "Downloads left: no limit"},
      {"?ssid=report&dl=1", {}, 200, ""},
      {"?ssid=folder", {}, 200, "a.txt"},
      {"?ssid=multi", {}, 200, "fid=f1&amp;dl=1"},
      {"", {}, 404, "does not exist"},
      {"?ssid=gone", {}, 410, "expired on 1970-01-01 00:16 UTC"},
      {"?ssid=used&dl=1", {}, 410, "download limit"},
      {"?ssid=used", {}, 410, "download limit"},
      {"?ssid=report", {"-X", "PUT"}, 405, "GET, HEAD and POST"},
      {"?ssid=report&dl=1", {"-A", "Slackbot-LinkExpanding 1.0"}, 403, "person"},
      {"?ssid=report&dl=1", {"-A", "Mozilla/5.0 (compatible; bingbot/2.0)"}, 403, "</html>"},
      {"?ssid=report", {"-A", "facebookexternalhit/1.1"}, 200, "Download"},
      {"?ssid=reg1", {}, 200, "a.txt"},
      {"?ssid=reg1&dl=1", {}, 200, ""},
      {"?ssid=reg2", {}, 410, "expired"},
  };
  for (const Case& c : cases) {
    Download r = get(c.query, c.extra);
    SCOPED_TRACE(c.query + " " + (c.extra.empty() ? "" : c.extra.back()));
    EXPECT_EQ(c.status, r.status) << r.head;
    EXPECT_EQ("nosniff|no-referrer|noindex, nofollow",
              r.header("x-content-type-options") + "|" + r.header("referrer-policy") + "|" + r.header("x-robots-tag"));
    EXPECT_EQ(c.text.empty() ? "sandbox" : kPageCsp, r.header("content-security-policy"));
    EXPECT_TRUE(c.text.empty() || r.header("cache-control") + "|" + r.header("content-type") ==
                                      "no-store|text/html; charset=utf-8") << r.head;
    EXPECT_PRED2(has, r.body, c.text);
  }
  const std::string p = "?ssid=folder&dl=1&path=", not_found = get("?ssid=nosuch").body;
  for (const std::string& q :
       {p + "../../Secret/s.txt", p + "..%2F..%2FSecret%2Fs.txt", p + "%2e%2e/%2e%2e/Secret/s.txt",
        p + "sub/../../../Secret/s.txt", p + "/etc/passwd", p + "%2Fetc%2Fpasswd",
        p + "..%5C..%5CSecret%5Cs.txt", p + "sub%5Cb.txt", p + "out/s.txt", p + "s.txt", p + "pipe",
        p + "sub", p + "empty", p + "nosuch.txt", std::string("?ssid=folder&path=.."),
        std::string("?ssid=report&path=a.txt"), std::string("?ssid=multi&fid=f9&dl=1"),
        std::string("?ssid=multi&fid=f2&dl=1"), std::string("?ssid=multi&fid=f1&path=a.txt&dl=1"),
        std::string("?ssid=multi&dl=1")}) {
    Download r = get(q);
    EXPECT_EQ(404, r.status) << q; EXPECT_EQ(not_found, r.body) << q;
  }
  EXPECT_EQ("deeper", get(p + "sub/b.txt").body);
  EXPECT_EQ("inside|inside", get("?ssid=multi&fid=f1&dl=1").body + "|" + get("?ssid=reg1&dl=1").body);
  EXPECT_EQ("GET, HEAD, POST", get("?ssid=report", {"-X", "DELETE"}).header("allow"));
  EXPECT_EQ(1, count("used")); EXPECT_EQ(1, count("report"));  // reading never changes a link
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
  EXPECT_EQ(modified, r.header("last-modified")); ASSERT_EQ('"', etag.front());
  Download html = get("?ssid=html&dl=1&inline=1");  // never rendered as a page
  EXPECT_FALSE(has(html.header("content-type"), "html"));
  EXPECT_EQ(0u, html.header("content-disposition").find("attachment;"));
  struct Case { Args extra; int status; std::string body, range; };
  const Case cases[] = {
      {{"-H", "Range: bytes=10-19", "-H", "If-Range: " + etag}, 206, report_.substr(10, 10), "bytes 10-19/20000"},
      {{"-H", "Range: bytes=10-19", "-H", "If-Range: \"old\""}, 200, report_, ""},
      {{"-H", "Range: bytes=10-19", "-H", "If-Range: " + modified}, 206, report_.substr(10, 10), "bytes 10-19/20000"},
      {{"-H", "Range: bytes=10-19", "-H", "If-Range: Sat, 08 Sep 2001 01:46:40 GMT"}, 200, report_, ""},
      {{"-H", "If-None-Match: \"old\", " + etag}, 304, "", ""},
      {{"-H", "If-None-Match: \"old\""}, 200, report_, ""},
      {{"-H", "If-Modified-Since: " + modified}, 304, "", ""},
  };
  for (const Case& c : cases) {
    Download part = get("?ssid=report&dl=1", c.extra);
    EXPECT_EQ(c.status, part.status) << c.extra.back();
    EXPECT_TRUE(c.body == part.body) << c.extra.back() << ": " << part.body.size();
    EXPECT_EQ(c.range, part.header("content-range"));
  }
}

TEST_F(ShareTest, DownloadsCountByTheRules) {
  add({"lim", "/Public/docs/report 1.pdf", "--download-limit", "3"});
  add({"resume", "/Public/docs/report 1.pdf", "--download-limit", "5"});
  EXPECT_EQ(200, get("?ssid=lim").status);  // the page itself counts nothing
  struct Step { Args extra; int status, count_after; };  // -A first; a jar: that browser's cookies
  const std::string a = root_.path("/jar-a"), b = root_.path("/jar-b");
  const Step steps[] = {
      {{"-A", "A", "-I"}, 200, 0},
      {{"-A", "A", "-H", "Range: bytes=99999-"}, 416, 0},
      {{"-A", "A", "-b", a, "-c", a, "-H", "Range: bytes=0-99"}, 206, 1},  // from byte 0: counts
      {{"-A", "A", "-b", a, "-c", a}, 200, 1},                              // the same browser within the hour
      {{"-A", "A", "-b", a, "-H", "If-None-Match: *"}, 304, 1},
      {{"-A", "Googlebot/2.1"}, 403, 1},
      {{"-A", "B", "-b", b, "-c", b, "-H", "Range: bytes=5-"}, 206, 2},  // first bytes count from any start
      {{"-A", "B", "-b", b}, 200, 2},                                    // and the rest is the same download
      {{"-A", "A"}, 200, 3},  // same address, same browser build, no cookie: a colleague of A's
      {{"-A", "D"}, 410, 3},
      {{"-A", "D", "-H", "Range: bytes=1-"}, 410, 3},               // a range cannot get around the limit
      {{"-A", "A", "-b", a, "-H", "Range: bytes=100-"}, 206, 3},    // but a counted browser may resume
      {{"-A", "A", "-H", "Range: bytes=100-"}, 206, 3},             // and so may a client without cookies
      {{"-A", "A"}, 410, 3},                                        // whose whole new download is another
  };
  for (const Step& s : steps) {
    EXPECT_EQ(s.status, get("?ssid=lim&dl=1", s.extra).status) << "step " << &s - steps;
    EXPECT_EQ(s.count_after, count("lim")) << "step " << &s - steps;
  }
  // curl's own resume: the same bytes, one count.
  ASSERT_EQ(5000, get("?ssid=resume&dl=1", {"-A", "R", "-r", "0-4999"}, "/out.pdf").received);
  EXPECT_EQ(206, get("?ssid=resume&dl=1", {"-A", "R", "-C", "-"}, "/out.pdf").status);
  EXPECT_TRUE(root_.read("/out.pdf") == report_) << root_.read("/out.pdf").size();
  EXPECT_EQ(1, count("resume"));
}

TEST_F(ShareTest, AccessCodeCookieAndThrottling) {
  add({"coded", "/Public/docs/report 1.pdf", "--accesscode", "s3cret"});
  add({"other", "/Public/folder", "--accesscode", "pw"});
  auto log_in = [&](const std::string& code) {  // the Set-Cookie of a good code
    Download r = post_code("?ssid=coded", code);
    return r.status == 303 ? r.header("set-cookie") : "no 303: " + r.head;
  };
  EXPECT_PRED2(has, get("?ssid=coded").body, "name=\"code\"");
  EXPECT_EQ(403, get("?ssid=coded&dl=1").status);
  Download query = get("?ssid=coded&code=s3cret");  // the query string is no way in
  EXPECT_EQ(200, query.status); EXPECT_FALSE(has(query.body, "Download"));
  Download wrong = post_code("?ssid=coded", "guess-one");
  EXPECT_EQ(403, wrong.status); EXPECT_FALSE(has(wrong.body, "guess-one"));
  // A code posted from another site, or without the form's token, is neither
  // checked nor counted as a failure (the throttle below comes as late).
  Download cross = get("?ssid=coded", {"--data", "form_token=" + token("?ssid=coded") + "&code=s3cret",
                                       "-H", "Origin: http://evil.example"});
  EXPECT_EQ(403, cross.status); EXPECT_PRED2(has, cross.body, "expired");
  EXPECT_EQ(403, get("?ssid=coded", {"--data", "code=s3cret", "-H", "Sec-Fetch-Site: cross-site"}).status);
  EXPECT_EQ(403, get("?ssid=coded", {"--data", "code=s3cret"}).status);

  const std::string set = log_in("s3cret"), cookie = set.substr(0, set.find(';'));
  for (const char* flag : {"; HttpOnly", "; SameSite=Lax", "; Path=/share.cgi", "; Max-Age=43200"}) {
    EXPECT_PRED2(has, set, flag);
  }
  EXPECT_FALSE(has(set, "Secure")); EXPECT_EQ(200, get("?ssid=coded&dl=1", {"-b", cookie}).status);
  EXPECT_EQ(403, get("?ssid=coded&dl=1", {"-b", cookie + "0"}).status);  // a forged value

  store_exec(root_, "UPDATE SHARELINK_EVENT SET accesscode = 'n3w' WHERE pkey = 'coded'");
  EXPECT_PRED2(has, get("?ssid=coded", {"-b", cookie}).body, "name=\"code\"");
  const std::string again = log_in("n3w"), fresh = again.substr(0, again.find(';'));
  for (int i = 0; i < 4; ++i) EXPECT_EQ(403, post_code("?ssid=coded", "x").status) << i;
  Download slow = post_code("?ssid=coded", "n3w");
  EXPECT_EQ(429, slow.status);
  const int wait = atoi(slow.header("retry-after").c_str());
  EXPECT_TRUE(wait > 0 && wait <= 900) << wait; EXPECT_EQ(429, get("?ssid=coded").status);
  EXPECT_EQ(200, get("?ssid=coded&dl=1", {"-b", fresh}).status);  // a valid cookie is never throttled

  // Unknown links are counted in a tier of their own: past it they are no
  // longer recorded, and they never lock anyone out of a link whose code they know.
  for (int i = 0; i < 20; ++i) EXPECT_EQ(404, get("?ssid=guess" + std::to_string(i)).status);
  EXPECT_EQ(404, get("?ssid=guess99").status);  // the same answer, no longer recorded
  EXPECT_EQ(303, post_code("?ssid=other", "pw").status);
  for (int i = 0; i < 5; ++i) EXPECT_EQ(403, post_code("?ssid=other", "x" + std::to_string(i)).status);
  EXPECT_EQ(429, post_code("?ssid=other", "pw").status);  // wrong codes do
  EXPECT_EQ(200, get("?ssid=folder").status);  // a link without a code stays open

  RunResult audit = run_program(ctl_binary(), {"audit", "coded"}, root_);
  EXPECT_EQ(0, audit.status);
  EXPECT_TRUE(has(audit.out, "\tbad-code\n") && has(audit.out, "\tdownload\n")) << audit.out;
  EXPECT_FALSE(has(audit.out, "guess99"));
  EXPECT_PRED2(has, run_program(ctl_binary(), {"audit", "guess0"}, root_).out, "\trefused:unknown\n");
  EXPECT_EQ("", run_program(ctl_binary(), {"audit", "guess99"}, root_).out);
  for (const std::string& text : {audit.out, root_.read("/web/logs/error.log"),
                                  run_program(ctl_binary(), {"audit"}, root_).out}) {
    EXPECT_FALSE(has(text, "s3cret") || has(text, "guess-one")) << text;
  }
}

// The folder swapped for a link to outside, again and again, while served.
TEST_F(ShareTest, FolderSwappedForALinkNeverLeadsOut) {
  const std::string folder = root_.path(std::string(kZipPublic) + "/folder/");
  const std::string dir = folder + "race", parked = folder + "parked", link = folder + "link";
  put("/folder/race/s.txt", "inside");
  ASSERT_EQ(0, symlink(root_.path("/share/VOL1/Secret").c_str(), link.c_str()));
  std::atomic<bool> stop{false};
  std::thread swapper([&] {
    while (!stop) {
      rename(dir.c_str(), parked.c_str()), rename(link.c_str(), dir.c_str());
      rename(dir.c_str(), link.c_str()), rename(parked.c_str(), dir.c_str());
    }
  });
  for (int i = 0; i < 25; ++i) {
    Download r = get("?ssid=folder&dl=1&path=race/s.txt");
    EXPECT_FALSE(has(r.body, kSecret)); EXPECT_TRUE(r.status == 200 || r.status == 404) << r.status;
  }
  stop = true, swapper.join();
  EXPECT_EQ("inside", get("?ssid=folder&dl=1&path=race/s.txt").body);
}

TEST_F(ShareTest, NamesEscapedAndListsPaged) {
  put("/folder/<img src=x onerror=alert(1)>.txt", "xss");
  for (int i = 0; i < 205; ++i) put("/big/f" + std::to_string(1000 + i), "x");
  root_.mkdirs(std::string(kZipPublic) + "/big/zdir"); add({"big", "/Public/big"});
  const std::string list = get("?ssid=folder").body;
  EXPECT_FALSE(has(list, "<img src=x"));
  EXPECT_PRED2(has, list, "&lt;img src=x onerror=alert(1)&gt;.txt");
  EXPECT_LT(list.find(">sub/<"), list.find(">a.txt<"));  // folders first
  const std::string page0 = get("?ssid=big").body, page1 = get("?ssid=big&page=1").body;
  auto rows = [](const std::string& body) {
    size_t n = 0;
    for (size_t p = body.find("<tr><td>"); p != std::string::npos; p = body.find("<tr><td>", p + 1)) ++n;
    return n;
  };
  EXPECT_EQ(200u, rows(page0)); EXPECT_EQ(6u, rows(page1));
  EXPECT_TRUE(has(page0, ">zdir/<") && has(page0, "page=1\">Next")) << page0;
  EXPECT_PRED2(has, page1, "page=0\">Previous");
  for (const char* odd : {"-5", "1000000"}) {  // out of range: the first page
    EXPECT_EQ(200u, rows(get(std::string("?ssid=big&page=") + odd).body)) << odd;
  }
}

TEST(ShareCgiProgram, AnyRequestGetsASafeAnswer) {
  ApplianceRoot root;
  zip_prepare_root(root);
  const std::string dir = std::string(kZipPublic) + "/f/";
  root.write(dir + "a.txt", "inside"); root.write(dir + "evil\r\nX-Injected: 1\".txt", "crlf");
  ASSERT_EQ(0, share_add(root, {"f", "/Public/f"}));
  const std::string crlf = "ssid=f&dl=1&path=evil%0D%0AX-Injected%3A%201%22.txt";
  struct Case { std::string query, status; };
  const Case cases[] = {
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
    EXPECT_FALSE(has(r.out.substr(0, r.out.find("\r\n\r\n")), "\nX-Injected"));
  }
  RunResult named = cgi(crlf, {});
  EXPECT_PRED2(has, named.out, "\r\nContent-Disposition: attachment; filename=\"evilX-Injected: 1.txt\"; "
                               "filename*=UTF-8''evilX-Injected%3A%201%22.txt\r\n");
  EXPECT_EQ("crlf", named.out.substr(named.out.find("\r\n\r\n") + 4));
}

TEST_F(ShareTest, ZipThreeReadersAcceptTheArchives) {
  if (!fotos()) GTEST_SKIP() << "7z or unzip is not installed";
  add({"pair", "/Public/Fotos/Grüße.txt", "--fid", "1:/Public/Fotos/Grüße.txt", "--fid",
       "2:/Public/Fotos/空/東京 1.jpg"});
  struct Case { std::string query, filename, folder; Args files; };
  const Case cases[] = {
      {"?ssid=fotos&zip=1", "Fotos.zip", fotos_, {}},
      {"?ssid=fotos&zip=1&path=%E7%A9%BA", "%E7%A9%BA.zip", fotos_ + "/空", {}},
      {"?ssid=fotos&zip=1&path=hollow", "hollow.zip", fotos_ + "/hollow", {}},
      {"?ssid=pair&zip=1", "Gr", fotos_, {fotos_ + "/Grüße.txt", fotos_ + "/空/東京 1.jpg"}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.query);
    Download d = save(c.query);
    ASSERT_EQ(200, d.status) << d.head; EXPECT_EQ("application/zip", d.header("content-type"));
    EXPECT_PRED2(has, d.header("content-disposition"), c.filename); EXPECT_EQ(d.length, d.received);
    EXPECT_EQ("", zip_readers_verdict(root_, "/web/got", c.folder, c.files));
  }
  Download head = save("?ssid=fotos&zip=1", {"-I"});
  EXPECT_EQ(200, head.status); EXPECT_GT(head.length, 70000);
  EXPECT_EQ(3, count("fotos"));  // one per archive, subfolders too, none by HEAD
  EXPECT_EQ(1, count("pair"));
  const std::string page = get("?ssid=fotos").body;
  EXPECT_TRUE(has(page, "Download all (.zip, 1 MiB)") && has(page, "ssid=fotos&amp;zip=1")) << page;
}

// An archive gets exactly the answer a single file of the same link would.
TEST_F(ShareTest, ZipTheGateHoldsForArchives) {
  if (!fotos()) GTEST_SKIP() << "7z or unzip is not installed";
  add({"gone", "/Public/Fotos", "--expire", "1000", "--createtic", "900"});
  add({"coded", "/Public/Fotos", "--accesscode", "s3cret"});
  add({"used", "/Public/Fotos", "--download-limit", "1"});
  EXPECT_EQ(200, save("?ssid=used&zip=1").status);
  struct Case { std::string query; Args curl; int status; };
  const Case cases[] = {
      {"?ssid=gone", {}, 410},           {"?ssid=coded", {}, 403}, {"?ssid=coded", {"--data", "code=wrong"}, 403},
      {"?ssid=nosuch", {}, 404},         {"?ssid=fotos&path=..%2FSecret", {}, 404},
      {"?ssid=fotos&path=out", {}, 404}, {"?ssid=used", {}, 410},  // the limit reached above
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.query);
    Download dl = save(c.query + (c.query == "?ssid=used" ? "&path=empty.bin" : "") + "&dl=1", c.curl);
    const std::string dl_body = root_.read("/web/got");
    Download zip = save(c.query + "&zip=1", c.curl);
    EXPECT_EQ(c.status, zip.status) << zip.head; EXPECT_EQ(dl.status, zip.status);
    EXPECT_EQ(dl_body, root_.read("/web/got"));
  }
  EXPECT_EQ(1, count("used")); EXPECT_EQ(0, count("coded"));
}

TEST_F(ShareTest, ZipAFourthStreamWaits) {
  if (!fotos()) GTEST_SKIP() << "7z or unzip is not installed";
  root_.write(fotos_ + "/big.bin", "");
  ASSERT_EQ(0, truncate(root_.path(fotos_ + "/big.bin").c_str(), 64 << 20));
  std::vector<pid_t> slow;
  for (int i = 0; i < 3; ++i) {
    if ((slow.emplace_back(fork())) == 0) {
      // Each from an address of its own: one client holds one slot at most.
      const std::string from = "127.0.0." + std::to_string(i + 2);
      execl("/usr/bin/curl", "curl", "-s", "--limit-rate", "64k", "-o", "/dev/null", "-A", "Mozilla/5.0",
            "--interface", from.c_str(), server_->url("/share.cgi?ssid=fotos&zip=1").c_str(),
            static_cast<char*>(nullptr));
      _exit(127);
    }
  }
  auto busy_slots = [&] {  // slots a stream holds locked
    int n = 0;
    for (int i = 0; i < 3; ++i) {
      UniqueFd fd(open(root_.path("/etc/config/share_zip_slot." + std::to_string(i)).c_str(), O_RDONLY));
      n += fd.get() >= 0 && flock(fd.get(), LOCK_SH | LOCK_NB) != 0;
    }
    return n;
  };
  for (int tries = 0; tries < 300 && busy_slots() < 3; ++tries) usleep(100 * 1000);
  ASSERT_EQ(3, busy_slots());
  Download busy = save("?ssid=fotos&zip=1&path=hollow");
  EXPECT_EQ(503, busy.status) << busy.head; EXPECT_EQ("30", busy.header("retry-after"));
  for (pid_t pid : slow) kill(pid, SIGKILL), waitpid(pid, nullptr, 0);
  int again = 0;  // a slot is free once a stream ends
  for (int tries = 0; tries < 100 && again != 200; ++tries) {
    usleep(100 * 1000), again = save("?ssid=fotos&zip=1&path=hollow").status;
  }
  EXPECT_EQ(200, again);
}

}  // namespace
