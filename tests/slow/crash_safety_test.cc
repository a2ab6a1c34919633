// The tool SIGKILLed at random moments of a refresh, a mode-2 deletion and a mode-4 rewrite of
// a large registry: it is always byte for byte the old or the new one. Left temporary files
// are allowed (removed after each run).
#include <gtest/gtest.h>
#include <algorithm>
#include <chrono>
#include <filesystem>
#include <functional>
#include <random>
#include "support/appliance.h"

namespace {
const char kRegistry[] = "/etc/config/shareFileEx.ini";
constexpr int kLines = 20000, kRuns = 120;
std::string id_of(int i) {
  char buf[16]; snprintf(buf, sizeof buf, "ID%06d", i);
  return buf;
}
// Ten fields, as the file manager writes them.
std::string entry(int i, const std::string& expiry = "0", const std::string& path = "",
                  const std::string& host = "nas", const std::string& https = "0", const std::string& value = "v9") {
  return id_of(i) + "\t" + host + "\tf3\t" + https + "\t" +
         (path.empty() ? "/share/Public/f" + std::to_string(i % 10) : path) + "\tf6\t" + expiry + "\tf8\t" +
         value + "\tf10\n";
}
// The registry of lines `line(i)` (default: all current; empty: removed).
std::string registry(const std::function<std::string(int)>& line = [](int i) { return entry(i); }) {
  std::string s;
  for (int i = 0; i < kLines; ++i) s += line(i);
  return s;
}
struct CrashSafety : ::testing::Test {
  void SetUp() override {
    for (int i = 0; i < 10; ++i) root.write("/share/Public/f" + std::to_string(i), "x");
  }
  // The tool run from `before` (in place in one step), killed by timeout(1) after `seconds`:
  // true when killed (the tool must otherwise succeed).
  bool run(const std::string& before, std::vector<std::string> args, double seconds) {
    root.write("/etc/config/.install", before);
    EXPECT_EQ(0, rename(root.path("/etc/config/.install").c_str(), root.path(kRegistry).c_str()));
    args.insert(args.begin(), {"-s", "KILL", std::to_string(seconds), tool_binary()});
    RunResult r = run_program("/usr/bin/timeout", args, root);
    EXPECT_TRUE(r.status == 0 || r.status == 137) << r.status << r.err;
    return r.status == 137;
  }
  int clear_leftovers() {  // files of /etc/config besides the registry and its lock
    int n = 0;
    for (const auto& e : std::filesystem::directory_iterator(root.path("/etc/config"))) {
      std::string name = e.path().filename();
      if (name != "shareFileEx.ini" && name != "shareFileEx.ini.lock") root.remove("/etc/config/" + name), ++n;
    }
    return n;
  }
  // Three uninterrupted runs give `after` and a run's time; then kRuns runs killed after a random
  // delay: most anywhere, many near the end (the rename), a few late enough to finish.
  void kill_runs(const std::vector<std::string>& args, const std::string& before, const std::string& after,
                 unsigned seed) {
    ASSERT_NE(before, after); std::vector<double> took;
    for (int i = 0; i < 3; ++i) {
      auto t0 = std::chrono::steady_clock::now(); EXPECT_FALSE(run(before, args, 600));
      took.push_back(std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count());
      EXPECT_TRUE(root.read(kRegistry) == after) << "an uninterrupted run gave another result";
      EXPECT_EQ(0, clear_leftovers());
    }
    std::sort(took.begin(), took.end()); std::mt19937 rng(seed);
    std::uniform_real_distribution<double> anywhere(0.0, 1.2), near_end(0.6, 1.1);
    int saw_old = 0, saw_new = 0;
    for (int run_no = 0; run_no < kRuns; ++run_no) {
      double f = run_no % 20 == 19 ? 5.0 : (run_no % 2 == 0 ? anywhere(rng) : near_end(rng));
      run(before, args, std::max(0.001, f * took[1]));
      ASSERT_TRUE(root.exists(kRegistry)) << "registry missing after run " << run_no;
      const std::string now = root.read(kRegistry);
      ASSERT_TRUE(now == before || now == after) << "run " << run_no << " left " << now.size() << " bytes (old "
                                                 << before.size() << ", new " << after.size() << ")";
      (now == before ? saw_old : saw_new)++; clear_leftovers();
    }
    // Early kills find the old registry, late ones the new.
    EXPECT_GT(saw_old, 0); EXPECT_GT(saw_new, 0);
  }
  ApplianceRoot root;
};
// Every seventh line names a missing file, every eleventh has expired.
TEST_F(CrashSafety, KilledRefreshLeavesTheOldOrTheNewRegistry) {
  auto kept = [](int i) { return i % 7 == 3 || i % 11 == 5 ? "" : entry(i, i % 2 ? "0" : "4000000000"); };
  kill_runs({"9"}, registry([&](int i) {
              return i % 7 == 3 ? entry(i, "0", "/share/Public/gone" + std::to_string(i)) : i % 11 == 5 ? entry(i, "1000") : kept(i);
            }), registry(kept), 20250801u);
}
TEST_F(CrashSafety, KilledDeletionLeavesTheOldOrTheNewRegistry) {
  kill_runs({"2", "https://nas/share.cgi?ssid=" + id_of(0) + ",http://nas:8080/share.cgi?ssid=" + id_of(10000) +
                      ",https://nas/share.cgi?fid=3&ssid=" + id_of(kLines - 1)},
            registry(), registry([](int i) { return i == 0 || i == 10000 || i == kLines - 1 ? "" : entry(i); }),
            20250802u);
}
TEST_F(CrashSafety, KilledRewriteLeavesTheOldOrTheNewRegistry) {
  kill_runs({"4", "new value", "1", "https://nas2.example/share.cgi?ssid=" + id_of(12345), "1900000000"}, registry(),
            registry([](int i) { return i == 12345 ? entry(i, "1900000000", "", "nas2.example", "1", "new value") : entry(i); }),
            20250803u);
}
}  // namespace
