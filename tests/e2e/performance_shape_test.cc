// The structural properties that keep the tool fast on a big appliance,
// checked without timing anything: how often a run reads its configuration,
// and how much memory the clean-up of a large store holds.
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <cstdio>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "support/appliance.h"
#include "support/store_fixture.h"

namespace {

const char kRegistry[] = "/etc/config/shareFileEx.ini";
const char kSystemConfig[] = "/etc/config/Korvix.conf";

#if defined(__SANITIZE_ADDRESS__)
constexpr bool kSanitized = true;
#else
constexpr bool kSanitized = false;
#endif

// The run's profile report: reads per "file [section] key", looks on the
// disk and parses per file.
struct ProfileReport {
  std::map<std::string, long> reads;
  std::map<std::string, long> checks;
  std::map<std::string, long> parses;
};

ProfileReport profile_report(const std::string& err) {
  ProfileReport report;
  std::istringstream in(err);
  std::string line;
  while (std::getline(in, line)) {
    std::vector<std::string> f;
    std::istringstream fields(line);
    std::string field;
    while (std::getline(fields, field, '\t')) f.push_back(field);
    if (f.size() == 5 && f[0] == "profile-read") {
      report.reads[f[1] + " [" + f[2] + "] " + f[3]] += std::stol(f[4]);
    } else if (f.size() == 3 && f[0] == "profile-check") {
      report.checks[f[1]] += std::stol(f[2]);
    } else if (f.size() == 3 && f[0] == "profile-parse") {
      report.parses[f[1]] += std::stol(f[2]);
    } else {
      ADD_FAILURE() << "unexpected line on standard error: " << line;
    }
  }
  return report;
}

std::string registry_line(int i) {
  return "id" + std::to_string(100000 + i) + "\tnas\towner\t0\t/share/Public/f" +
         std::to_string(i % 7) + ".txt\t0\t0\t0\tv\t-\n";
}

class ProfileReads : public ::testing::Test {
 protected:
  void SetUp() override {
    for (int i = 0; i < 7; ++i) root.write("/share/Public/f" + std::to_string(i) + ".txt", "x");
    root.write(kSystemConfig, "[System]\nWeb Access Port = 8080\n\n[Stunnel]\nPort = 443\n");
    std::string registry;
    for (int i = 0; i < kLines; ++i) registry += registry_line(i);
    root.write(kRegistry, registry);
  }

  // Mode 2 over every third line's link; the URLs alternate between http and
  // https when `https` is set.
  ProfileReport delete_every_third(bool https) {
    std::string urls;
    std::string expected;
    for (int i = 0; i < kLines; ++i) {
      if (i % 3 != 0) {
        expected += registry_line(i);
        continue;
      }
      const std::string id = "id" + std::to_string(100000 + i);
      if (!urls.empty()) urls += ",";
      urls += https && i % 2 == 0 ? "https://nas.example/share.cgi?ssid=" + id
                                  : "http://192.168.1.2:8080/share.cgi?ssid=" + id;
    }
    RunResult r = run_program(tool_binary(), {"2", urls}, root, {{"SHARELINK_DEBUG_PROFILE_READS", "1"}});
    EXPECT_EQ(0, r.status);
    EXPECT_EQ("", r.out);
    EXPECT_EQ(expected, root.read(kRegistry));
    return profile_report(r.err);
  }

  static constexpr int kLines = 300;
  ApplianceRoot root;
};

TEST_F(ProfileReads, ModeTwoReadsTheSecurePortOncePerRun) {
  ProfileReport report = delete_every_third(true);
  // 100 URLs, half of them https, over 300 lines: one read in all.
  EXPECT_EQ(1, report.reads[std::string(kSystemConfig) + " [Stunnel] Port"]);
  for (const auto& p : report.parses) EXPECT_EQ(1, p.second) << p.first;
}

TEST_F(ProfileReads, ModeTwoWithoutHttpsReadsNoConfiguration) {
  ProfileReport report = delete_every_third(false);
  EXPECT_TRUE(report.reads.empty());
  EXPECT_TRUE(report.checks.empty());
  EXPECT_TRUE(report.parses.empty());
}

// A listing whose clean-up resolves every sync-service link asks for the
// share's settings hundreds of times, yet looks at each file once.
TEST(ConfigurationReads, ModeThreeLooksAtEachFileOncePerRun) {
  ApplianceRoot root;
  root.write("/etc/config/smb.conf", "[Public]\npath = /share/Public\n");
  root.write(kSystemConfig, "[System]\nWeb Access Port = 8080\n");
  for (int i = 0; i < 10; ++i) root.write("/share/Public/ann/f" + std::to_string(i) + ".dat", "x");
  make_store(root);
  std::vector<FixtureLink> links;
  for (int i = 0; i < 200; ++i) {
    char key[16];
    snprintf(key, sizeof key, "key%05d", i);
    FixtureLink link(key);
    link.creator = "Mirra:ann";
    link.sharefile = "/Public/ann/f" + std::to_string(i % 10) + ".dat";
    links.push_back(link);
  }
  insert_links(root, links);

  RunResult r = run_program(tool_binary(), {"3", "-m", "6", "-s", "0", "-n", "5", "-u", "ann"}, root,
                            {{"SHARELINK_DEBUG_PROFILE_READS", "1"}, {"HTTP_HOST", "nas:8080"}});
  EXPECT_EQ(0, r.status);
  EXPECT_EQ(0u, r.out.find("\t<count>200</count>\n")) << r.out.substr(0, 200);
  ProfileReport report = profile_report(r.err);
  EXPECT_GE(report.reads["/etc/config/smb.conf [Public] path"], 200);
  ASSERT_FALSE(report.checks.empty());
  for (const auto& c : report.checks) EXPECT_EQ(1, c.second) << c.first;
  for (const auto& p : report.parses) EXPECT_EQ(1, p.second) << p.first;
}

TEST_F(ProfileReads, TheReportIsOffByDefault) {
  RunResult r = run_program(tool_binary(), {"2", "https://nas.example/share.cgi?ssid=id100000"}, root);
  EXPECT_EQ(0, r.status);
  EXPECT_EQ("", r.err);
}

// The clean-up pass over a store of 10,000 sync-service links, all still
// resolving but one, due because no pass ran before. It must keep what it
// needs of each link, not whole rows: 10,000 full rows alone would take
// about 63 MiB.
TEST(CleanUpMemory, TenThousandLinksStayUnder64MiB) {
  ApplianceRoot root;
  root.write("/etc/config/smb.conf", "[Public]\npath = /share/Public\n");
  for (int i = 0; i < 50; ++i) root.write("/share/Public/ann/f" + std::to_string(i) + ".dat", "x");
  make_store(root);
  {
    std::vector<FixtureLink> links;
    for (int i = 0; i < 10000; ++i) {
      char key[16];
      snprintf(key, sizeof key, "key%05d", i);
      FixtureLink link(key);
      link.creator = "Mirra:ann";
      link.sharefile = "/Public/ann/f" + std::to_string(i % 50) + ".dat";
      link.link_name = "link " + std::to_string(i);
      links.push_back(link);
    }
    FixtureLink gone("gone00000");
    gone.creator = "Mirra:ann";
    gone.sharefile = "/Public/ann/missing.dat";
    links.push_back(gone);
    insert_links(root, links);
  }

  RunResult r = run_program(tool_binary(), {"3", "-m", "6", "-s", "0", "-n", "1", "-u", "ann"}, root);
  struct rusage usage;
  ASSERT_EQ(0, getrusage(RUSAGE_CHILDREN, &usage));

  EXPECT_EQ(0, r.status);
  // The pass ran: the link whose path is gone went, and the page counts the rest.
  EXPECT_TRUE(root.exists("/tmp/.kdx_sf_clean_flag"));
  EXPECT_EQ("0", store_value(root, "SELECT COUNT(*) FROM SHARELINK_EVENT WHERE pkey = 'gone00000';"));
  EXPECT_EQ(0u, r.out.find("\t<count>10000</count>\n")) << r.out.substr(0, 200);
  // ru_maxrss is in KiB: the largest of this process's waited-for children.
  // A sanitizer build's shadow memory and quarantine dwarf what is measured.
  if (!kSanitized) {
    EXPECT_LT(usage.ru_maxrss, 64L * 1024);
  }
}

}  // namespace
