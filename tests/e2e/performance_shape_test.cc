// Speed shapes without timings: how often each configuration file is looked at, and the clean-up's
// memory.
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <cstdio>
#include <map>
#include <sstream>

#include "support/appliance.h"
#include "support/store_fixture.h"

namespace {

// The profile lines on standard error, summed per key ("read <file> [<section>] <key>", "check
// <file>", "parse <file>"); anything else there fails the test.
std::map<std::string, long> profile_report(const std::string& err) {
  std::map<std::string, long> report;
  std::istringstream in(err);
  for (std::string line, field; std::getline(in, line);) {
    std::vector<std::string> f;
    for (std::istringstream fields(line); std::getline(fields, field, '\t');) f.push_back(field);
    if (f.size() == 5 && f[0] == "profile-read") report["read " + f[1] + " [" + f[2] + "] " + f[3]] += std::stol(f[4]);
    else if (f.size() == 3 && (f[0] == "profile-check" || f[0] == "profile-parse")) report[f[0].substr(8) + " " + f[1]] += std::stol(f[2]);
    else ADD_FAILURE() << "unexpected line on standard error: " << line;
  }
  return report;
}

// 100 deletions among 300 lines read the secure port once when any URL is https, else never; without
// the profile switch nothing is printed.
TEST(ProfileReads, ModeTwoReadsTheSecurePortOncePerRun) {
  for (bool https : {true, false}) {
    ApplianceRoot root;
    for (int i = 0; i < 7; ++i) root.write("/share/Public/f" + std::to_string(i) + ".txt", "x");
    root.write("/etc/config/Korvix.conf", "[System]\nWeb Access Port = 8080\n\n[Stunnel]\nPort = 443\n");
    std::string registry, urls, expected;
    for (int i = 0; i < 300; ++i) {
      const std::string id = "id" + std::to_string(100000 + i);
      const std::string line = id + "\tnas\towner\t0\t/share/Public/f" + std::to_string(i % 7) + ".txt\t0\t0\t0\tv\t-\n";
      registry += line;
      if (i % 3 != 0) expected += line;
      else urls += (urls.empty() ? "" : ",") + std::string(https && i % 2 == 0 ? "https://nas.example" : "http://192.168.1.2:8080") + "/share.cgi?ssid=" + id;
    }
    root.write("/etc/config/shareFileEx.ini", registry);
    RunResult r = run_program(tool_binary(), {"2", urls}, root, {{"SHARELINK_DEBUG_PROFILE_READS", "1"}});
    EXPECT_EQ(0, r.status);
    EXPECT_EQ(expected, r.out + root.read("/etc/config/shareFileEx.ini"));  // nothing on standard output
    std::map<std::string, long> want, got = profile_report(r.err);
    if (https) want = {{"read /etc/config/Korvix.conf [Stunnel] Port", 1}, {"parse /etc/config/Korvix.conf", 1}};
    got.erase("check /etc/config/Korvix.conf");
    EXPECT_EQ(want, got) << r.err;
    root.write("/etc/config/shareFileEx.ini", registry);
    EXPECT_EQ("", run_program(tool_binary(), {"2", urls}, root).err);
  }
}

// A store of n sync-owned links over `files` files, and one more whose file is gone.
void sync_store(const ApplianceRoot& root, int n, int files) {
  root.write("/etc/config/smb.conf", "[Public]\npath = /share/Public\n");
  for (int i = 0; i < files; ++i) root.write("/share/Public/ann/f" + std::to_string(i) + ".dat", "x");
  make_store(root);
  std::vector<FixtureLink> links;
  for (int i = 0; i <= n; ++i) {
    char key[16];
    snprintf(key, sizeof key, i < n ? "key%05d" : "gone00000", i);
    links.emplace_back(key);
    links.back().creator = "Mirra:ann", links.back().link_name = "link " + std::to_string(i);
    links.back().sharefile = i < n ? "/Public/ann/f" + std::to_string(i % files) + ".dat" : "/Public/ann/missing.dat";
  }
  insert_links(root, links);
}

// A listing of 10,000 links whose clean-up removes one reads the share's path per link but checks
// and parses each configuration file once per run, and stays under 64 MiB.
TEST(ConfigurationReads, ModeThreeLooksAtEachFileOnceAndStaysUnder64MiB) {
  ApplianceRoot root;
  root.write("/etc/config/Korvix.conf", "[System]\nWeb Access Port = 8080\n");
  sync_store(root, 10000, 50);
  RunResult r = run_program(tool_binary(), {"3", "-m", "6", "-s", "0", "-n", "1", "-u", "ann"}, root,
                            {{"SHARELINK_DEBUG_PROFILE_READS", "1"}, {"HTTP_HOST", "nas:8080"}});
  struct rusage usage;
  ASSERT_EQ(0, getrusage(RUSAGE_CHILDREN, &usage));
  EXPECT_EQ(0, r.status);
  EXPECT_EQ(0u, r.out.find("\t<count>10000</count>\n")) << r.out.substr(0, 200);
  EXPECT_TRUE(root.exists("/tmp/.kdx_sf_clean_flag"));
  EXPECT_EQ("0", store_value(root, "SELECT COUNT(*) FROM SHARELINK_EVENT WHERE pkey = 'gone00000';"));
#if !defined(__SANITIZE_ADDRESS__)
  EXPECT_LT(usage.ru_maxrss, 64L * 1024);
#endif
  std::map<std::string, long> report = profile_report(r.err);
  EXPECT_GE(report["read /etc/config/smb.conf [Public] path"], 10000);
  int checked = 0;
  for (const auto& c : report) {
    if (c.first.compare(0, 5, "read ") == 0) continue;
    EXPECT_EQ(1, c.second) << c.first;
    checked += c.first.compare(0, 6, "check ") == 0;
  }
  EXPECT_GT(checked, 0);
}

}  // namespace
