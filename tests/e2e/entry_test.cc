// The tool's exit statuses and which runs refresh the registry first (hostile and oversized command
// lines are in hostile_input_test.cc).
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/appliance.h"

namespace {

TEST(Entry, StatusesAndWhichRunsRefreshTheRegistry) {
  const char kRegistry[] = "/etc/config/shareFileEx.ini";
  const std::string kept = "K1\th\t-\t0\t/share/Public/a.txt\t-\t0\t-\tv\t-\n";
  const std::string stale = "S1\th\t-\t0\t/share/Public/gone.txt\t-\t0\t-\tv\t-\n";
  ApplianceRoot root;
  root.write("/share/Public/a.txt", "a");
  const struct { std::vector<std::string> args; int status; bool refreshes; } cases[] = {
      {{}, 1, false},
      {{"3", "-x"}, 1, false},
      {{"3", "-m"}, 1, false},
      {{"3", "-m", "6", "-u"}, 1, false},
      {{"3", "-m", "5", "-s", "0", "-n", "20", "-u", "alice", "-f", "x"}, 0, false},
      {{"3"}, 0, false},
      {{"1", "1", "0", "id", "a@b", "subj", "msg"}, 3, false},
      {{"1", "1", "0", "id", "nobody", "subj", "msg", "line1"}, 2, false},
      {{"2"}, 4, false},
      {{"7"}, 0, true},
      {{"0"}, 0, true},
      {{"-1"}, 0, true},
      {{"abc"}, 0, true},
      {{"4"}, 0, true},
      {{"1", "1", "0", "K1", "a@b", "subj", "msg", "line1"}, 0, true},
      {{"2", "http://h:1/share.cgi?ssid=none"}, 0, true},
  };
  for (const auto& c : cases) {
    std::string shown;
    for (const auto& a : c.args) shown += a + " ";
    root.write(kRegistry, kept + stale);
    RunResult r = run_program(tool_binary(), c.args, root);
    EXPECT_EQ(c.status, r.status) << shown;
    EXPECT_EQ("", r.out + r.err) << shown;
    EXPECT_EQ(c.refreshes ? kept : kept + stale, root.read(kRegistry)) << shown;
  }
  // A failed refresh skips the action and still exits 0.
  const std::string broken = kept + "short\tline\n";
  root.write(kRegistry, broken);
  EXPECT_EQ(0, run_program(tool_binary(), {"2", "http://h:1/share.cgi?ssid=K1"}, root).status);
  EXPECT_EQ(broken, root.read(kRegistry));
  EXPECT_FALSE(root.exists(std::string(kRegistry) + ".del"));
}

}  // namespace
