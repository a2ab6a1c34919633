// The tool SIGKILLed at random moments of a refresh, a mode-2 deletion and a mode-4 rewrite of
// a large registry: it is always byte for byte the old or the new one. Left temporary files
// are allowed (counted and removed).
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>
#include <algorithm>
#include <chrono>
#include <functional>
#include <filesystem>
#include <random>
#include <thread>
#include "support/appliance.h"

namespace {
using std::chrono::microseconds;
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

class CrashSafety : public ::testing::Test {
 protected:
  void SetUp() override {
    for (int i = 0; i < 10; ++i) root.write("/share/Public/f" + std::to_string(i), "x");
  }
  pid_t start(std::vector<std::string> args) {  // output to /dev/null, not waited for
    args.insert(args.begin(), tool_binary());
    std::vector<char*> argv;
    for (auto& s : args) argv.push_back(&s[0]);
    argv.push_back(nullptr); pid_t pid = fork();
    if (pid == 0) {
      int null = open("/dev/null", O_RDWR);
      for (int fd = 0; fd < 3; ++fd) dup2(null, fd);
      execv(argv[0], argv.data()); _exit(127);
    }
    EXPECT_GT(pid, 0);
    return pid;
  }
  bool reap(pid_t pid) {  // true: ended by SIGKILL; else it must have exited 0
    int status = 0;
    while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    EXPECT_TRUE(WIFSIGNALED(status) ? WTERMSIG(status) == SIGKILL : WIFEXITED(status) && WEXITSTATUS(status) == 0)
        << status;
    return WIFSIGNALED(status);
  }
  int clear_leftovers() {  // files of /etc/config besides the registry and its lock
    int n = 0;
    for (const auto& e : std::filesystem::directory_iterator(root.path("/etc/config"))) {
      std::string name = e.path().filename();
      if (name != "shareFileEx.ini" && name != "shareFileEx.ini.lock") root.remove("/etc/config/" + name), ++n;
    }
    return n;
  }
  void install(const std::string& content) {  // in one step
    root.write("/etc/config/.install", content);
    ASSERT_EQ(0, rename(root.path("/etc/config/.install").c_str(), root.path(kRegistry).c_str()));
  }

  // Three uninterrupted runs give `after` and a run's time; then kRuns runs killed after a random
  // delay: most anywhere, many near the end (the rename), a few late enough to finish.
  void kill_runs(const std::vector<std::string>& args, const std::string& before, const std::string& after,
                 unsigned seed) {
    ASSERT_NE(before, after); std::vector<microseconds> took;
    for (int i = 0; i < 3; ++i) {
      install(before); auto t0 = std::chrono::steady_clock::now(); EXPECT_FALSE(reap(start(args)));
      took.push_back(std::chrono::duration_cast<microseconds>(std::chrono::steady_clock::now() - t0));
      EXPECT_TRUE(root.read(kRegistry) == after) << "an uninterrupted run gave another result";
      EXPECT_EQ(0, clear_leftovers());
    }
    std::sort(took.begin(), took.end()); std::mt19937 rng(seed);
    std::uniform_real_distribution<double> anywhere(0.0, 1.2), near_end(0.6, 1.1);
    int killed = 0, saw_old = 0, saw_new = 0, leftovers = 0;
    for (int run = 0; run < kRuns; ++run) {
      install(before);
      double f = run % 20 == 19 ? 5.0 : (run % 2 == 0 ? anywhere(rng) : near_end(rng));
      pid_t pid = start(args);
      if (pid < 0) break;
      std::this_thread::sleep_for(microseconds(static_cast<long long>(f * took[1].count())));
      kill(pid, SIGKILL); killed += reap(pid);
      ASSERT_TRUE(root.exists(kRegistry)) << "registry missing after run " << run;
      const std::string now = root.read(kRegistry);
      ASSERT_TRUE(now == before || now == after)
          << "run " << run << " left " << now.size() << " bytes (old " << before.size() << ", new "
          << after.size() << ")";
      (now == before ? saw_old : saw_new)++; leftovers += clear_leftovers();
    }
    // Kills right after the start find the old registry, late ones the new.
    EXPECT_GT(saw_old, 0); EXPECT_GT(saw_new, 0);
    printf("[ crash    ] %d runs: %d killed; old %d, new %d; %d leftover files\n", kRuns, killed, saw_old,
           saw_new, leftovers);
    RecordProperty("killed", killed); RecordProperty("leftover_files", leftovers);
  }
  // The registry of lines `line(i)` (default: all current; empty: removed).
  static std::string registry(std::function<std::string(int)> line = entry_of) {
    std::string s;
    for (int i = 0; i < kLines; ++i) s += line(i);
    return s;
  }
  static std::string entry_of(int i) { return entry(i); }

  ApplianceRoot root; ScopedEnv env{{{"SHARELINK_ROOT", root.dir()}}};
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
