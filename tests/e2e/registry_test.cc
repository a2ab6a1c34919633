// The share registry end to end: the tool's exit statuses and which runs refresh the registry
// first, the refresh, mode 2's deletions and mode 4's rewrites, compared byte for byte. Hostile and
// oversized command lines are in hostile_input_test.cc.
#include <dirent.h>
#include <gtest/gtest.h>

#include <ctime>
#include <set>

#include "support/appliance.h"

namespace {

const char kRegistry[] = "/etc/config/shareFileEx.ini";
const char kA[] = "/share/Public/a.txt";
const char kB[] = "/share/Public/b.txt";

// A well-formed line: ten fields, so fields 2, 4, 7 and 9 never carry the newline.
std::string entry(const std::string& id, const std::string& path, const std::string& expiry = "0",
                  const std::string& host = "nas", const std::string& https = "0", const std::string& value = "v9") {
  return id + "\t" + host + "\tf3\t" + https + "\t" + path + "\tf6\t" + expiry + "\tf8\t" + value + "\tf10\n";
}

class RegistryE2E : public ::testing::Test {
 protected:
  void SetUp() override { root.write(kA, "a"), root.write(kB, "b"); }
  // Runs the tool, which prints nothing, and checks that no temporary file is left behind.
  void run(const std::vector<std::string>& args, const std::string& trace = "") {
    RunResult r = run_program(tool_binary(), args, root);
    EXPECT_EQ(0, r.status) << trace;
    EXPECT_EQ("", r.out + r.err) << trace;
    std::set<std::string> names;
    DIR* d = opendir(root.path("/etc/config").c_str());
    while (dirent* e = readdir(d)) names.insert(e->d_name);
    closedir(d);
    for (const char* n : {".", "..", "shareFileEx.ini", "shareFileEx.ini.lock", "Korvix.conf"}) names.erase(n);
    EXPECT_EQ(std::set<std::string>{}, names) << trace;
  }
  std::string registry() const { return root.read(kRegistry); }

  ApplianceRoot root;
};

TEST_F(RegistryE2E, RefreshDropsMissingPathsAndPastExpiriesOrAbortsOnUnreadableLines) {
  run({"9"});
  EXPECT_TRUE(root.exists(kRegistry));
  EXPECT_EQ("", registry());
  const std::string long_path = "/share/" + std::string(248, 'n');  // 255 bytes
  root.write(long_path, "n");
  const std::string k0 = entry("K0", kA, "0"), k1 = entry("K1", kB, "-5"),
                    k2 = entry("K2", kA, std::to_string(time(nullptr) + 86400)), k3 = entry("K3", long_path, "0");
  // A missing path is dropped before field 7 is looked at (D3).
  root.write(kRegistry, k0 + entry("D0", "/share/Public/gone.txt", "0") + entry("D1", kA, "1") + k1 +
                            entry("D2", kB, std::to_string(time(nullptr) - 60)) + k2 +
                            "D3\tnas\tf3\t0\t/share/Public/gone.txt\n" + k3);
  run({"9"});
  EXPECT_EQ(k0 + k1 + k2 + k3, registry());
  // A line the refresh cannot read aborts it: the registry stays and the mode's action does not run.
  const std::string bad_lines[] = {
      "AbC\tnas\t\t\tf3\n",                            // fewer than 5 non-empty fields
      "X\tnas\tf3\t0\t" + std::string(kA) + "\tf6\n",  // existing path, no field 7
      entry("X", "/share/" + std::string(249, 'p')),   // field 5 of 256 bytes
      "\n",                                            // a blank line is not an empty read
  };
  for (const std::string& bad : bad_lines) {
    const std::string before = entry("AbC", kA) + bad + entry("Z", "/share/Public/gone.txt");
    root.write(kRegistry, before);
    run({"2", "https://nas/share.cgi?ssid=AbC"}, bad);
    EXPECT_EQ(before, registry()) << bad;
  }
}

// Mode 2 matches each line item by item over one never-cleared id: a shorter id keeps a longer one's
// tail, an item without an id keeps the last. A list with an empty item or one of 256 bytes changes
// nothing. A ".del" file left by a killed run must not bring its lines back.
TEST_F(RegistryE2E, DeleteTable) {
  const std::string a = entry("AbC", kA), b = entry("DeF", kB), c = entry("GhI", kA), d = entry("AbCD", kB);
  auto u = [](const std::string& id) { return "http://h:1/share.cgi?ssid=" + id; };
  const std::string k1 = entry("K1", kA), k2 = entry("K2", kA), k3 = entry("K3", kA), ab = entry("ab", kA);
  const struct { std::string before, list, after; bool killed_run; } cases[] = {
      {a + b + c + d, "http://10.0.0.1:8080/share.cgi?ssid=AbC", b + c + d, false},
      {a + b + c + d, "https://nas/share.cgi?ssid=GhI,http://h:1/share.cgi?fid=1&ssid=AbC,", b + d, false},
      {a + b + c + d, u("Nope"), a + b + c + d, false},
      {a + b + c + d, "", "", false},
      {a + b + c + d, u("AbC"), b + c + d, true},
      {ab + entry("abb", kA), u("abb") + "," + u("ab"), ab, false},
      {ab + ab + entry("b", kA), u("ab") + "," + u("b"), entry("b", kA), false},
      {k1 + k2 + k3 + k1, u("K2") + ",https://nas/share.cgi?fid=K3," + u("K1"), k3, false},
      {k1 + k2 + k3, u("K1") + "," + u("K2") + "," + u(std::string(220, 'x')) + "," + u("K3"), k3, false},
      {k1 + k2 + k3, u("K3") + ",," + u("K1"), k1 + k2 + k3, false},
      {k1 + k2 + k3, u("K1") + "," + u(std::string(250, 'x')) + "," + u("K3"), k1 + k2 + k3, false},
  };
  for (const auto& k : cases) {
    if (k.killed_run) root.write("/etc/config/shareFileEx.ini.del", a + b + "DeF\tna");
    root.write(kRegistry, k.before);
    run({"2", k.list}, k.list);
    EXPECT_EQ(k.after, registry()) << k.list;
  }
}

// Mode 4 rewrites: host, https flag, value and expiry as the URL and the arguments say. https on the
// standard port ends the host at the first slash, on another port at the first colon; http needs a
// port; "HOSTNAME" keeps the host; an unparsable host drops the line.
TEST_F(RegistryE2E, RewriteTable) {
  const std::string other = entry("OtH", kB), https = "https://nas.example:8443/share.cgi?ssid=AbC";
  const std::string keep_host = "https://HOSTNAME/share.cgi?ssid=AbC";
  const struct { std::string before; std::vector<std::string> args; std::string after; bool other_port; } cases[] = {
      {entry("AbC", kA), {"4", "new value", "1", https, "0"}, entry("AbC", kA, "0", "nas.example:8443", "1", "new value"), false},
      {entry("AbC", kA, "1900000000"), {"4", "", "1", https, "1"}, entry("AbC", kA, "1900000000", "nas.example", "1"), true},
      {entry("AbC", kA, "0", "nas", "1"), {"4", "", "1", "http://10.0.0.5:8080/share.cgi?ssid=AbC", "1900000000"},
       entry("AbC", kA, "1900000000", "10.0.0.5", "0"), false},
      // new_expire 1 (given, empty or missing), no value, new_ssl 0: nothing changes.
      {entry("AbC", kA, "0", "nas", "1"), {"4", "", "0", keep_host, "1"}, entry("AbC", kA, "0", "nas", "1"), false},
      {entry("AbC", kA, "0", "nas", "1"), {"4", "", "0", keep_host, ""}, entry("AbC", kA, "0", "nas", "1"), false},
      {entry("AbC", kA, "0", "nas", "1"), {"4", "v", "0", keep_host}, entry("AbC", kA, "0", "nas", "1", "v"), false},
      {entry("AbC", kA), {"4", std::string(200, 'v'), "0", keep_host}, entry("AbC", kA, "0", "nas", "0", std::string(128, 'v')), false},
      {entry("AbC", kA), {"4", "", "0", "http://nas/share.cgi?ssid=AbC", "1"}, "", false},
  };
  for (const auto& c : cases) {
    if (c.other_port) root.write("/etc/config/Korvix.conf", "[Stunnel]\nPort = 8443\n");
    root.write(kRegistry, c.before + other);
    run(c.args, c.args[3]);
    EXPECT_EQ(c.after + other, registry()) << c.args[3];
    root.remove("/etc/config/Korvix.conf");
  }
}

TEST_F(RegistryE2E, ExitStatusesAndWhichRunsRefreshTheRegistry) {
  const std::string kept = entry("K1", kA), stale = entry("S1", "/share/Public/gone.txt");
  const struct { std::vector<std::string> args; int status; bool refreshes; } cases[] = {
      {{}, 1, false}, {{"3", "-x"}, 1, false}, {{"3", "-m"}, 1, false}, {{"3", "-m", "6", "-u"}, 1, false},
      {{"3", "-m", "5", "-s", "0", "-n", "20", "-u", "alice", "-f", "x"}, 0, false},
      {{"1", "1", "0", "id", "a@b", "subj", "msg"}, 3, false},
      {{"1", "1", "0", "id", "nobody", "subj", "msg", "line1"}, 2, false},
      {{"2"}, 4, false},
      {{"7"}, 0, true}, {{"0"}, 0, true}, {{"-1"}, 0, true}, {{"abc"}, 0, true}, {{"4"}, 0, true},
      {{"1", "1", "0", "K1", "a@b", "subj", "msg", "line1"}, 0, true},
      {{"2", "http://h:1/share.cgi?ssid=none"}, 0, true},
  };
  for (const auto& c : cases) {
    const std::string shown = c.args.empty() ? "" : c.args[0] + " " + c.args.back();
    root.write(kRegistry, kept + stale);
    RunResult r = run_program(tool_binary(), c.args, root);
    EXPECT_EQ(c.status, r.status) << shown;
    EXPECT_EQ("", r.out + r.err) << shown;
    EXPECT_EQ(c.refreshes ? kept : kept + stale, root.read(kRegistry)) << shown;
  }
}

}  // namespace
