// Eight processes at once against one store for 20 seconds: mode-3
// listings, `sharelinkctl add` inserts and mode-1 lookups (which also purge
// expired links, and refresh the registry). Every listing must print a whole
// document, every insert that reported success must be in the store
// afterwards, and the store must pass SQLite's integrity check. The purges
// run without a busy time-out and may lose a race; that is allowed.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <ctime>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "support/appliance.h"
#include "support/store_fixture.h"

namespace {

constexpr int kProcesses = 8;
constexpr auto kDuration = std::chrono::seconds(20);

struct Tally {
  std::mutex mu;
  int listings = 0;
  int inserts_ok = 0;
  int inserts_failed = 0;
  int lookups = 0;
  std::set<std::string> inserted;
  std::vector<std::string> problems;  // reported by the main thread
  void problem(const std::string& p) {
    std::lock_guard<std::mutex> lock(mu);
    if (problems.size() < 20) problems.push_back(p);
  }
};

bool sanitizer_report(const std::string& err) {
  return err.find("Sanitizer") != std::string::npos || err.find("runtime error") != std::string::npos;
}

bool ends_with(const std::string& s, const std::string& tail) {
  return s.size() >= tail.size() && s.compare(s.size() - tail.size(), tail.size(), tail) == 0;
}

TEST(SlowConcurrency, EightProcessesShareOneStore) {
  ApplianceRoot root;
  // Links name display paths; the share "Public" lies in /share/Public.
  root.write("/etc/config/smb.conf", "[Public]\npath = /share/Public\n");
  root.write("/share/Public/a.txt", "a");
  root.write("/share/Public/b.txt", "b");
  root.write("/etc/config/Korvix.conf", "[System]\nWeb Access Port = 8080\n");
  root.write("/etc/config/shareFileEx.ini",
             "ConcA00\tnas\tf3\t0\t/share/Public/a.txt\tf6\t0\tf8\tv9\tf10\n"
             "ConcA01\tnas\tf3\t1\t/share/Public/b.txt\tf6\t0\tf8\tv9\tf10\n");
  make_store(root, true, false);
  // Links of the listed user. Some expire while the run goes on, so the
  // purges of lookups and listings find work; some name a vanished file, so
  // the first listing's clean-up pass removes them.
  const int now = static_cast<int>(time(nullptr));
  std::vector<FixtureLink> links;
  std::vector<FixtureFid> fids;
  std::vector<std::string> lasting;
  for (int i = 0; i < 60; ++i) {
    FixtureLink l("ConcA" + std::string(i < 10 ? "0" : "") + std::to_string(i));
    const bool gone = i % 6 == 5;
    l.sharefile = gone ? "/Public/gone.txt" : (i % 2 ? "/Public/b.txt" : "/Public/a.txt");
    l.creator = "Mirra:ann";
    l.link_name = "link" + std::to_string(i);
    l.expire = i >= 40 ? now + 2 + (i - 40) : 0;
    if (!gone && i < 40) lasting.push_back(l.pkey);
    links.push_back(l);
    fids.push_back({l.pkey, "1", l.sharefile});
  }
  insert_links(root, links);
  insert_fids(root, fids);

  Tally tally;
  std::atomic<int> next_key{0};
  const auto deadline = std::chrono::steady_clock::now() + kDuration;
  auto worker = [&](int role) {
    while (std::chrono::steady_clock::now() < deadline) {
      if (role < 3) {
        RunResult r = run_program(tool_binary(), {"3", "-m", "6", "-s", "0", "-n", "20", "-u", "ann"}, root);
        if (r.status != 0 || sanitizer_report(r.err)) tally.problem("listing status " + std::to_string(r.status) + ": " + r.err.substr(0, 500));
        if (r.out.compare(0, 8, "\t<count>") != 0 || !ends_with(r.out, "\t<ret>0</ret>\n")) {
          tally.problem("incomplete listing: " + r.out.substr(0, 300) + " ... " +
                        r.out.substr(r.out.size() > 300 ? r.out.size() - 300 : 0));
        }
        std::lock_guard<std::mutex> lock(tally.mu);
        ++tally.listings;
      } else if (role < 6) {
        std::string key = "New" + std::to_string(next_key++);
        RunResult r = run_program(ctl_binary(),
                                  {"add", key, "/Public/a.txt", "--creator", "Mirra:ann", "--link-name", key, "--fid",
                                   "1:/Public/a.txt", "--recipient", "bob:bob@example.org"},
                                  root);
        if (sanitizer_report(r.err) || r.status >= 128) tally.problem("add crashed: " + r.err.substr(0, 500));
        std::lock_guard<std::mutex> lock(tally.mu);
        if (r.status == 0) {
          ++tally.inserts_ok;
          tally.inserted.insert(key);
        } else {
          ++tally.inserts_failed;
        }
      } else {
        RunResult r = run_program(
            tool_binary(), {"1", "2", "0", "ConcA00,ConcA03", "none@none", "subject", "message", "----"}, root);
        if (r.status != 0 || sanitizer_report(r.err) || !r.out.empty()) {
          tally.problem("lookup status " + std::to_string(r.status) + ": " + r.err.substr(0, 500));
        }
        std::lock_guard<std::mutex> lock(tally.mu);
        ++tally.lookups;
      }
    }
  };
  std::vector<std::thread> threads;
  for (int i = 0; i < kProcesses; ++i) threads.emplace_back(worker, i);
  for (auto& t : threads) t.join();

  for (const auto& p : tally.problems) ADD_FAILURE() << p;
  EXPECT_GT(tally.listings, 0);
  EXPECT_GT(tally.lookups, 0);
  EXPECT_GT(tally.inserts_ok, 0);
  printf("[ concur   ] %d listings, %d inserts (%d failed), %d lookups\n", tally.listings,
         tally.inserts_ok + tally.inserts_failed, tally.inserts_failed, tally.lookups);

  EXPECT_EQ("ok", store_value(root, "PRAGMA integrity_check"));
  std::set<std::string> stored;
  for (const auto& row : store_rows(root, "SELECT pkey FROM SHARELINK_EVENT WHERE pkey LIKE 'New%'")) {
    stored.insert(row[0]);
  }
  for (const auto& key : tally.inserted) EXPECT_TRUE(stored.count(key)) << "lost insert " << key;
  // Each successful add also wrote its file and recipient rows.
  EXPECT_EQ(std::to_string(tally.inserted.size()),
            store_value(root, "SELECT COUNT(*) FROM SHARELINK_FID WHERE pkey LIKE 'New%'"));
  EXPECT_EQ(std::to_string(tally.inserted.size()),
            store_value(root, "SELECT COUNT(*) FROM SHARELINK_USER WHERE pkey LIKE 'New%'"));
  // Links that never expire and whose file exists outlive every purge.
  std::string keys;
  for (const auto& k : lasting) keys += (keys.empty() ? "'" : ",'") + k + "'";
  EXPECT_EQ(std::to_string(lasting.size()),
            store_value(root, "SELECT COUNT(*) FROM SHARELINK_EVENT WHERE pkey IN (" + keys + ")"));
  // The registry was refreshed concurrently by every lookup and is whole.
  EXPECT_EQ(2u, [&] {
    std::string reg = root.read("/etc/config/shareFileEx.ini");
    return static_cast<size_t>(std::count(reg.begin(), reg.end(), '\n'));
  }());
}

}  // namespace
