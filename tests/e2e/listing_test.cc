// Mode 3 end to end: the XML page byte for byte, and the clean-up before it. Then speed shapes
// without timings: how often each configuration file is looked at, and the clean-up's memory.
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <cstdio>
#include <ctime>
#include <map>
#include <sstream>

#include "support/appliance.h"
#include "support/store_fixture.h"

namespace {

FixtureLink link(const std::string& key, const std::string& creator, const std::string& sharefile, const std::string& name) {
  FixtureLink l(key);
  l.creator = creator, l.sharefile = sharefile, l.link_name = name;
  l.createtic = 1700000000, l.useraddr = "bob@x.example", l.download_count = 3;
  return l;
}
std::string url(const std::string& key) { return "http://nas.example:8080/share.cgi?ssid=" + key; }
std::string row(const std::string& ssid, const std::string& path, const std::string& file, const std::string& url,
                const std::string& name, const std::string& creator, const std::string& addressee = "bob@x.example",
                const std::string& count = "3") {
  const char* tags[] = {"ssid", "path", "filename", "download_link", "link_name", "start_time", "expire_time",
                        "addressee", "creator", "download_count"};
  const std::string values[] = {ssid, path, file, url, name, "1700000000", "0", addressee, creator, count};
  std::string r = "\t\t<log>\n";
  for (int i = 0; i < 10; ++i) r += "\t\t\t<" + std::string(tags[i]) + "><![CDATA[" + values[i] + "]]></" + tags[i] + ">\n";
  return r + "\t\t</log>\n";
}
std::string page(int count, const std::string& rows) {
  return "\t<count>" + std::to_string(count) + "</count>\n\t<data>\n" + rows + "\t</data>\n\t<ret>0</ret>\n";
}

class ListingTest : public ::testing::Test {
 protected:
  void SetUp() override {
    root.write("/etc/config/Korvix.conf", "[System]\nWeb Access Port = 8080\n[Stunnel]\nPort = 443\n");
    root.write("/etc/config/smb.conf", "[Public]\npath = /share/Public\n");
    root.write("/share/Public/ann/a.txt", "aaaa");
    root.write("/share/Public/ann/b.txt", "bb");
    make_store(root, /*with_acx=*/true);
    root.write("/tmp/.kdx_sf_clean_flag", "");
  }
  std::string list(std::vector<std::string> options, int status = 0) {
    options.insert(options.begin(), "3");
    RunResult r = run_program(tool_binary(), options, root, {{"HTTP_HOST", "nas.example:8080"}});
    EXPECT_EQ(status, r.status);
    EXPECT_EQ("", r.err);
    return r.out;
  }
  std::string keys(const std::string& table) {
    return store_value(root, "SELECT ifnull(group_concat(pkey), '') FROM (SELECT pkey FROM " + table + " ORDER BY pkey)");
  }

  ApplianceRoot root;
};

// Only the user's links (creator "Mirra:ann"), named by their link name or else their file name.
TEST_F(ListingTest, PrintsAPageOfTwoRows) {
  insert_links(root, {link("K1", "Mirra:ann", "/Public/ann/a.txt", "report"), link("K2", "Mirra:ann", "/Public/ann/b.txt", "----"),
                      link("K3", "Mirra:bob", "/Public/ann/a.txt", "other"), link("K4", "ann", "/Public/ann/a.txt", "plain owner")});
  EXPECT_EQ(page(2, row("K1", "/Public/ann", "a.txt", url("K1"), "report", "ann") +
                        row("K2", "/Public/ann", "b.txt", url("K2"), "b.txt", "ann")),
            list({"-m", "6", "-s", "0", "-n", "20", "-u", "ann"}));
}

TEST_F(ListingTest, PageDecisions) {
  std::vector<FixtureLink> links;
  for (int i = 0; i < 7; ++i) links.push_back(link("K" + std::to_string(i), "Mirra:ann", "/Public/ann/" + std::to_string(i) + ".txt", "nK" + std::to_string(i)));
  insert_links(root, links);
  EXPECT_EQ("\t<count>0</count>\n\t<ret>7</ret>\n", list({"-u", "ann"}));
  EXPECT_EQ(page(7, ""), list({"-u", "ann", "-s", "7", "-n", "5"}));
  EXPECT_EQ("\t<count>0</count>\n\t<ret>-5</ret>\n" + page(7, ""), list({"-u", "ann", "-s", "8", "-n", "5"}));
  EXPECT_EQ(page(7, row("K5", "/Public/ann", "5.txt", url("K5"), "nK5", "ann") + row("K6", "/Public/ann", "6.txt", url("K6"), "nK6", "ann")),
            list({"-u", "ann", "-s", "5", "-n", "10", "-m", "0"}));
  EXPECT_EQ("\t<count>7</count>\n\t<ret>-11</ret>\n", list({"-u", "ann", "-n", "5", "-m", "38"}));
  EXPECT_EQ("\t<count>7</count>\n\t<ret>-11</ret>\n", list({"-u", "ann", "-n", "5", "-s", "-1"}));
}

// The name filter binds looser than the creator alternative; display paths of team folders, sync
// folders and bare names; a row with an empty key prints placeholders.
TEST_F(ListingTest, FilterDisplayPathsAndPlaceholders) {
  insert_links(root, {link("K1", "Mirra:ann", "/Public/ann/a.txt", "report 1"), link("K2", "Mirra:ann", "/Public/ann/b.txt", "photos"),
                      link("K3", "Mirra:Mirra:ann", "/Public/ann/b.txt", "holiday")});
  EXPECT_EQ(page(2, row("K1", "/Public/ann", "a.txt", url("K1"), "report 1", "ann") +
                        row("K3", "/Public/ann", "b.txt", url("K3"), "holiday", "Mirra:ann")),
            list({"-u", "ann", "-n", "10", "-f", "report", "-m", "0"}));
  store_exec(root, "DELETE FROM SHARELINK_EVENT;");
  root.script("/sbin/mirrasrv_tool",
              "if [ \"$1\" = -8 ] && [ \"$2\" = tfx://Team1/doc/a.txt ]; then printf /share/Team/doc/a.txt; fi\n");
  insert_links(root, {link("K1", "Mirra:ann", "tfx://Team1/doc/a.txt", "a.txt"), link("K2", "Mirra:ann", "tfx://Team2/x.txt", "gone"),
                      link("K3", "Mirra:ann", "/share/homes/ann/.Mirra/work/b.txt", "b.txt"),
                      link("K4", "Mirra:ann", "noslash.txt", "bare"), link("K5", "Mirra:ann", "/share/Public/", "")});
  EXPECT_EQ(page(5, row("K1", "/share/Team/doc", "a.txt", url("K1"), "a.txt", "ann") + row("K2", "Mirra", "gone", url("K2"), "gone", "ann") +
                        row("K3", "Mirra/work", "b.txt", url("K3"), "b.txt", "ann") + row("K4", ".", "noslash.txt", url("K4"), "bare", "ann") +
                        row("K5", "/share", "Public", url("K5"), ".", "ann")),
            list({"-u", "ann", "-n", "10", "-m", "0"}));
  store_exec(root, "DELETE FROM SHARELINK_EVENT;");
  insert_links(root, {link("", "Mirra:ann", "/Public/ann/a.txt", "x")});
  EXPECT_EQ(page(1, row("---", ".", "---", "---", "---", "Unknown", "---", "0")), list({"-u", "ann", "-n", "5"}));
}

// Expired links go whoever made them, links that never expire stay. The clean-up removes the sync
// owner's links whose path is gone, with their rows in every table, at most once a minute (a flag
// time in the future does not suppress it).
TEST_F(ListingTest, ExpiredLinksGoAndCleanUpRemovesSyncOwnersLinksWhosePathIsGoneOncePerMinute) {
  FixtureLink old_link = link("OLD", "Mirra:ann", "/Public/ann/a.txt", "old"), later = link("LATER", "bob", "/Public/ann/a.txt", "x");
  old_link.expire = static_cast<int>(time(nullptr) - 100), later.expire = static_cast<int>(time(nullptr) + 3600);
  insert_links(root, {link("GONE", "Mirra:ann", "/Public/ann/missing.txt", "g"), link("KEEP", "ann", "/Public/ann/missing.txt", "k"),
                      link("LIVE", "Mirra:ann", "/Public/ann/a.txt", "forever"), old_link, later});
  insert_fids(root, {{"GONE", "f1", "/Public/ann/missing.txt"}, {"LIVE", "f2", "/Public/ann/a.txt"}});
  insert_users(root, {{"GONE", "carl", "d", "c@x.example"}, {"KEEP", "carl", "d", "c@x.example"}});
  store_exec(root, "INSERT INTO SHARELINK_ACX VALUES ('GONE', 'a1'), ('KEEP', 'a2');");
  root.remove("/tmp/.kdx_sf_clean_flag");
  EXPECT_EQ(page(1, row("LIVE", "/Public/ann", "a.txt", url("LIVE"), "forever", "ann")), list({"-u", "ann", "-n", "5"}));
  EXPECT_EQ("KEEP,LATER,LIVE", keys("SHARELINK_EVENT"));
  store_exec(root, "DELETE FROM SHARELINK_EVENT WHERE pkey = 'LATER';");
  EXPECT_EQ("LIVE", keys("SHARELINK_FID"));
  EXPECT_EQ("KEEP", keys("SHARELINK_USER"));
  EXPECT_EQ("KEEP", keys("SHARELINK_ACX"));
  const time_t now = time(nullptr);
  const struct { const char* orphan; time_t flag; const char* after; } passes[] = {
      {"O1", now - 30, "KEEP,LIVE,O1"}, {nullptr, now - 61, "KEEP,LIVE"}, {"O2", 0, "KEEP,LIVE,O2"}, {nullptr, now + 600, "KEEP,LIVE"}};
  for (const auto& p : passes) {
    if (p.orphan) insert_links(root, {link(p.orphan, "Mirra:ann", "/Public/ann/missing.txt", p.orphan)});
    if (p.flag) root.set_mtime("/tmp/.kdx_sf_clean_flag", p.flag);
    list({"-u", "ann"});
    EXPECT_EQ(p.after, keys("SHARELINK_EVENT")) << p.flag - now;
  }
}

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

// 100 deletions among 300 lines read the secure port once when any URL is https, else never
// (without the profile switch nothing is printed: e2e/registry_test's statuses).
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
    links.push_back(link(key, "Mirra:ann", i < n ? "/Public/ann/f" + std::to_string(i % files) + ".dat" : "/Public/ann/missing.dat",
                         "link " + std::to_string(i)));
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
