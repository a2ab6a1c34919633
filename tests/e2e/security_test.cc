// The real programs against an attacker and a busy appliance; sharelink.cgi runs directly as the web server
// would (its answers byte for byte). Files an attack aims at live in a second temporary folder.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "support/appliance.h"

namespace {

const char kRegistry[] = "/etc/config/shareFileEx.ini";
const char kConfig[] = "/etc/config/Korvix.conf";
const char kSecret[] = "the outside secret\n";
const char kJsonHeader[] = "Content-type: application/json; charset=\"UTF-8\"\r\n\r\n";

std::string reply(int status) {
  return kJsonHeader + std::string("{ \"version\": \"6.0.1.6963\", \"build\": \"20250804\", \"status\": ") +
         std::to_string(status) + ", \"success\": \"true\" }\n";
}

// ".." steps from a folder `below_root` levels under `root` up to "/".
std::string climb(const ApplianceRoot& root, int below_root) {
  std::string up;
  for (char c : std::string(below_root, '/') + root.dir()) up += c == '/' ? "../" : "";
  return up;
}

class SecurityE2E : public ::testing::Test {
 protected:
  void SetUp() override {
    root.write("/etc/config/smb.conf", "[Public]\npath = /share/VOL1/Public\n");
    root.write("/etc/config/remote_folder.conf", "[1]\nName = rf\nLocal Path = /share/VOL1/rf\n");
    root.write(kConfig, "[System]\nWeb Access Port = 8080\n");
    root.write("/share/VOL1/Public/a.txt", "inside\n"); root.write("/share/VOL1/rf/b.txt", "remote inside\n");
    root.mkdirs("/share/VOL1/.db"); outside.write("/outside.txt", kSecret);
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

// Without an authenticated user nothing is served, read or changed; unknown requests get status 20.
TEST_F(SecurityE2E, FrontDoorRefusesRequestsWithoutAUser) {
  const std::string before = root.read(kConfig);
  const std::vector<std::string> queries = {
      "func=download&path=/Public/a.txt", "func=transcode&path=/Public/a.txt&variant=mp4_org", "func=mime_table",
      "func=set_share_link_db&share_link_db=/share/VOL1/.db/new.db&force_delete=1", "func=nothing"};
  for (const std::string& q : queries) {
    EXPECT_EQ("Status: 403 Forbidden\r\n" + reply(4), cgi(q, nullptr)) << q;
    EXPECT_EQ("Status: 403 Forbidden\r\n" + reply(4), cgi(q, "")) << q;
  }
  EXPECT_EQ(before, root.read(kConfig)); EXPECT_FALSE(root.exists("/share/VOL1/.db/new.db"));
  root.write("/share/VOL1/Public/.@__thumb/transcode/a.txt.original", "original variant\n");
  EXPECT_NE(std::string::npos, cgi(queries[0]).find("\r\n\r\ninside\n"));  // with a user, answered
  EXPECT_NE(std::string::npos, cgi(queries[1]).find("attachment; filename=\"a.txt\"")) << cgi(queries[1]);
  EXPECT_EQ(reply(20), cgi("func=transcode&path=/Public/a.txt&variant=mp4_480"));
  EXPECT_EQ(reply(1), cgi(queries[3])) << root.read(kConfig);
  for (const char* q : {"", "func=nothing", "func=download", "func=download&path=/Public/none.pdf",
                        "func=download&path=/Public", "func=download&path=/Nowhere/a.txt"}) {
    EXPECT_EQ(reply(20), cgi(q)) << q;
  }
}

// The MIME table as the web pages read it; the operator's command prints the same.
TEST_F(SecurityE2E, MimeTableReply) {
  const std::string out = cgi("func=mime_table");
  EXPECT_EQ(0u, out.find(kJsonHeader + std::string("{ \"datas\": [ { \"ext_name\": \"pdf\", \"mime_type\": \"application\\/pdf\" }, { ")));
  EXPECT_NE(std::string::npos, out.find("{ \"ext_name\": \"mkv\", \"mime_type\": \"video\\/x-matroska\" }"));
  EXPECT_EQ(" ] }\n", out.substr(out.size() - 5));
  EXPECT_EQ(out.substr(strlen(kJsonHeader)), run_program(ctl_binary(), {"mime"}, root).out);
}

// Paths that climb out, follow a link out or hide a cut behind a NUL: no CGI function nor sharelinkctl resolves them.
TEST_F(SecurityE2E, DisplayPathsStayInside) {
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
}

// Relocation targets outside the configuration folder and the volumes, or reached through "..", a link or a
// missing folder: status 20, every file stays; inside a volume force_delete still replaces the file.
TEST_F(SecurityE2E, RelocationStaysInside) {
  const std::string before = root.read(kConfig);
  root.write("/tmp/victim", "victim\n");
  const std::vector<std::string> targets = {"/share/VOL1/" + climb(root, 2) + outside.dir().substr(1) + "/victim",
      "/share/VOL1/lnk/victim", "/share/VOL1/./Public/a.txt", "/tmp/victim", "/share/victim",
      "/share/VOL1/Public/a.txt/"};
  for (const std::string& t : targets) {
    EXPECT_EQ(reply(20), cgi("func=set_share_link_db&force_delete=1&share_link_db=" + t)) << t;
  }
  EXPECT_EQ(before, root.read(kConfig)); EXPECT_EQ("victim\n", outside.read("/victim"));
  EXPECT_EQ("victim\n", root.read("/tmp/victim"));
  EXPECT_EQ("inside\n", root.read("/share/VOL1/Public/a.txt"));
  root.write("/share/VOL1/.db/old.db", "not a store");
  EXPECT_EQ(reply(1), cgi("func=set_share_link_db&force_delete=1&share_link_db=/share/VOL1/.db/old.db"));
  EXPECT_NE("not a store", root.read("/share/VOL1/.db/old.db"));
  // sharelinkctl relocate does not move the store onto a volume through a link.
  const std::string linked = "[Storage]\nDefault Volume = /share/VOL1/lnk\n[Depot]\nShare_Link_Db = /etc/config/o.db\n";
  root.write(kConfig, linked); EXPECT_NE(0, run_program(ctl_binary(), {"relocate"}, root).status);
  EXPECT_EQ(linked, root.read(kConfig)); EXPECT_FALSE(outside.exists("/.@kdx"));
}

// Any query string with hostile headers gets an answer and exit 0, and the configuration keeps its lines.
TEST_F(SecurityE2E, AnyQueryStringGetsAnAnswer) {
  const std::vector<std::string> queries = {
      "", "&&&", "=", "func", "func=", "func=download&path=", "func=download&path=%", "func=download&path=%ZZ%00",
      "func=download&path=/Public/../../etc/passwd", "func=download&path=/Public/a.txt",
      "func=download&path=/Public/" + std::string(70000, 'a'), "func=transcode&path=/Public/a.txt&variant=",
      "func=transcode&path=/Public/a.txt&variant=mp4_org", "func=transcode&path=tfx://x&variant=mp4_240",
      "func=download&path=/remote:99@x/y", "func=set_share_link_db&share_link_db=" + std::string(5000, '/'),
      "func=set_share_link_db&share_link_db=/etc/config/x%0A[Evil]%0Ak=v.db",
      "func=set_share_link_db&share_link_db=relative.db&force_delete=1", "func=mime_table&func=download"};
  for (const std::string& q : queries) {
    EXPECT_FALSE(cgi(q, "admin", {{"HTTP_RANGE", "bytes=99999999999999999999999999-,"},
                                  {"HTTP_IF_MODIFIED_SINCE", "garbage"}}).empty()) << q.substr(0, 80);
  }
  EXPECT_EQ(std::string::npos, root.read(kConfig).find("[Evil]"));
}

std::string entry(const std::string& id, const std::string& host = "nas", const std::string& value = "v9") {
  return id + "\t" + host + "\tf3\t0\t/share/VOL1/Public/a.txt\tf6\t0\tf8\t" + value + "\tf10\n";
}

// A tab, CR or LF in a mode-4 value, host or expiry would split the line: the registry stays byte for byte and
// one line is logged. A mode-2 id holding one matches nothing. Clean values land.
TEST_F(SecurityE2E, BadRegistryValuesChangeNothing) {
  const std::string registry = entry("AbC") + "Ab\r\tnas\tf3\t0\t/share/VOL1/Public/a.txt\tf6\t0\tf8\tv\tf10\n";
  const std::string url = "https://nas.example/share.cgi?ssid=AbC";
  const std::vector<std::vector<std::string>> runs = {
      {"4", "x\ty", "0", url}, {"4", "x\ry", "0", url}, {"4", "x\ny", "1", url, "0"},
      {"4", "", "0", "http://na\ts:80/share.cgi?ssid=AbC"}, {"4", "", "0", "http://na\ns:80/share.cgi?ssid=AbC"},
      {"4", "", "0", url, "5\n"}, {"4", "", "0", url, "\t5"},
      {"2", "http://h:1/share.cgi?ssid=Ab\r"}, {"2", "http://h:1/share.cgi?ssid=AbC\n"}};
  for (const auto& args : runs) {
    SCOPED_TRACE(args[0] + " " + args[1] + " " + args[3 % args.size()]);
    root.write(kRegistry, registry); root.remove("/tmp/parceldeck.log");
    EXPECT_EQ(0, run_program(tool_binary(), args, root).status); EXPECT_EQ(registry, root.read(kRegistry));
    std::string log = root.exists("/tmp/parceldeck.log") ? root.read("/tmp/parceldeck.log") : "";
    if (args[0] == "4") EXPECT_EQ(1, std::count(log.begin(), log.end(), '\n')) << log;
  }
  root.write(kRegistry, registry); run_program(tool_binary(), {"4", "xy", "0", url, "0"}, root);
  EXPECT_EQ(entry("AbC", "nas.example", "xy") + registry.substr(entry("AbC").size()), root.read(kRegistry));
}

// With every write of the new registry failing (EFBIG under a file-size limit, SIGXFSZ ignored) each writer
// stops at the first failure with one report, keeps the registry and leaves no companion behind.
TEST_F(SecurityE2E, RewriteOnADiskThatCannotGrow) {
  std::string registry;
  for (int i = 0; i < 3000; ++i) registry += entry("L" + std::to_string(100000 + i));
  const std::string asan = getenv("ASAN_OPTIONS") ? getenv("ASAN_OPTIONS") : "";
  for (std::vector<std::string> args : std::vector<std::vector<std::string>>{{"9"},
           {"2", "http://h:1/share.cgi?ssid=L100001"}, {"4", "new", "0", "https://HOSTNAME/share.cgi?ssid=L100002"}}) {
    SCOPED_TRACE(args[0]);
    root.write(kRegistry, registry); root.remove("/tmp/syslog.log");
    args.insert(args.begin(), {"--fsize=65536", "--", "/bin/sh", "-c", "trap '' XFSZ; exec \"$0\" \"$@\"",
                               tool_binary()});
    RunResult r = run_program("/usr/bin/prlimit", args, root, {{"LD_PRELOAD", SLT_TEST_SYSLOG_LIB},
                                                               {"ASAN_OPTIONS", asan + ":verify_asan_link_order=0"}});
    EXPECT_EQ(0, r.status) << r.err; EXPECT_TRUE(root.read(kRegistry) == registry);
    const std::string log = root.exists("/tmp/syslog.log") ? root.read("/tmp/syslog.log") : "";
    EXPECT_NE(std::string::npos, log.find("ERROR: ")) << log.substr(0, 600);
    EXPECT_EQ(log.find("ERROR: "), log.rfind("ERROR: ")) << log.substr(0, 600);  // one report (its line has a LF)
    EXPECT_NE(std::string::npos, log.find("(27:File too large)")) << log.substr(0, 600);
    EXPECT_EQ("Korvix.conf\nremote_folder.conf\nshareFileEx.ini\nshareFileEx.ini.lock\nsmb.conf\n",
              run_program("/bin/ls", {"-A", root.path("/etc/config")}, root, {{"LC_ALL", "C"}}).out);
  }
}

}  // namespace
