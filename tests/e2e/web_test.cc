// sharelink.cgi behind lighttpd with the shipped data/lighttpd/sharelink-admin.conf (basic authentication, curl
// as client), and run directly as the server would (answers byte for byte; attacked files lie outside the root).
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "support/appliance.h"
#include "support/web_server.h"

namespace {

const char kConfig[] = "/etc/config/Korvix.conf";
const char kSecret[] = "the outside secret\n";
const char kJsonHeader[] = "Content-type: application/json; charset=\"UTF-8\"\r\n\r\n";
const char kDownload[] = "/sharelink.cgi?func=download&path=/Public/docs/report%201.pdf";

std::string json(int status) {
  return "{ \"version\": \"6.0.1.6963\", \"build\": \"20250804\", \"status\": " + std::to_string(status) +
         ", \"success\": \"true\" }\n";
}
std::string reply(int status) { return kJsonHeader + json(status); }

class WebTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (find_program("lighttpd").empty() || curl_.empty()) GTEST_SKIP() << "lighttpd or curl is not installed";
    root_.write("/etc/config/smb.conf", "[Public]\npath = /share/VOL1/Public\n");
    root_.write("/etc/config/Korvix.conf", "[System]\nWeb Access Port = 8080\n"); root_.mkdirs("/share/VOL1/.@db");
    for (int i = 0; i < 20000; ++i) report_ += static_cast<char>((i * 131 + i / 256) & 0xff);
    root_.write("/share/VOL1/Public/docs/report 1.pdf", report_);
    root_.set_mtime("/share/VOL1/Public/docs/report 1.pdf", 1000000000);  // Sun, 09 Sep 2001 01:46:40 GMT
    root_.write("/web/users", "admin:admin-pw\nbob:bob-pw\n");
    server_ = std::make_unique<WebServer>(root_, find_program("lighttpd"), [this](int port) {
      // The CGI answers ranges itself; the server must not cut its 200s.
      return "server.bind = \"127.0.0.1\"\nserver.port = " + std::to_string(port) +
             "\nserver.document-root = \"" + root_.path("/web/htdocs") + "\"\nserver.errorlog = \"" +
             root_.path("/web/logs/error.log") + "\"\nserver.range-requests = \"disable\"\n" +
             "var.sharelink_cgi = \"" + cgi_binary() + "\"\nvar.sharelink_root = \"" + root_.dir() +
             "\"\nvar.sharelink_userfile = \"" + root_.path("/web/users") +
             "\"\ninclude \"" SLT_SOURCE_DIR "/data/lighttpd/sharelink-admin.conf\"\n" +
             "var.sharelink_cgi_dir = \"" SLT_BUILD_DIR "\"\nvar.sharelink_x_sendfile = \"0\"\n"
             "var.sharelink_xsend_folder = \"/etc/config/share_xsend/\"\n" +
             "include \"" SLT_SOURCE_DIR "/data/lighttpd/share.conf\"\n";
    });
    ASSERT_TRUE(server_->running()) << root_.read("/web/logs/console.log") << root_.read("/web/logs/error.log");
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
  std::string own() const { return "http://127.0.0.1:" + std::to_string(server_->port()); }
  // A POST of an urlencoded body with these request headers (by default: as the appliance's own page sends it).
  Response post(const std::string& target, const std::string& body, std::vector<std::string> headers = {},
                const std::string& user = "admin:admin-pw") {
    if (headers.empty()) headers = {"Origin: " + own(), "Sec-Fetch-Site: same-origin"};
    std::vector<std::string> extra = {"--data-binary", body};
    for (const std::string& h : headers) extra.insert(extra.end(), {"-H", h});
    return get(target, extra, user);
  }
  std::string token(const std::string& user = "admin:admin-pw") {
    const std::string body = get("/sharelink.cgi?func=form_token", {}, user).body, mark = "\"result\": \"";
    return body.find(mark) == std::string::npos ? "none" : body.substr(body.find(mark) + mark.size(), 64);
  }

  ApplianceRoot root_;
  std::string curl_ = find_program("curl"), report_;
  std::unique_ptr<WebServer> server_;
};

// Every byte, also of a range across read chunks (the server leaves ranges to the CGI); the date sent back gets a 304.
TEST_F(WebTest, DownloadsRangesCredentialsAndRelocation) {
  Response r = get(kDownload);
  EXPECT_EQ(200, r.status) << r.head; EXPECT_EQ("20000", r.header("content-length"));
  EXPECT_EQ("Sun, 09 Sep 2001 01:46:40 GMT", r.header("last-modified"));
  EXPECT_TRUE(r.body == report_) << "body differs, " << r.body.size() << " bytes";
  Response again = get(kDownload, {"-H", "If-Modified-Since: " + r.header("last-modified")});
  EXPECT_EQ(304, again.status) << again.head; EXPECT_EQ("", again.body);
  Response part = get(kDownload, {"-H", "Range: bytes=100-8700"});
  EXPECT_EQ(206, part.status) << part.head; EXPECT_EQ("bytes 100-8700/20000", part.header("content-range"));
  EXPECT_EQ("8601", part.header("content-length")); EXPECT_TRUE(report_.substr(100, 8601) == part.body);
  // Credentials are asked before the program runs; any user may download, only the administrator relocates.
  Response anonymous = get(kDownload, {}, "");
  EXPECT_EQ(401, anonymous.status) << anonymous.head;
  EXPECT_NE(std::string::npos, anonymous.header("www-authenticate").find("Basic"));
  EXPECT_EQ(std::string::npos, anonymous.body.find(report_.substr(0, 64)));
  EXPECT_EQ(401, get(kDownload, {}, "admin:wrong").status);
  EXPECT_TRUE(get(kDownload, {}, "bob:bob-pw").body == report_);

  const std::string target = "func=set_share_link_db&share_link_db=/share/VOL1/.@db/new.db&form_token=";
  const std::string before = root_.read("/etc/config/Korvix.conf");
  EXPECT_EQ(json(4), post("/sharelink.cgi", target + token("bob:bob-pw"), {}, "bob:bob-pw").body);
  EXPECT_EQ(before, root_.read("/etc/config/Korvix.conf")); EXPECT_FALSE(root_.exists("/share/VOL1/.@db/new.db"));
  EXPECT_EQ(json(1), post("/sharelink.cgi", target + token()).body);
  EXPECT_NE(std::string::npos, root_.read("/etc/config/Korvix.conf").find("Share_Link_Db = /share/VOL1/.@db/new.db\n"));
  EXPECT_TRUE(root_.exists("/share/VOL1/.@db/new.db"));
}

// One <img src> on any page used to relocate the store with the browser's saved credentials. Now a change of state
// is a POST from the appliance's own page with the user's token; anything else changes nothing.
TEST_F(WebTest, StateChangesOnlyByPostFromOwnPagesWithTheUsersToken) {
  const std::string smb = root_.read("/etc/config/smb.conf"), conf = root_.read(kConfig);
  const std::string evil = "func=set_share_link_db&share_link_db=/etc/config/smb.conf&force_delete=1&form_token=";
  const std::string admin = token(), bob = token("bob:bob-pw");
  Response issued = get("/sharelink.cgi?func=form_token");
  EXPECT_EQ(200, issued.status); EXPECT_EQ("no-store", issued.header("cache-control"));
  EXPECT_EQ("{ \"status\": 1, \"result\": \"" + admin + "\" }\n", issued.body);
  EXPECT_EQ(64u, admin.size()); EXPECT_EQ(std::string::npos, admin.find_first_not_of("0123456789abcdef"));
  EXPECT_NE(admin, bob);
  Response foreign = get("/sharelink.cgi?func=form_token", {"-H", "Sec-Fetch-Site: cross-site"});
  EXPECT_EQ(403, foreign.status); EXPECT_EQ(json(4), foreign.body);
  for (const std::vector<std::string>& how : {std::vector<std::string>{}, {"-I"}, {"-H", "Origin: " + own()}}) {
    Response r = get("/sharelink.cgi?" + evil + admin, how);  // GET and HEAD, even with the token
    EXPECT_EQ(405, r.status) << r.head; EXPECT_EQ("POST", r.header("allow"));
    EXPECT_EQ(how.size() == 1 ? "" : json(20), r.body);
  }
  struct Case { std::string target, body; std::vector<std::string> headers; std::string user; };
  const std::string port = std::to_string(server_->port());
  const Case refused[] = {
      {"", evil, {}, ""}, {"", evil + (admin[0] == '0' ? "1" : "0") + admin.substr(1), {}, ""},
      {"", evil + admin.substr(0, 63), {}, ""},
      {"", evil + bob, {}, ""}, {"?form_token=" + admin, evil, {}, ""},
      {"?form_token=" + admin, evil + admin, {}, ""}, {"", evil + admin, {}, "bob:bob-pw"},
      {"", evil + admin, {"Origin: http://evil.example", "Sec-Fetch-Site: cross-site"}, ""},
      {"", evil + admin, {"Origin: http://evil.example"}, ""}, {"", evil + admin, {"Origin: null"}, ""},
      {"", evil + admin, {"Origin: https://127.0.0.1:" + port}, ""},
      {"", evil + admin, {"Origin: http://127.0.0.1:" + port + ".evil.example"}, ""},
      {"", evil + admin, {"Origin: http://127.0.0.1"}, ""}, {"", evil + admin, {"Sec-Fetch-Site: cross-site"}, ""},
      {"", evil + admin, {"Sec-Fetch-Site: same-site"}, ""},
      {"", evil + admin, {"Origin: " + own(), "Sec-Fetch-Site: same-site"}, ""},
      {"?" + evil.substr(0, evil.size() - 12), "form_token=" + admin, {"Content-Type: text/plain"}, ""}};
  for (const Case& c : refused) {
    Response r = post("/sharelink.cgi" + c.target, c.body, c.headers, c.user.empty() ? "admin:admin-pw" : c.user);
    SCOPED_TRACE(c.target + " " + c.body.substr(c.body.size() - 8) + (c.headers.empty() ? "" : " " + c.headers[0]));
    EXPECT_EQ(403, r.status) << r.head; EXPECT_EQ(json(4), r.body);
  }
  EXPECT_EQ(smb, root_.read("/etc/config/smb.conf")); EXPECT_EQ(conf, root_.read(kConfig));
  // The appliance's own page and a program that names no origin get through.
  EXPECT_EQ(json(1), post("/sharelink.cgi", "func=set_share_link_db&share_link_db=/share/VOL1/.@db/a.db&form_token=" +
                                                admin, {"Sec-Fetch-Site: none"}).body);
  EXPECT_NE(std::string::npos, root_.read(kConfig).find("Share_Link_Db = /share/VOL1/.@db/a.db\n"));
}

// Every path under either program's name runs the program or is not found: its file is never sent.
TEST_F(WebTest, ProgramsAreNeverServedAsFiles) {
  ASSERT_EQ(0, run_program(ctl_binary(), {"init"}, root_).status);
  ASSERT_EQ(0, run_program(ctl_binary(), {"add", "report", "/Public/docs/report 1.pdf"}, root_).status);
  EXPECT_EQ(200, get("/share.cgi?ssid=report", {}, "").status);
  for (const char* path : {"/share.cgi/", "/share.cgi/x", "/share.cgi/share.cgi", "/share.cgi/x?ssid=report",
                           "/share.cgi%2F", "/share.cgi%2Fx", "/share.cgi/./", "/share.cgi/../share.cgi",
                           "/share.cgi/../share.cgi/", "/share.cgi/..%2Fshare.cgi", "//share.cgi", "/share.cgi.",
                           "/share.cgi%20", "/sharelink.cgi/", "/sharelink.cgi/x", "/sharelink.cgi%2Fx",
                           "/sharelink.cgi/../sharelink.cgi/x", "/sharelink.cgi/x?func=mime_table"}) {
    for (const char* user : {"admin:admin-pw", ""}) {
      Response r = get(path, {"--path-as-is"}, user);
      SCOPED_TRACE(std::string(path) + " " + user);
      // Forms the server folds into "/share.cgi" are a request without a link, which share.cgi may throttle.
      EXPECT_TRUE(r.status == 404 || r.status == 429) << r.head; EXPECT_EQ(std::string::npos, r.body.find("ELF"));
      EXPECT_LT(r.body.size(), 20000u);
    }
  }
  EXPECT_NE(std::string::npos, get("/share.cgi/x?ssid=report", {}, "").body.find("does not exist"));
  EXPECT_EQ(401, get("//sharelink.cgi", {"--path-as-is"}, "").status);  // the program's path, still behind the password
}

// Bidi overrides, format and C1 controls leave the names a browser saves; the rest of each name stays.
TEST_F(WebTest, DownloadNamesLoseHiddenControls) {
  ASSERT_EQ(0, run_program(ctl_binary(), {"init"}, root_).status);
  struct Case { std::string name, url, shown; };
  const Case cases[] = {{"photo\xe2\x80\xaegpj.exe", "photo%E2%80%AEgpj.exe", "photogpj.exe"},
                        {"a\xc2\x9b" "b\xe2\x80\x8b" "c\xe2\x81\xa6" "d\xef\xbb\xbf" "e\x9b.txt",
                         "a%C2%9Bb%E2%80%8Bc%E2%81%A6d%EF%BB%BFe%9B.txt", "abcde.txt"},
                        {"Gr\xc3\xbc\xc3\x9f" "e\xe2\x80\x8f.pdf", "Gr%C3%BC%C3%9Fe%E2%80%8F.pdf",
                         "Gr%C3%BC%C3%9Fe.pdf"}};
  int n = 0;
  for (const Case& c : cases) {
    SCOPED_TRACE(c.shown);
    root_.write("/share/VOL1/Public/" + c.name, "body");
    const std::string key = "k" + std::to_string(n++);
    ASSERT_EQ(0, run_program(ctl_binary(), {"add", key, "/Public/" + c.name}, root_).status);
    const std::string ascii = c.shown.find('%') == std::string::npos ? c.shown : "Gr____e.pdf";
    Response shared = get("/share.cgi?ssid=" + key + "&dl=1", {}, "");
    EXPECT_EQ(200, shared.status) << shared.head; EXPECT_EQ("body", shared.body);
    EXPECT_EQ("filename=\"" + ascii + "\"; filename*=UTF-8''" + c.shown,
              shared.header("content-disposition").substr(shared.header("content-disposition").find(';') + 2));
    Response admin = get("/sharelink.cgi?func=download&path=/Public/" + c.url);
    EXPECT_EQ("body", admin.body);
    EXPECT_EQ("inline; filename=\"" + c.shown + "\"; filename*=utf-8''" + c.shown, admin.header("content-disposition"));
  }
}

// ".." steps from a folder `below_root` levels under `root` up to "/".
std::string climb(const ApplianceRoot& root, int below_root) {
  std::string up;
  for (char c : std::string(below_root, '/') + root.dir()) up += c == '/' ? "../" : "";
  return up;
}

class Cgi : public ::testing::Test {
 protected:
  void SetUp() override {
    root.write("/etc/config/smb.conf", "[Public]\npath = /share/VOL1/Public\n");
    root.write("/etc/config/remote_folder.conf", "[1]\nName = rf\nLocal Path = /share/VOL1/rf\n");
    root.write(kConfig, "[System]\nWeb Access Port = 8080\n");
    root.write("/share/VOL1/Public/a.txt", "inside\n"); root.write("/share/VOL1/rf/b.txt", "remote inside\n");
    root.mkdirs("/share/VOL1/.@db"); outside.write("/outside.txt", kSecret);
    outside.write("/victim", "victim\n"); outside.write("/.@__thumb/transcode/outside.txt.original", kSecret);
    for (const char* link : {"/share/VOL1/Public/out", "/share/VOL1/rf/out", "/share/VOL1/lnk"}) {
      ASSERT_EQ(0, symlink(outside.dir().c_str(), root.path(link).c_str()));  // out of a share, folder, volume
    }
  }

  std::string cgi(const std::string& query, const char* user = "admin", std::map<std::string, std::string> env = {}) {
    env.insert({{"QUERY_STRING", query}, {"REQUEST_METHOD", "GET"}, {"REMOTE_USER", user ? user : "\x01unset"}});
    RunResult r = run_program(cgi_binary(), {}, root, env);
    EXPECT_EQ(0, r.status) << query.substr(0, 80) << "\n" << r.err;
    return r.out;
  }
  // A relocation as the administrator's page posts it, with a fresh token.
  std::string relocate(const std::string& params) {
    const std::string issued = cgi("func=form_token"), mark = "\"result\": \"";
    const std::string body = "func=set_share_link_db&" + params + "&form_token=" +
                             issued.substr(std::min(issued.size(), issued.find(mark) + mark.size()), 64);
    RunResult r = run_program(cgi_binary(), {}, root, {{"QUERY_STRING", ""}, {"REQUEST_METHOD", "POST"},
        {"REMOTE_USER", "admin"}, {"CONTENT_TYPE", "application/x-www-form-urlencoded"},
        {"CONTENT_LENGTH", std::to_string(body.size())}}, body);
    EXPECT_EQ(0, r.status) << params.substr(0, 80) << "\n" << r.err;
    return r.out;
  }

  ApplianceRoot root, outside;
};

// Without an authenticated user nothing is served, read or changed.
TEST_F(Cgi, FrontDoorMimeTablePathsAndRelocations) {
  const std::string before = root.read(kConfig);
  const std::vector<std::string> queries = {
      "func=download&path=/Public/a.txt", "func=transcode&path=/Public/a.txt&variant=mp4_org", "func=mime_table",
      "func=set_share_link_db&share_link_db=/share/VOL1/.@db/new.db&force_delete=1", "func=nothing"};
  for (const std::string& q : queries) {
    EXPECT_EQ("Status: 403 Forbidden\r\n" + reply(4), cgi(q, nullptr)) << q;
    EXPECT_EQ("Status: 403 Forbidden\r\n" + reply(4), cgi(q, "")) << q;
  }
  EXPECT_EQ(before, root.read(kConfig)); EXPECT_FALSE(root.exists("/share/VOL1/.@db/new.db"));
  root.write("/share/VOL1/Public/.@__thumb/transcode/a.txt.original", "original variant\n");
  EXPECT_NE(std::string::npos, cgi(queries[0]).find("\r\n\r\ninside\n"));  // with a user, answered
  EXPECT_NE(std::string::npos, cgi(queries[1]).find("attachment; filename=\"a.txt\"")) << cgi(queries[1]);
  EXPECT_EQ(reply(20), cgi("func=transcode&path=/Public/a.txt&variant=mp4_480"));
  // Unknown, broken and hostile requests (with hostile headers) get status 20; the configuration keeps its lines.
  const std::vector<std::string> refused = {
      "", "&&&", "=", "func", "func=", "func=nothing", "func=download", "func=download&path=", "func=download&path=%",
      "func=download&path=%ZZ%00", "func=download&path=/Public/none.pdf", "func=download&path=/Public",
      "func=download&path=/Nowhere/a.txt", "func=download&path=/Public/../../etc/passwd",
      "func=download&path=/Public/" + std::string(70000, 'a'), "func=transcode&path=/Public/a.txt&variant=",
      "func=transcode&path=tfx://x&variant=mp4_240", "func=download&path=/remote:99@x/y"};
  for (const std::string& q : refused) {
    EXPECT_EQ(reply(20), cgi(q, "admin", {{"HTTP_RANGE", "bytes=99999999999999999999999999-,"},
                                          {"HTTP_IF_MODIFIED_SINCE", "garbage"}})) << q.substr(0, 80);
  }
  EXPECT_EQ(reply(20), relocate("share_link_db=/etc/config/x%0A[Evil]%0Ak=v.db"));
  EXPECT_EQ(reply(20), relocate("share_link_db=relative.db&force_delete=1"));
  EXPECT_EQ(reply(35), relocate("share_link_db=" + std::string(5000, '/')));  // too long
  EXPECT_EQ(before, root.read(kConfig));
  EXPECT_EQ(reply(1), relocate("share_link_db=/share/VOL1/.@db/new.db&force_delete=1")) << root.read(kConfig);
  // The MIME table as the web pages read it; the operator's command prints the same.
  const std::string table = cgi("func=mime_table");
  EXPECT_EQ(0u, table.find(kJsonHeader +
                           std::string("{ \"datas\": [ { \"ext_name\": \"pdf\", \"mime_type\": \"application\\/pdf\" }, { ")));
  EXPECT_NE(std::string::npos, table.find("{ \"ext_name\": \"mkv\", \"mime_type\": \"video\\/x-matroska\" }"));
  EXPECT_EQ(" ] }\n", table.substr(table.size() - 5));
  EXPECT_EQ(table.substr(strlen(kJsonHeader)), run_program(ctl_binary(), {"mime"}, root).out);
  // Paths that climb out, follow a link out or hide a cut behind a NUL: no CGI function nor sharelinkctl resolves them.
  const std::string out = outside.dir();
  const std::vector<std::string> paths = {  // as sent in the query (decoded once by the CGI)
      "/remote:1@rf/" + climb(root, 3) + out.substr(1) + "/outside.txt", "/remote:1@rf/../Public/a.txt",
      "/remote:1@rf/out/outside.txt", "/Public/" + climb(root, 3) + out.substr(1) + "/outside.txt",
      "/Public/out/outside.txt", "/Public/./a.txt", "/Public/..\\a.txt", "/Public/%2e%2e/Public/a.txt",
      "/Public/a.txt%00/../../x"};
  for (const std::string& path : paths) {
    SCOPED_TRACE(path);
    EXPECT_EQ(reply(20), cgi("func=download&path=" + path));
    EXPECT_EQ(reply(20), cgi("func=transcode&path=" + path + "&variant=mp4_org"));
    if (path.find('%') != std::string::npos) continue;
    RunResult ctl = run_program(ctl_binary(), {"resolve", path}, root);
    EXPECT_NE(0, ctl.status) << ctl.out; EXPECT_EQ(std::string::npos, ctl.out.find(out)) << ctl.out;
  }
  EXPECT_NE(std::string::npos, cgi("func=download&path=/remote:1@rf/b.txt").find("\r\n\r\nremote inside\n"));
  // Relocation targets outside the configuration folder and the volumes' system (".@") folders, inside a share
  // (its store would be served to anyone), or reached through "..", a link or a missing folder: status 20, every
  // file stays; in a volume's system folder force_delete still replaces the file.
  const std::string kept = root.read(kConfig);
  root.write("/tmp/victim", "victim\n");
  const std::vector<std::string> targets = {"/share/VOL1/" + climb(root, 2) + outside.dir().substr(1) + "/victim",
      "/share/VOL1/lnk/victim", "/share/VOL1/./Public/a.txt", "/tmp/victim", "/share/victim",
      "/share/VOL1/Public/a.txt/", "/share/VOL1/Public/.links/x.db", "/share/VOL1/Public/.@x/x.db",
      "/share/VOL1/plain/x.db"};
  for (const char* folder : {"/share/VOL1/Public/.links", "/share/VOL1/Public/.@x", "/share/VOL1/plain"}) root.mkdirs(folder);
  for (const std::string& t : targets) {
    EXPECT_EQ(reply(20), relocate("force_delete=1&share_link_db=" + t)) << t;
  }
  EXPECT_EQ(kept, root.read(kConfig)); EXPECT_EQ("victim\n", outside.read("/victim"));
  EXPECT_EQ("victim\n", root.read("/tmp/victim")); EXPECT_EQ("inside\n", root.read("/share/VOL1/Public/a.txt"));
  root.write("/share/VOL1/.@db/old.db", "not a store");
  EXPECT_EQ(reply(1), relocate("force_delete=1&share_link_db=/share/VOL1/.@db/old.db"));
  EXPECT_NE("not a store", root.read("/share/VOL1/.@db/old.db"));
  // sharelinkctl relocate does not move the store onto a volume through a link.
  const std::string linked = "[Storage]\nDefault Volume = /share/VOL1/lnk\n[Depot]\nShare_Link_Db = /etc/config/o.db\n";
  root.write(kConfig, linked); EXPECT_NE(0, run_program(ctl_binary(), {"relocate"}, root).status);
  EXPECT_EQ(linked, root.read(kConfig)); EXPECT_FALSE(outside.exists("/.@kdx"));
}

// A secret that cannot be read or made refuses tokens and the changes they guard, and tells the operator.
TEST_F(Cgi, WithoutTheSecretNoTokenAndNoChange) {
  const std::string before = root.read(kConfig);
  // Neither readable as a secret nor replaceable: a folder, and a folder where the new one is written.
  root.mkdirs("/etc/config/share_link_secret"), root.mkdirs("/etc/config/share_link_secret.new/x");
  const std::string unavailable = "Status: 503 Service Unavailable\r\nRetry-After: 60\r\n" + reply(19);
  EXPECT_EQ(unavailable, cgi("func=form_token"));
  const std::string body = "func=set_share_link_db&share_link_db=/share/VOL1/.@db/n.db&form_token=" +
                           std::string(64, 'a');
  EXPECT_EQ(unavailable, run_program(cgi_binary(), {}, root, {{"QUERY_STRING", ""}, {"REQUEST_METHOD", "POST"},
      {"REMOTE_USER", "admin"}, {"CONTENT_TYPE", "application/x-www-form-urlencoded"},
      {"CONTENT_LENGTH", std::to_string(body.size())}}, body).out);
  EXPECT_EQ(before, root.read(kConfig)); EXPECT_FALSE(root.exists("/share/VOL1/.@db/n.db"));
  const std::string log = root.read("/tmp/parceldeck.log");
  EXPECT_NE(std::string::npos, log.find("appliance secret")) << log;
}

}  // namespace

namespace {

// The store's own files are never delivered, whatever hard links a share
// holds to them; a transcoded variant planted as a link leads nowhere.
TEST_F(Cgi, StoreFilesAndLinkedVariantsAreNeverDelivered) {
  ASSERT_EQ(0, run_program(ctl_binary(), {"init"}, root).status);
  ASSERT_EQ(0, run_program(ctl_binary(), {"add", "k", "/Public/a.txt", "--accesscode", "in-clear"}, root).status);
  ASSERT_EQ(0, link(root.path("/etc/config/share_link.db").c_str(), root.path("/share/VOL1/Public/db.bin").c_str()));
  ASSERT_EQ(0, link(root.path("/etc/config/smb.conf").c_str(), root.path("/share/VOL1/Public/conf.txt").c_str()));
  root.write("/share/VOL1/Public/movie.mp4", "video");
  root.mkdirs("/share/VOL1/Public/.@__thumb/transcode");
  ASSERT_EQ(0, symlink(outside.path("/outside.txt").c_str(),
                       root.path("/share/VOL1/Public/.@__thumb/transcode/movie.mp4.mobile360p").c_str()));
  for (const char* q : {"func=download&path=/Public/db.bin", "func=download&path=/Public/conf.txt",
                        "func=transcode&path=/Public/movie.mp4&variant=mp4_360"}) {
    for (const char* user : {"admin", "bob"}) {
      const std::string out = cgi(q, user);
      EXPECT_EQ(std::string::npos, out.find("in-clear")) << q;
      EXPECT_EQ(std::string::npos, out.find(kSecret)) << q;
      EXPECT_NE(std::string::npos, out.find("\"status\": 20")) << q << " " << out.substr(0, 200);
    }
  }
  EXPECT_NE(std::string::npos, cgi("func=download&path=/Public/a.txt", "bob").find("inside\n"));
}

}  // namespace
