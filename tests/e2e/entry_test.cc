// The tool's command line end to end: exit statuses, which runs refresh the
// registry, and command lines that must not crash it.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/appliance.h"

namespace {

const char kRegistry[] = "/etc/config/shareFileEx.ini";

class EntryE2E : public ::testing::Test {
 protected:
  void SetUp() override {
    root.write("/share/Public/a.txt", "a");
    root.write(kRegistry, kKept + kStale);
  }
  RunResult run(const std::vector<std::string>& args) {
    return run_program(tool_binary(), args, root);
  }
  bool refreshed() const { return root.read(kRegistry) == kKept; }

  ApplianceRoot root;
  const std::string kKept = "K1\th\t-\t0\t/share/Public/a.txt\t-\t0\t-\tv\t-\n";
  const std::string kStale = "S1\th\t-\t0\t/share/Public/gone.txt\t-\t0\t-\tv\t-\n";
};

TEST_F(EntryE2E, CommandLineErrorsExitEarlyWithoutRefreshing) {
  struct Case {
    std::vector<std::string> args;
    int status;
  } cases[] = {
      {{}, 1},
      {{"3", "-x"}, 1},
      {{"3", "-m"}, 1},
      {{"3", "-m", "6", "-u"}, 1},
      {{"1", "1", "0", "id", "a@b", "subj", "msg"}, 3},
      {{"1", "1", "0", "id", "nobody", "subj", "msg", "line1"}, 2},
      {{"2"}, 4},
  };
  for (const Case& c : cases) {
    std::string shown = c.args.empty() ? "(none)" : c.args[0] + (c.args.size() > 1 ? " " + c.args[1] : "");
    RunResult r = run(c.args);
    EXPECT_EQ(c.status, r.status) << shown;
    EXPECT_EQ("", r.out) << shown;
    EXPECT_EQ("", r.err) << shown;
    EXPECT_FALSE(refreshed()) << shown;
  }
}

TEST_F(EntryE2E, OtherModesRefreshAndExitZero) {
  for (const char* mode : {"7", "0", "-1", "abc", "4"}) {
    root.write(kRegistry, kKept + kStale);
    RunResult r = run({mode});
    EXPECT_EQ(0, r.status) << mode;
    EXPECT_EQ("", r.out) << mode;
    EXPECT_EQ("", r.err) << mode;
    EXPECT_TRUE(refreshed()) << mode;
  }
  root.write(kRegistry, kKept + kStale);
  EXPECT_EQ(0, run({"1", "1", "0", "K1", "a@b", "subj", "msg", "line1"}).status);
  EXPECT_TRUE(refreshed());
  root.write(kRegistry, kKept + kStale);
  EXPECT_EQ(0, run({"2", "http://h:1/share.cgi?ssid=none"}).status);
  EXPECT_TRUE(refreshed());
}

TEST_F(EntryE2E, ModeThreeListsWithoutRefreshing) {
  RunResult r = run({"3", "-m", "5", "-s", "0", "-n", "20", "-u", "alice", "-f", "x"});
  EXPECT_EQ(0, r.status);
  EXPECT_EQ(0, run({"3"}).status);
  EXPECT_FALSE(refreshed());
}

TEST_F(EntryE2E, AFailedRefreshSkipsTheActionAndStillExitsZero) {
  const std::string broken = kKept + "short\tline\n";
  root.write(kRegistry, broken);
  RunResult r = run({"2", "http://h:1/share.cgi?ssid=K1"});
  EXPECT_EQ(0, r.status);
  EXPECT_EQ(broken, root.read(kRegistry));
  EXPECT_FALSE(root.exists(std::string(kRegistry) + ".del"));
}

TEST_F(EntryE2E, HugeAndMissingArgumentsDoNotCrash) {
  const std::string big(100000, 'x');
  const std::string list = big.substr(0, 50000) + "," + big.substr(0, 40000) + ",ssid=";
  const std::string url = "https://" + big.substr(0, 60000) + "/share.cgi?ssid=" + big.substr(0, 60000);
  struct Case {
    std::vector<std::string> args;
    int status;
  } cases[] = {
      {{"1", big, big, big, big + "@", big, big, big, big, big, big, big}, 0},
      {{"1", "", "", "", "@", "", "", ""}, 0},
      {{"2", list}, 0},
      {{"2", ""}, 0},
      {{"3", "-u", big, "-f", big, "-m", big, "-s", big, "-n", big, big}, 0},
      {{"4", big, big, url, big}, 0},
      {{"4", "", "", "", ""}, 0},
      {{big}, 0},
  };
  for (const Case& c : cases) {
    root.write(kRegistry, kKept + kStale);
    RunResult r = run(c.args);
    EXPECT_EQ(c.status, r.status) << c.args[0] << " with " << c.args.size() << " arguments";
  }
}

}  // namespace
