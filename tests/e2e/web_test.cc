// sharelink.cgi behind lighttpd with the shipped data/lighttpd/sharelink-admin.conf (basic authentication, curl
// as client), and run directly as the server would (answers byte for byte; attacked files lie outside the root).
#include <gtest/gtest.h>
#include <unistd.h>

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
             "\"\ninclude \"" SLT_SOURCE_DIR "/data/lighttpd/sharelink-admin.conf\"\n";
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

  const std::string target = "/sharelink.cgi?func=set_share_link_db&share_link_db=/share/VOL1/.@db/new.db";
  const std::string before = root_.read("/etc/config/Korvix.conf");
  EXPECT_EQ(json(4), get(target, {}, "bob:bob-pw").body); EXPECT_EQ(before, root_.read("/etc/config/Korvix.conf"));
  EXPECT_FALSE(root_.exists("/share/VOL1/.@db/new.db"));
  EXPECT_EQ(json(1), get(target).body);
  EXPECT_NE(std::string::npos, root_.read("/etc/config/Korvix.conf").find("Share_Link_Db = /share/VOL1/.@db/new.db\n"));
  EXPECT_TRUE(root_.exists("/share/VOL1/.@db/new.db"));
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
      "func=transcode&path=tfx://x&variant=mp4_240", "func=download&path=/remote:99@x/y",
      "func=set_share_link_db&share_link_db=/etc/config/x%0A[Evil]%0Ak=v.db",
      "func=set_share_link_db&share_link_db=relative.db&force_delete=1"};
  for (const std::string& q : refused) {
    EXPECT_EQ(reply(20), cgi(q, "admin", {{"HTTP_RANGE", "bytes=99999999999999999999999999-,"},
                                          {"HTTP_IF_MODIFIED_SINCE", "garbage"}})) << q.substr(0, 80);
  }
  EXPECT_EQ(reply(35), cgi("func=set_share_link_db&share_link_db=" + std::string(5000, '/')));  // too long
  EXPECT_EQ(before, root.read(kConfig));
  EXPECT_EQ(reply(1), cgi(queries[3])) << root.read(kConfig);
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
    EXPECT_EQ(reply(20), cgi("func=set_share_link_db&force_delete=1&share_link_db=" + t)) << t;
  }
  EXPECT_EQ(kept, root.read(kConfig)); EXPECT_EQ("victim\n", outside.read("/victim"));
  EXPECT_EQ("victim\n", root.read("/tmp/victim")); EXPECT_EQ("inside\n", root.read("/share/VOL1/Public/a.txt"));
  root.write("/share/VOL1/.@db/old.db", "not a store");
  EXPECT_EQ(reply(1), cgi("func=set_share_link_db&force_delete=1&share_link_db=/share/VOL1/.@db/old.db"));
  EXPECT_NE("not a store", root.read("/share/VOL1/.@db/old.db"));
  // sharelinkctl relocate does not move the store onto a volume through a link.
  const std::string linked = "[Storage]\nDefault Volume = /share/VOL1/lnk\n[Depot]\nShare_Link_Db = /etc/config/o.db\n";
  root.write(kConfig, linked); EXPECT_NE(0, run_program(ctl_binary(), {"relocate"}, root).status);
  EXPECT_EQ(linked, root.read(kConfig)); EXPECT_FALSE(outside.exists("/.@kdx"));
}

}  // namespace
