// Processes at once: registry writers take turns under its lock, so every change lands exactly once
// (killed writers: crash_safety_test); listings, inserts and lookups share one store, every listing
// whole, every reported insert kept, the store intact.
#include <dirent.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <mutex>
#include <set>
#include <thread>

#include "support/appliance.h"
#include "support/store_fixture.h"

namespace {

const char kRegistry[] = "/etc/config/shareFileEx.ini";

std::string id_of(int i) { return "Id" + std::to_string(100000 + i); }
std::string entry(int i, const std::string& value = "v9") {
  return id_of(i) + "\tnas\tf3\t0\t/share/Public/a.txt\tf6\t0\tf8\t" + value + "\tf10\n";
}
std::string url_of(int i) { return "http://nas:8080/share.cgi?ssid=" + id_of(i); }
// A mode-4 URL whose host "HOSTNAME" leaves field 2 as it is.
std::string keep_host_url(int i) { return "http://HOSTNAME:80/share.cgi?ssid=" + id_of(i); }

// The files of /etc/config: the registry and its lock, and nothing left behind.
std::set<std::string> config_files(const ApplianceRoot& root) {
  std::set<std::string> names;
  DIR* d = opendir(root.path("/etc/config").c_str());
  while (dirent* e = readdir(d)) if (e->d_name[0] != '.') names.insert(e->d_name);
  closedir(d);
  return names;
}

TEST(SlowConcurrency, RegistryWritersTakeTurns) {
  constexpr int kLines = 3000;
  ApplianceRoot root;
  root.write("/share/Public/a.txt", "a");
  std::string all;
  for (int i = 0; i < kLines; ++i) all += entry(i);
  for (int round = 0; round < 5; ++round) {
    SCOPED_TRACE("round " + std::to_string(round));
    // 8 deletions of 25 links each, 4 refreshes and 16 edits of other lines at once: exactly the 200
    // links go, the 16 edits land, every other line stays once and in its order.
    root.write(kRegistry, all);
    std::set<int> deleted;
    std::vector<std::string> value(kLines, "v9");
    std::vector<std::vector<std::string>> runs;
    for (int p = 0; p < 8; ++p) {
      std::string list;
      for (int k = 0; k < 25; ++k) {
        int i = (p * 25 + k) * 13 % kLines + round;
        deleted.insert(i);
        list += (list.empty() ? "" : ",") + url_of(i);
      }
      runs.push_back({"2", list});
      if (p % 2 == 0) runs.push_back({"9"});
    }
    for (int p = 0; p < 16; ++p) {
      int i = p * 181 + round + 1;
      i += deleted.count(i);
      value[i] = "edit" + std::to_string(p);
      runs.push_back({"4", value[i], "0", keep_host_url(i)});
    }
    std::vector<std::thread> threads;
    for (const auto& args : runs) threads.emplace_back([&] { EXPECT_EQ(0, run_program(tool_binary(), args, root).status); });
    for (auto& t : threads) t.join();
    std::string expected;
    for (int i = 0; i < kLines; ++i) {
      if (!deleted.count(i)) expected += entry(i, value[i]);
    }
    EXPECT_TRUE(root.read(kRegistry) == expected);
    EXPECT_EQ((std::set<std::string>{"shareFileEx.ini", "shareFileEx.ini.lock"}), config_files(root));

  }
}

// Eight processes for 20 seconds: mode-3 listings, `sharelinkctl add` inserts and mode-1 lookups
// (which purge expired links and refresh the registry). The purges run without a busy time-out
// and may lose a race; that is allowed.
TEST(SlowConcurrency, EightProcessesShareOneStore) {
  ApplianceRoot root;
  for (const char* f : {"/share/Public/a.txt", "/share/Public/b.txt"}) root.write(f, "x");
  root.write("/etc/config/smb.conf", "[Public]\npath = /share/Public\n");
  root.write("/etc/config/Korvix.conf", "[System]\nWeb Access Port = 8080\n");
  root.write(kRegistry, "ConcA00\tnas\tf3\t0\t/share/Public/a.txt\tf6\t0\tf8\tv9\tf10\n"
                        "ConcA01\tnas\tf3\t1\t/share/Public/b.txt\tf6\t0\tf8\tv9\tf10\n");
  make_store(root, true, false);
  // Some links expire during the run, so purges find work; some name a vanished file, so the first
  // listing's clean-up removes them.
  const int now = static_cast<int>(time(nullptr));
  std::vector<FixtureLink> links;
  std::vector<FixtureFid> fids;
  std::string lasting;
  for (int i = 0; i < 60; ++i) {
    FixtureLink l("ConcA" + std::string(i < 10 ? "0" : "") + std::to_string(i));
    const bool gone = i % 6 == 5;
    l.sharefile = gone ? "/Public/gone.txt" : (i % 2 ? "/Public/b.txt" : "/Public/a.txt");
    l.creator = "Mirra:ann", l.link_name = "link" + std::to_string(i), l.expire = i >= 40 ? now + 2 + (i - 40) : 0;
    if (!gone && i < 40) lasting += (lasting.empty() ? "'" : ",'") + l.pkey + "'";
    links.push_back(l);
    fids.push_back({l.pkey, "1", l.sharefile});
  }
  insert_links(root, links);
  insert_fids(root, fids);

  std::mutex mu;
  int listings = 0, lookups = 0;
  std::set<std::string> inserted;
  std::vector<std::string> problems;
  // Counts a run; a failed one, or a sanitizer's report on standard error, is a problem.
  auto check = [&](bool ok, const std::string& what, const RunResult& r, int* count) {
    std::lock_guard<std::mutex> lock(mu);
    ok = ok && r.err.find("Sanitizer") == std::string::npos && r.err.find("runtime error") == std::string::npos;
    if (!ok && problems.size() < 20) problems.push_back(what + " " + std::to_string(r.status) + ": " + r.err.substr(0, 500));
    if (count) ++*count;
  };
  std::atomic<int> next_key{0};
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
  auto worker = [&](int role) {
    while (std::chrono::steady_clock::now() < deadline) {
      if (role < 3) {  // every listing is a whole document
        RunResult r = run_program(tool_binary(), {"3", "-m", "6", "-s", "0", "-n", "20", "-u", "ann"}, root);
        const bool whole = r.out.compare(0, 8, "\t<count>") == 0 && r.out.size() > 14 &&
                           r.out.substr(r.out.size() - 14) == "\t<ret>0</ret>\n";
        check(r.status == 0 && whole, "listing", RunResult{r.status, "", r.err + "\n" + r.out}, &listings);
      } else if (role < 6) {
        std::string key = "New" + std::to_string(next_key++);
        RunResult r = run_program(ctl_binary(), {"add", key, "/Public/a.txt", "--creator", "Mirra:ann", "--link-name", key,
                                                 "--fid", "1:/Public/a.txt", "--recipient", "bob:bob@example.org"}, root);
        check(r.status < 128, "add", r, nullptr);
        std::lock_guard<std::mutex> lock(mu);
        if (r.status == 0) inserted.insert(key);
      } else {
        RunResult r = run_program(tool_binary(), {"1", "2", "0", "ConcA00,ConcA03", "none@none", "subject", "message", "----"}, root);
        check(r.status == 0 && r.out.empty(), "lookup", r, &lookups);
      }
    }
  };
  std::vector<std::thread> threads;
  for (int i = 0; i < 8; ++i) threads.emplace_back(worker, i);
  for (auto& t : threads) t.join();

  for (const auto& p : problems) ADD_FAILURE() << p;
  EXPECT_TRUE(listings > 0 && lookups > 0 && !inserted.empty()) << listings << " " << lookups << " " << inserted.size();
  EXPECT_EQ("ok", store_value(root, "PRAGMA integrity_check"));
  std::set<std::string> stored;
  for (const auto& row : store_rows(root, "SELECT pkey FROM SHARELINK_EVENT WHERE pkey LIKE 'New%'")) stored.insert(row[0]);
  for (const auto& key : inserted) EXPECT_TRUE(stored.count(key)) << "lost insert " << key;
  // Each successful add also wrote its file and recipient rows.
  EXPECT_EQ(std::to_string(inserted.size()) + "," + std::to_string(inserted.size()),
            store_value(root, "SELECT (SELECT COUNT(*) FROM SHARELINK_FID WHERE pkey LIKE 'New%') || ',' || "
                              "(SELECT COUNT(*) FROM SHARELINK_USER WHERE pkey LIKE 'New%')"));
  // Links that never expire and whose file exists outlive every purge.
  EXPECT_EQ(std::to_string(std::count(lasting.begin(), lasting.end(), ',') + 1),
            store_value(root, "SELECT COUNT(*) FROM SHARELINK_EVENT WHERE pkey IN (" + lasting + ")"));
  // The registry was refreshed concurrently by every lookup and is whole.
  const std::string reg = root.read(kRegistry);
  EXPECT_EQ(2, std::count(reg.begin(), reg.end(), '\n'));
}

}  // namespace
