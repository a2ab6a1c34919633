// Crash safety of the registry: the tool is killed with SIGKILL at random
// moments of a refresh, a mode-2 deletion and a mode-4 rewrite of a large
// registry. After every kill the registry must be complete: byte for byte the
// old content or the new one, never missing and never cut short. Temporary
// files a kill leaves in /etc/config are allowed; they are counted and
// removed before the next run.
#include <dirent.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "support/appliance.h"

extern char** environ;

namespace {

const char kRegistry[] = "/etc/config/shareFileEx.ini";
constexpr int kLines = 20000;
constexpr int kRunsPerScenario = 120;

std::string id_of(int i) {
  char buf[16];
  snprintf(buf, sizeof buf, "ID%06d", i);
  return buf;
}

// Ten fields, as the file manager writes them.
std::string entry(int i, const std::string& path, const std::string& expiry = "0",
                  const std::string& host = "nas", const std::string& https = "0",
                  const std::string& value = "v9") {
  return id_of(i) + "\t" + host + "\tf3\t" + https + "\t" + path + "\tf6\t" + expiry + "\tf8\t" +
         value + "\tf10\n";
}

std::string live_path(int i) { return "/share/Public/f" + std::to_string(i % 10); }

struct Outcome {
  int killed = 0;       // ended by the signal
  int finished = 0;     // ended on its own before the kill
  int saw_old = 0;
  int saw_new = 0;
  int leftovers = 0;    // companion files left in /etc/config
};

class CrashSafety : public ::testing::Test {
 protected:
  void SetUp() override {
    for (int i = 0; i < 10; ++i) root.write(live_path(i), "x");
  }

  // Starts the tool without waiting for it.
  pid_t start(const std::vector<std::string>& args) {
    std::vector<std::string> env_s;
    for (char** e = environ; *e; ++e) {
      if (strncmp(*e, "SHARELINK_ROOT=", 15) != 0) env_s.push_back(*e);
    }
    env_s.push_back("SHARELINK_ROOT=" + root.dir());
    std::vector<char*> envp;
    for (auto& s : env_s) envp.push_back(&s[0]);
    envp.push_back(nullptr);
    std::vector<std::string> argv_s{tool_binary()};
    argv_s.insert(argv_s.end(), args.begin(), args.end());
    std::vector<char*> argv;
    for (auto& s : argv_s) argv.push_back(&s[0]);
    argv.push_back(nullptr);

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
    pid_t pid = -1;
    int rc = posix_spawn(&pid, argv[0], &actions, nullptr, argv.data(), envp.data());
    posix_spawn_file_actions_destroy(&actions);
    EXPECT_EQ(0, rc);
    return rc == 0 ? pid : -1;
  }

  // Waits for pid; true when it ended by SIGKILL, false when it exited 0.
  bool reap(pid_t pid) {
    int status = 0;
    while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    if (WIFSIGNALED(status)) {
      EXPECT_EQ(SIGKILL, WTERMSIG(status));
      return true;
    }
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
    return false;
  }

  // Files of /etc/config other than the registry; removes them.
  int clear_leftovers() {
    int n = 0;
    DIR* d = opendir(root.path("/etc/config").c_str());
    std::vector<std::string> names;
    while (dirent* e = readdir(d)) {
      std::string name = e->d_name;
      if (name != "." && name != ".." && name != "shareFileEx.ini" && name != "shareFileEx.ini.lock") {
        names.push_back(name);
      }
    }
    closedir(d);
    for (const auto& name : names) {
      root.remove("/etc/config/" + name);
      ++n;
    }
    return n;
  }

  // Puts `content` in place as the registry in one step.
  void install(const std::string& content) {
    root.write("/etc/config/.install", content);
    ASSERT_EQ(0, rename(root.path("/etc/config/.install").c_str(), root.path(kRegistry).c_str()));
  }

  // Uninterrupted runs from `before`; each result must be `after`. Returns
  // their median length, to spread the kills over a run.
  std::chrono::microseconds reference_run(const std::vector<std::string>& args,
                                          const std::string& before, const std::string& after) {
    std::vector<std::chrono::microseconds> took;
    for (int i = 0; i < 3; ++i) {
      install(before);
      auto t0 = std::chrono::steady_clock::now();
      pid_t pid = start(args);
      EXPECT_FALSE(reap(pid));
      took.push_back(std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::steady_clock::now() - t0));
      EXPECT_TRUE(root.read(kRegistry) == after) << "an uninterrupted run gave another result";
      EXPECT_EQ(0, clear_leftovers());
    }
    std::sort(took.begin(), took.end());
    return took[1];
  }

  // Runs the tool kRunsPerScenario times from `before`, each killed after a
  // random delay, and checks the registry after each.
  void kill_runs(const std::vector<std::string>& args, const std::string& before,
                 const std::string& after, unsigned seed) {
    EXPECT_NE(before, after);
    const auto span = reference_run(args, before, after);
    std::mt19937 rng(seed);
    // Most kills land anywhere in a run, many near its end, where the
    // rename happens; a few come late enough to let the run finish.
    std::uniform_real_distribution<double> anywhere(0.0, 1.2), near_end(0.6, 1.1);
    Outcome o;
    for (int run = 0; run < kRunsPerScenario; ++run) {
      install(before);
      double f = run % 20 == 19 ? 5.0 : (run % 2 == 0 ? anywhere(rng) : near_end(rng));
      auto delay = std::chrono::microseconds(static_cast<long long>(f * static_cast<double>(span.count())));
      pid_t pid = start(args);
      if (pid < 0) break;
      struct timespec ts = {static_cast<time_t>(delay.count() / 1000000),
                            static_cast<long>(delay.count() % 1000000) * 1000};
      while (nanosleep(&ts, &ts) != 0 && errno == EINTR) {
      }
      kill(pid, SIGKILL);
      if (reap(pid)) ++o.killed;
      else ++o.finished;

      ASSERT_TRUE(root.exists(kRegistry)) << "registry missing after run " << run;
      const std::string now = root.read(kRegistry);
      if (now == before) {
        ++o.saw_old;
      } else if (now == after) {
        ++o.saw_new;
      } else {
        FAIL() << "run " << run << " left a registry of " << now.size() << " bytes (old "
               << before.size() << ", new " << after.size() << ")";
      }
      o.leftovers += clear_leftovers();
    }
    EXPECT_EQ(kRunsPerScenario, o.killed + o.finished);
    // Kills right after the start find the old registry, late ones the new.
    EXPECT_GT(o.saw_old, 0);
    EXPECT_GT(o.saw_new, 0);
    printf("[ crash    ] %d runs: %d killed, %d finished; old %d, new %d; %d leftover files\n",
           kRunsPerScenario, o.killed, o.finished, o.saw_old, o.saw_new, o.leftovers);
    RecordProperty("killed", o.killed);
    RecordProperty("leftover_files", o.leftovers);
  }

  // A registry whose lines are all current.
  static std::string current_registry() {
    std::string s;
    for (int i = 0; i < kLines; ++i) s += entry(i, live_path(i));
    return s;
  }

  ApplianceRoot root;
};

TEST_F(CrashSafety, KilledRefreshLeavesTheOldOrTheNewRegistry) {
  // Every seventh line names a missing file, every eleventh has expired.
  std::string before, after;
  for (int i = 0; i < kLines; ++i) {
    if (i % 7 == 3) {
      before += entry(i, "/share/Public/gone" + std::to_string(i));
    } else if (i % 11 == 5) {
      before += entry(i, live_path(i), "1000");
    } else {
      std::string line = entry(i, live_path(i), i % 2 ? "0" : "4000000000");
      before += line;
      after += line;
    }
  }
  kill_runs({"9"}, before, after, 20250801u);
}

TEST_F(CrashSafety, KilledDeletionLeavesTheOldOrTheNewRegistry) {
  const std::string before = current_registry();
  std::string after;
  for (int i = 0; i < kLines; ++i) {
    if (i != 0 && i != 10000 && i != kLines - 1) after += entry(i, live_path(i));
  }
  kill_runs({"2", "https://nas/share.cgi?ssid=" + id_of(0) + ",http://nas:8080/share.cgi?ssid=" +
                      id_of(10000) + ",https://nas/share.cgi?fid=3&ssid=" + id_of(kLines - 1)},
            before, after, 20250802u);
}

TEST_F(CrashSafety, KilledRewriteLeavesTheOldOrTheNewRegistry) {
  const std::string before = current_registry();
  std::string after;
  for (int i = 0; i < kLines; ++i) {
    after += i == 12345 ? entry(i, live_path(i), "1900000000", "nas2.example", "1", "new value")
                        : entry(i, live_path(i));
  }
  kill_runs({"4", "new value", "1", "https://nas2.example/share.cgi?ssid=" + id_of(12345), "1900000000"},
            before, after, 20250803u);
}

}  // namespace
