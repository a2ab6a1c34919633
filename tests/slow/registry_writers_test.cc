// Registry writers at the same time: deletions, refreshes and line edits run
// in parallel against one 3,000-line registry, and killed writers. They take
// turns under the registry's lock, so every change lands exactly once and a
// killed writer leaves nothing behind once the next one has run.
#include <dirent.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "support/appliance.h"

namespace {

const char kRegistry[] = "/etc/config/shareFileEx.ini";
constexpr int kRounds = 5;
constexpr int kLines = 3000;

std::string id_of(int i) { return "Id" + std::to_string(100000 + i); }
std::string entry(int i, const std::string& value = "v9") {
  return id_of(i) + "\tnas\tf3\t0\t/share/Public/a.txt\tf6\t0\tf8\t" + value + "\tf10\n";
}
std::string url_of(int i) { return "http://nas:8080/share.cgi?ssid=" + id_of(i); }
// A mode-4 URL whose host "HOSTNAME" leaves field 2 as it is.
const std::string kKeepHost = "http://HOSTNAME:80/share.cgi?ssid=";

class SlowConcurrencyRegistryWriters : public ::testing::Test {
 protected:
  void SetUp() override { root.write("/share/Public/a.txt", "a"); }

  // Starts the tool with `args`; the child gets the root's SHARELINK_ROOT.
  pid_t start(const std::vector<std::string>& args) {
    const std::string tool = tool_binary();
    pid_t pid = fork();
    if (pid == 0) {
      std::vector<char*> argv;
      argv.push_back(const_cast<char*>(tool.c_str()));
      for (const auto& a : args) argv.push_back(const_cast<char*>(a.c_str()));
      argv.push_back(nullptr);
      setenv("SHARELINK_ROOT", root.dir().c_str(), 1);
      execv(tool.c_str(), argv.data());
      _exit(127);
    }
    return pid;
  }
  static int wait_for(pid_t pid) {
    int status = 0;
    waitpid(pid, &status, 0);
    return status;
  }
  std::vector<std::string> lines() const {
    std::vector<std::string> out;
    std::string reg = root.read(kRegistry);
    size_t pos = 0;
    while (pos < reg.size()) {
      size_t nl = reg.find('\n', pos);
      if (nl == std::string::npos) nl = reg.size() - 1;
      out.push_back(reg.substr(pos, nl + 1 - pos));
      pos = nl + 1;
    }
    return out;
  }
  // Files of /etc/config besides the registry and its lock.
  std::vector<std::string> companions() const {
    std::vector<std::string> names;
    DIR* d = opendir(root.path("/etc/config").c_str());
    while (dirent* e = readdir(d)) {
      std::string n = e->d_name;
      if (n != "." && n != ".." && n != "shareFileEx.ini" && n != "shareFileEx.ini.lock") {
        names.push_back(n);
      }
    }
    closedir(d);
    return names;
  }

  ApplianceRoot root;
};

// 8 deletions of 25 links each and 4 refreshes at once: exactly the 200
// links go, every other line stays once and in its order.
TEST_F(SlowConcurrencyRegistryWriters, EightDeletionsAndFourRefreshesAtOnce) {
  std::string all;
  for (int i = 0; i < kLines; ++i) all += entry(i);
  for (int round = 0; round < kRounds; ++round) {
    SCOPED_TRACE("round " + std::to_string(round));
    root.write(kRegistry, all);
    std::set<int> deleted;
    std::vector<pid_t> pids;
    for (int p = 0; p < 8; ++p) {
      std::string list;
      for (int k = 0; k < 25; ++k) {
        int i = (p * 25 + k) * 13 % kLines + round;
        deleted.insert(i);
        list += (list.empty() ? "" : ",") + url_of(i);
      }
      pids.push_back(start({"2", list}));
      if (p % 2 == 0) pids.push_back(start({"9"}));
    }
    for (pid_t pid : pids) EXPECT_EQ(0, wait_for(pid));
    ASSERT_EQ(200u, deleted.size());
    std::string expected;
    for (int i = 0; i < kLines; ++i) {
      if (!deleted.count(i)) expected += entry(i);
    }
    EXPECT_TRUE(root.read(kRegistry) == expected) << lines().size() << " lines";
    EXPECT_TRUE(companions().empty());
  }
}

// 16 edits of 16 different lines at once: all of them land.
TEST_F(SlowConcurrencyRegistryWriters, SixteenParallelEditsAllLand) {
  std::string all;
  for (int i = 0; i < kLines; ++i) all += entry(i);
  for (int round = 0; round < kRounds; ++round) {
    SCOPED_TRACE("round " + std::to_string(round));
    root.write(kRegistry, all);
    std::vector<pid_t> pids;
    for (int p = 0; p < 16; ++p) {
      int i = p * 181 + round;
      pids.push_back(start({"4", "edit" + std::to_string(p), "0", kKeepHost + id_of(i)}));
    }
    for (pid_t pid : pids) EXPECT_EQ(0, wait_for(pid));
    std::string expected;
    for (int i = 0; i < kLines; ++i) {
      int p = (i - round) % 181 == 0 ? (i - round) / 181 : -1;
      expected += p >= 0 && p < 16 ? entry(i, "edit" + std::to_string(p)) : entry(i);
    }
    EXPECT_TRUE(root.read(kRegistry) == expected);
    EXPECT_TRUE(companions().empty());
  }
}

// 100 writers killed at random moments while others run: the registry is
// always whole (every line once), and the next run clears what the killed
// ones left.
TEST_F(SlowConcurrencyRegistryWriters, KilledWritersLeaveAWholeRegistry) {
  std::string all;
  for (int i = 0; i < kLines; ++i) all += entry(i);
  std::mt19937 rng(7);
  for (int round = 0; round < kRounds; ++round) {
    SCOPED_TRACE("round " + std::to_string(round));
    root.write(kRegistry, all);
    int kills = 0;
    while (kills < 100) {
      // Each writer changes nothing when it completes: an edit that writes
      // the value the line has, a deletion of no link, a refresh.
      std::vector<pid_t> pids = {
          start({"4", "v9", "0", kKeepHost + id_of(kills % kLines)}),
          start({"2", url_of(kLines + 1)}), start({"9"}), start({"2", url_of(kLines + 2)})};
      usleep(std::uniform_int_distribution<int>(0, 40000)(rng));
      for (size_t k = 0; k < pids.size(); k += 2) {
        kill(pids[k], SIGKILL);
        ++kills;
      }
      for (pid_t pid : pids) wait_for(pid);
      ASSERT_TRUE(root.read(kRegistry) == all) << "after " << kills << " kills, " << lines().size()
                                               << " lines";
    }
    EXPECT_EQ(0, wait_for(start({"9"})));
    EXPECT_TRUE(root.read(kRegistry) == all);
    EXPECT_EQ(std::vector<std::string>{}, companions());
  }
}

}  // namespace
