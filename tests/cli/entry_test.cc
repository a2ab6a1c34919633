// What the entry keeps in RunContext that no run shows: account bounds, slots emptied at exit, option
// parsing restarted on every call (the rest is end to end in e2e/registry_test and e2e/mail_test).
// The registry holds a line too short for the refresh, so no action runs.
#include "cli/entry.h"

#include <gtest/gtest.h>

#include <cstdlib>

#include "registry/run_context.h"
#include "support/appliance.h"

namespace {

class EntryTest : public ::testing::Test {
 protected:
  void SetUp() override { root.write("/etc/config/shareFileEx.ini", "id\thost\n"); }
  void TearDown() override { run({}); }  // releases what the last run kept
  int run(std::vector<std::string> args) {
    free(g_run_context.link_ids);  // the entry deliberately keeps it
    g_run_context.link_ids = nullptr;
    args.insert(args.begin(), "ShareLinkTool");
    std::vector<char*> argv;
    for (auto& a : args) argv.push_back(&a[0]);
    argv.push_back(nullptr);
    return sharelink_main(static_cast<int>(args.size()), argv.data());
  }

  ApplianceRoot root;
  ScopedEnv env{{{"SHARELINK_ROOT", root.dir()}}};
  RunContext& c = g_run_context;
};

TEST_F(EntryTest, AccountBoundsReleasedSlotsAndOptionParsing) {
  EXPECT_EQ(0, run({"1", "2", "1", "id1,id2", "a@b", "subj", "msg", "l1", "l2", "personal-account-type",
                    std::string(70, 'p'), std::string(300, 's')}));
  EXPECT_EQ(nullptr, c.recipients);
  EXPECT_EQ(nullptr, c.mail_line2);
  EXPECT_STREQ("personal-account", c.account_type);
  EXPECT_EQ(std::string(64, 'p'), c.personal_account);
  EXPECT_EQ(std::string(255, 's'), c.sender);
  EXPECT_EQ(0, run({"1", "1", "0", "id", "a@b", "s", "m", "----", "", "", "", ""}));
  EXPECT_EQ("", std::string(c.account_type) + c.personal_account + c.sender);
  EXPECT_EQ(0, run({"4", "v", "1", "https://h/share.cgi?ssid=X", "0"}));
  EXPECT_EQ(nullptr, c.edit_input);
  // A parser left where the last run stopped would see no option here.
  for (auto args : {std::vector<std::string>{"3", "-m"}, {"3", "-x"}, {"3", "-s", "1", "-q"}}) EXPECT_EQ(1, run(args)) << args.back();
}

}  // namespace
