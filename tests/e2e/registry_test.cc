// The share registry end to end: the refresh before every mode, mode 2's
// deletions and mode 4's rewrites, run through the real tool.
#include <dirent.h>
#include <gtest/gtest.h>

#include <ctime>
#include <set>
#include <string>
#include <vector>

#include "support/appliance.h"

namespace {

const char kRegistry[] = "/etc/config/shareFileEx.ini";
const char kDel[] = "/etc/config/shareFileEx.ini.del";
const char kA[] = "/share/Public/a.txt";
const char kB[] = "/share/Public/b.txt";

// A well-formed registry line: ten fields, so fields 2, 4, 7 and 9 are never
// the one that carries the newline.
std::string entry(const std::string& id, const std::string& path, const std::string& expiry = "0",
                  const std::string& host = "nas", const std::string& https = "0",
                  const std::string& value = "v9") {
  return id + "\t" + host + "\tf3\t" + https + "\t" + path + "\tf6\t" + expiry + "\tf8\t" + value +
         "\tf10\n";
}

class RegistryE2E : public ::testing::Test {
 protected:
  void SetUp() override {
    root.write(kA, "a");
    root.write(kB, "b");
  }
  RunResult run(const std::vector<std::string>& args) {
    RunResult r = run_program(tool_binary(), args, root);
    EXPECT_EQ(0, r.status);
    EXPECT_EQ("", r.out);
    EXPECT_EQ("", r.err);
    return r;
  }
  std::string registry() const { return root.read(kRegistry); }
  // The files of /etc/config besides the registry (temporary files left
  // behind would show up here).
  std::set<std::string> leftovers() const {
    std::set<std::string> names;
    DIR* d = opendir(root.path("/etc/config").c_str());
    while (dirent* e = readdir(d)) {
      std::string n = e->d_name;
      if (n != "." && n != ".." && n != "shareFileEx.ini" && n != "shareFileEx.ini.lock" &&
          n != "Korvix.conf") {
        names.insert(n);
      }
    }
    closedir(d);
    return names;
  }

  ApplianceRoot root;
};

TEST_F(RegistryE2E, RefreshCreatesAMissingRegistry) {
  ASSERT_FALSE(root.exists(kRegistry));
  run({"9"});
  EXPECT_TRUE(root.exists(kRegistry));
  EXPECT_EQ("", registry());
  EXPECT_TRUE(leftovers().empty());
}

TEST_F(RegistryE2E, RefreshDropsMissingPathsAndPastExpiries) {
  const std::string future = std::to_string(time(nullptr) + 86400);
  const std::string past = std::to_string(time(nullptr) - 60);
  const std::string long_path = "/share/" + std::string(248, 'n');  // 255 bytes
  root.write(long_path, "n");
  const std::string keep_never = entry("K0", kA, "0");
  const std::string keep_negative = entry("K1", kB, "-5");
  const std::string keep_future = entry("K2", kA, future);
  const std::string keep_long = entry("K3", long_path, "0");
  root.write(kRegistry, keep_never + entry("D0", "/share/Public/gone.txt", "0") + entry("D1", kA, "1") +
                            keep_negative + entry("D2", kB, past) + keep_future +
                            // A missing path is dropped before field 7 is looked at.
                            "D3\tnas\tf3\t0\t/share/Public/gone.txt\n" + keep_long);
  run({"9"});
  EXPECT_EQ(keep_never + keep_negative + keep_future + keep_long, registry());
  EXPECT_TRUE(leftovers().empty());
}

TEST_F(RegistryE2E, RefreshAbortsAndLeavesTheRegistryUntouched) {
  const std::string good = entry("AbC", kA);
  const std::string bad_lines[] = {
      "AbC\tnas\t\t\tf3\n",                            // fewer than 5 non-empty fields
      "X\tnas\tf3\t0\t" + std::string(kA) + "\tf6\n",  // existing path, no field 7
      entry("X", "/share/" + std::string(249, 'p')),   // field 5 of 256 bytes
      "\n",                                            // a blank line is not an empty read
  };
  for (const std::string& bad : bad_lines) {
    const std::string before = good + bad + entry("Z", "/share/Public/gone.txt");
    root.write(kRegistry, before);
    // The mode's action does not run either.
    run({"2", "https://nas/share.cgi?ssid=AbC"});
    EXPECT_EQ(before, registry()) << bad;
    EXPECT_TRUE(leftovers().empty()) << bad;
  }
}

TEST_F(RegistryE2E, DeleteRemovesTheLinesOfOneOrSeveralUrls) {
  const std::string a = entry("AbC", kA), b = entry("DeF", kB), c = entry("GhI", kA),
                    d = entry("AbCD", kB);
  root.write(kRegistry, a + b + c + d);
  run({"2", "http://10.0.0.1:8080/share.cgi?ssid=AbC"});
  EXPECT_EQ(b + c + d, registry());
  EXPECT_TRUE(leftovers().empty());

  root.write(kRegistry, a + b + c + d);
  run({"2", "https://nas/share.cgi?ssid=GhI,http://h:1/share.cgi?fid=1&ssid=AbC,"});
  EXPECT_EQ(b + d, registry());

  // An id that is no line's leaves the content as it was.
  run({"2", "http://h:1/share.cgi?ssid=Nope"});
  EXPECT_EQ(b + d, registry());
}

TEST_F(RegistryE2E, DeleteWithAnEmptyListEmptiesTheRegistry) {
  root.write(kRegistry, entry("AbC", kA) + entry("DeF", kB));
  run({"2", ""});
  EXPECT_EQ("", registry());
  EXPECT_FALSE(root.exists(kDel));
}

// A ".del" file found under the lock was left by a killed run: its lines
// (copies of registry lines) must not come back in front of the new ones.
TEST_F(RegistryE2E, DeleteDropsTheDelFileOfAKilledRun) {
  root.write(kDel, entry("AbC", kA) + entry("DeF", kB) + "DeF\tna");
  root.write(kRegistry, entry("AbC", kA) + entry("DeF", kB));
  run({"2", "http://h:1/share.cgi?ssid=AbC"});
  EXPECT_EQ(entry("DeF", kB), registry());
  EXPECT_FALSE(root.exists(kDel));
}

TEST_F(RegistryE2E, RewriteHttpsUrlWithTheStandardPort) {
  const std::string other = entry("OtH", kB);
  root.write(kRegistry, entry("AbC", kA) + other);
  run({"4", "new value", "1", "https://nas.example:8443/share.cgi?ssid=AbC", "0"});
  EXPECT_EQ(entry("AbC", kA, "0", "nas.example:8443", "1", "new value") + other, registry());
  EXPECT_TRUE(leftovers().empty());
}

TEST_F(RegistryE2E, RewriteHttpsUrlWithAnotherSecurePort) {
  root.write("/etc/config/Korvix.conf", "[Stunnel]\nPort = 8443\n");
  root.write(kRegistry, entry("AbC", kA, "1900000000"));
  run({"4", "", "1", "https://nas.example:8443/share.cgi?ssid=AbC", "1"});
  EXPECT_EQ(entry("AbC", kA, "1900000000", "nas.example", "1"), registry());
}

TEST_F(RegistryE2E, RewriteHttpUrl) {
  root.write(kRegistry, entry("AbC", kA, "0", "nas", "1"));
  run({"4", "", "1", "http://10.0.0.5:8080/share.cgi?ssid=AbC", "1900000000"});
  EXPECT_EQ(entry("AbC", kA, "1900000000", "10.0.0.5", "0"), registry());
}

TEST_F(RegistryE2E, RewriteKeepsTheHostForHOSTNAME) {
  const std::string line = entry("AbC", kA, "0", "nas", "1");
  root.write(kRegistry, line);
  // new_expire 1, no value, new_ssl 0, host "HOSTNAME": nothing changes.
  run({"4", "", "0", "https://HOSTNAME/share.cgi?ssid=AbC", "1"});
  EXPECT_EQ(line, registry());
  run({"4", "", "0", "https://HOSTNAME/share.cgi?ssid=AbC", ""});
  EXPECT_EQ(line, registry());
  run({"4", "v", "0", "https://HOSTNAME/share.cgi?ssid=AbC"});
  EXPECT_EQ(entry("AbC", kA, "0", "nas", "1", "v"), registry());
  EXPECT_TRUE(leftovers().empty());
}

TEST_F(RegistryE2E, RewriteWithAnUnparsableHostDropsTheLine) {
  const std::string other = entry("OtH", kB);
  root.write(kRegistry, entry("AbC", kA) + other);
  run({"4", "", "0", "http://nas/share.cgi?ssid=AbC", "1"});
  EXPECT_EQ(other, registry());
}

}  // namespace
