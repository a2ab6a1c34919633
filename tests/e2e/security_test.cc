// The defects an attacker and a busy appliance found, each run through the
// real programs: the CGI's front door, display paths and relocation targets
// that try to leave their root, registry values that would break its lines,
// and a rewrite on a disk that refuses to grow. Files an attack aims at live
// in a second temporary folder, outside the appliance root.
#include <dirent.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <set>
#include <string>
#include <vector>

#include "support/appliance.h"

namespace {

const char kRegistry[] = "/etc/config/shareFileEx.ini";
const char kConfig[] = "/etc/config/Korvix.conf";
const char kSecret[] = "the outside secret\n";

std::string reply(int status) {
  return "{ \"version\": \"6.0.1.6963\", \"build\": \"20250804\", \"status\": " +
         std::to_string(status) + ", \"success\": \"true\" }\n";
}
const char kJsonHeader[] = "Content-type: application/json; charset=\"UTF-8\"\r\n\r\n";

// ".." steps from the mount point /share/VOL1/rf of `root` up to "/".
std::string climb(const ApplianceRoot& root, int below_root) {
  std::string up;
  for (int i = 0; i < below_root; ++i) up += "../";
  for (char c : root.dir()) {
    if (c == '/') up += "../";
  }
  return up;
}

class SecurityE2E : public ::testing::Test {
 protected:
  void SetUp() override {
    root.write("/etc/config/smb.conf", "[Public]\npath = /share/VOL1/Public\n");
    root.write("/etc/config/remote_folder.conf", "[1]\nName = rf\nLocal Path = /share/VOL1/rf\n");
    root.write(kConfig, "[System]\nWeb Access Port = 8080\n");
    root.write("/share/VOL1/Public/a.txt", "inside\n");
    root.write("/share/VOL1/rf/b.txt", "remote inside\n");
    root.mkdirs("/share/VOL1/.db");
    outside.write("/outside.txt", kSecret);
    outside.write("/victim", "victim\n");
    outside.mkdirs("/.@__thumb/transcode");
    outside.write("/.@__thumb/transcode/outside.txt.original", kSecret);
    // Links out of a share and out of a remote folder.
    ASSERT_EQ(0, symlink(outside.dir().c_str(), root.path("/share/VOL1/Public/out").c_str()));
    ASSERT_EQ(0, symlink(outside.dir().c_str(), root.path("/share/VOL1/rf/out").c_str()));
    ASSERT_EQ(0, symlink(outside.dir().c_str(), root.path("/share/VOL1/lnk").c_str()));
  }

  RunResult cgi(const std::string& query, const char* user = "admin") {
    return run_program(cgi_binary(), {}, root,
                       {{"QUERY_STRING", query}, {"REQUEST_METHOD", "GET"},
                        {"REMOTE_USER", user == nullptr ? "\x01unset" : user}});
  }

  ApplianceRoot root;
  ApplianceRoot outside;
};

// Without an authenticated user nothing is served, read or changed; the same
// requests with one are answered.
TEST_F(SecurityE2E, FrontDoorRefusesRequestsWithoutAUser) {
  const std::string before = root.read(kConfig);
  const std::string forbidden = std::string("Status: 403 Forbidden\r\n") + kJsonHeader + reply(4);
  const std::vector<std::string> queries = {
      "func=download&path=/Public/a.txt",
      "func=transcode&path=/Public/a.txt&variant=mp4_org",
      "func=mime_table",
      "func=set_share_link_db&share_link_db=/share/VOL1/.db/new.db&force_delete=1",
      "func=nothing",
  };
  for (const std::string& q : queries) {
    for (const char* user : {static_cast<const char*>(nullptr), ""}) {
      RunResult r = cgi(q, user);
      EXPECT_EQ(0, r.status) << q;
      EXPECT_EQ(forbidden, r.out) << q << (user == nullptr ? " (unset)" : " (empty)");
    }
  }
  EXPECT_EQ(before, root.read(kConfig));
  EXPECT_FALSE(root.exists("/share/VOL1/.db/new.db"));

  RunResult ok = cgi(queries[0]);
  EXPECT_NE(std::string::npos, ok.out.find("\r\n\r\ninside\n")) << ok.out;
  EXPECT_NE(std::string::npos, cgi(queries[3]).out.find(reply(1))) << root.read(kConfig);
}

// Display paths that climb out of their folder, follow a link out of it or
// hide a cut behind a NUL: neither CGI function nor sharelinkctl resolves
// them; the secret never goes out.
TEST_F(SecurityE2E, DisplayPathsStayInside) {
  const std::string out = outside.dir();
  struct Case {
    const char* name;
    std::string path;  // as sent in the query (decoded once by the CGI)
  };
  const std::vector<Case> cases = {
      {"remote ..", "/remote:1@rf/" + climb(root, 3) + out.substr(1) + "/outside.txt"},
      {"remote .. inside the root", "/remote:1@rf/../Public/a.txt"},
      {"remote link out", "/remote:1@rf/out/outside.txt"},
      {"share ..", "/Public/" + climb(root, 3) + out.substr(1) + "/outside.txt"},
      {"share link out", "/Public/out/outside.txt"},
      {"share .", "/Public/./a.txt"},
      {"backslash", "/Public/..\\a.txt"},
      {"escaped dots", "/Public/%2e%2e/Public/a.txt"},
      {"NUL", "/Public/a.txt%00/../../x"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    for (const char* func : {"download", "transcode"}) {
      std::string q = std::string("func=") + func + "&path=" + c.path +
                      (func[0] == 't' ? "&variant=mp4_org" : "");
      RunResult r = cgi(q);
      EXPECT_EQ(kJsonHeader + reply(20), r.out) << func;
    }
    if (c.path.find('%') == std::string::npos) {
      RunResult ctl = run_program(ctl_binary(), {"resolve", c.path}, root);
      EXPECT_NE(0, ctl.status) << ctl.out;
      EXPECT_EQ(std::string::npos, ctl.out.find(out)) << ctl.out;
    }
  }
  // The remote folder and the share still serve what lies inside them.
  EXPECT_NE(std::string::npos, cgi("func=download&path=/remote:1@rf/b.txt").out.find("remote inside"));
  EXPECT_NE(std::string::npos, cgi("func=download&path=/Public/a.txt").out.find("\r\n\r\ninside\n"));
}

// Relocation targets outside the configuration folder and the volumes, or
// reached through "..", a link or a missing folder: status 20, the
// configuration and every file stay.
TEST_F(SecurityE2E, RelocationStaysInside) {
  const std::string out = outside.dir();
  const std::string before = root.read(kConfig);
  const std::vector<std::string> targets = {
      "/share/VOL1/" + climb(root, 2) + out.substr(1) + "/victim",
      "/share/VOL1/lnk/victim",
      "/share/VOL1/./Public/a.txt",
      "/tmp/victim",
      "/share/victim",
      "/share/VOL1/Public/a.txt/",
  };
  root.write("/tmp/victim", "victim\n");
  for (const std::string& t : targets) {
    RunResult r = cgi("func=set_share_link_db&force_delete=1&share_link_db=" + t);
    EXPECT_EQ(kJsonHeader + reply(20), r.out) << t;
  }
  EXPECT_EQ(before, root.read(kConfig));
  EXPECT_EQ("victim\n", outside.read("/victim"));
  EXPECT_EQ("victim\n", root.read("/tmp/victim"));
  EXPECT_EQ("inside\n", root.read("/share/VOL1/Public/a.txt"));

  // Inside a volume, force_delete still replaces the file.
  root.write("/share/VOL1/.db/old.db", "not a store");
  RunResult r = cgi("func=set_share_link_db&force_delete=1&share_link_db=/share/VOL1/.db/old.db");
  EXPECT_EQ(kJsonHeader + reply(1), r.out);
  EXPECT_NE("not a store", root.read("/share/VOL1/.db/old.db"));

  // sharelinkctl relocate does not move the store onto a volume through a link.
  const std::string linked =
      "[Storage]\nDefault Volume = /share/VOL1/lnk\n[Depot]\nShare_Link_Db = /etc/config/other.db\n";
  root.write(kConfig, linked);
  RunResult ctl = run_program(ctl_binary(), {"relocate"}, root);
  EXPECT_NE(0, ctl.status);
  EXPECT_EQ(linked, root.read(kConfig));
  EXPECT_FALSE(outside.exists("/.@kdx"));
}

std::string entry(const std::string& id, const std::string& host = "nas",
                  const std::string& value = "v9") {
  return id + "\t" + host + "\tf3\t0\t/share/VOL1/Public/a.txt\tf6\t0\tf8\t" + value + "\tf10\n";
}

// A tab, CR or LF in a mode-4 value, host or expiry would split the line:
// the registry stays byte for byte and one line is logged. A mode-2 id
// holding one matches nothing.
TEST_F(SecurityE2E, BadRegistryValuesChangeNothing) {
  const std::string registry = entry("AbC") + "Ab\r\tnas\tf3\t0\t/share/VOL1/Public/a.txt\tf6\t0\tf8\tv\tf10\n";
  const std::string url = "https://nas.example/share.cgi?ssid=AbC";
  const std::vector<std::vector<std::string>> runs = {
      {"4", "x\ty", "0", url},
      {"4", "x\ry", "0", url},
      {"4", "x\ny", "1", url, "0"},
      {"4", "", "0", "http://na\ts:80/share.cgi?ssid=AbC"},
      {"4", "", "0", "http://na\ns:80/share.cgi?ssid=AbC"},
      {"4", "", "0", url, "5\n"},
      {"4", "", "0", url, "\t5"},
      {"2", "http://h:1/share.cgi?ssid=Ab\r"},
      {"2", "http://h:1/share.cgi?ssid=AbC\n"},
  };
  for (const auto& args : runs) {
    SCOPED_TRACE(args[0] + " " + args[1] + " " + args[3 % args.size()]);
    root.write(kRegistry, registry);
    root.remove("/tmp/parceldeck.log");
    RunResult r = run_program(tool_binary(), args, root);
    EXPECT_EQ(0, r.status);
    EXPECT_EQ(registry, root.read(kRegistry));
    if (args[0] == "4") {
      std::string log = root.exists("/tmp/parceldeck.log") ? root.read("/tmp/parceldeck.log") : "";
      EXPECT_EQ(1, std::count(log.begin(), log.end(), '\n')) << log;
    }
  }
  // The same edits with clean values land.
  root.write(kRegistry, registry);
  run_program(tool_binary(), {"4", "xy", "0", url, "0"}, root);
  EXPECT_EQ(entry("AbC", "nas.example", "xy"), root.read(kRegistry).substr(0, entry("AbC", "nas.example", "xy").size()));
}

// A file-size limit makes every write of the new registry fail (SIGXFSZ
// ignored, so the writes return EFBIG): each writer gives up at its first
// failed write with one report, leaves the registry as it was and no
// companion behind.
TEST_F(SecurityE2E, RewriteOnADiskThatCannotGrow) {
  std::string registry;
  for (int i = 0; i < 3000; ++i) registry += entry("L" + std::to_string(100000 + i));
  const std::vector<std::vector<std::string>> runs = {
      {"9"},  // refresh only
      {"2", "http://h:1/share.cgi?ssid=L100001"},
      {"4", "new", "0", "https://HOSTNAME/share.cgi?ssid=L100002"},
  };
  root.mkdirs("/tmp");
  for (const auto& args : runs) {
    SCOPED_TRACE(args[0]);
    root.write(kRegistry, registry);
    root.remove("/tmp/syslog.log");
    std::vector<std::string> argv = {"--fsize=65536", "--", "/bin/sh", "-c",
                                     "trap '' XFSZ; exec \"$0\" \"$@\"", tool_binary()};
    argv.insert(argv.end(), args.begin(), args.end());
    const std::string asan = getenv("ASAN_OPTIONS") ? getenv("ASAN_OPTIONS") : "";
    RunResult r = run_program("/usr/bin/prlimit", argv, root,
                              {{"LD_PRELOAD", SLT_TEST_SYSLOG_LIB},
                               {"ASAN_OPTIONS", asan + ":verify_asan_link_order=0"}});
    EXPECT_EQ(0, r.status) << r.err;
    EXPECT_TRUE(root.read(kRegistry) == registry);
    const std::string log = root.exists("/tmp/syslog.log") ? root.read("/tmp/syslog.log") : "";
    // One report (its data, the line, carries a line feed of its own).
    EXPECT_EQ(log.find("ERROR: "), log.rfind("ERROR: ")) << log.substr(0, 600);
    EXPECT_NE(std::string::npos, log.find("ERROR: ")) << log.substr(0, 600);
    EXPECT_NE(std::string::npos, log.find("(27:File too large)")) << log.substr(0, 600);
    DIR* d = opendir(root.path("/etc/config").c_str());
    std::set<std::string> names;
    while (dirent* e = readdir(d)) names.insert(e->d_name);
    closedir(d);
    EXPECT_EQ((std::set<std::string>{".", "..", "Korvix.conf", "remote_folder.conf", "shareFileEx.ini",
                                     "shareFileEx.ini.lock", "smb.conf"}),
              names);
  }
}

}  // namespace
