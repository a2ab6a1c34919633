// What the entry puts into RunContext. The registry is given a line too
// short for the refresh, so the refresh fails and no action runs: the
// fields stay as the command line set them.
#include "cli/entry.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "registry/run_context.h"
#include "support/appliance.h"

namespace {

class EntryTest : public ::testing::Test {
 protected:
  void SetUp() override { root.write("/etc/config/shareFileEx.ini", kShortLine); }
  void TearDown() override {
    free(g_run_context.link_ids);  // the entry deliberately keeps it
    g_run_context.link_ids = nullptr;
  }
  int run(std::vector<std::string> args) {
    args.insert(args.begin(), "ShareLinkTool");
    std::vector<char*> argv;
    for (auto& a : args) argv.push_back(&a[0]);
    argv.push_back(nullptr);
    return sharelink_main(static_cast<int>(args.size()), argv.data());
  }
  static constexpr char kShortLine[] = "id\thost\n";

  ApplianceRoot root;
  ScopedEnv env{{{"SHARELINK_ROOT", root.dir()}}};
};

TEST_F(EntryTest, MailArgumentsAndTheirBounds) {
  const std::string sender(300, 's');
  EXPECT_EQ(0, run({"1", "2", "1", "id1,id2", "a@b", "subj", "msg", "l1", "l2",
                    "personal-account-type", std::string(70, 'p'), sender}));
  RunContext& c = g_run_context;
  EXPECT_EQ(1, c.mode);
  EXPECT_EQ(2, c.link_count);
  EXPECT_EQ(1, c.append_line2);
  ASSERT_NE(nullptr, c.link_ids);
  EXPECT_STREQ("id1,id2", c.link_ids);
  EXPECT_EQ(7, c.link_ids_len);
  EXPECT_EQ(3, c.recipients_len);
  EXPECT_EQ(4, c.subject_len);
  EXPECT_EQ(3, c.message_len);
  // Released at exit, in the stated order; the slots are emptied.
  EXPECT_EQ(nullptr, c.recipients);
  EXPECT_EQ(nullptr, c.mail_line2);
  EXPECT_STREQ("personal-account", c.account_type);
  EXPECT_EQ(std::string(64, 'p'), c.personal_account);
  EXPECT_EQ(std::string(255, 's'), c.sender);
}

TEST_F(EntryTest, MailOptionalArgumentsMayBeEmptyOrMissing) {
  EXPECT_EQ(0, run({"1", "1", "0", "id", "a@b", "s", "m", "----", "", "", "", ""}));
  EXPECT_STREQ("", g_run_context.account_type);
  EXPECT_STREQ("", g_run_context.personal_account);
  EXPECT_STREQ("", g_run_context.sender);
  free(g_run_context.link_ids);
  g_run_context.link_ids = nullptr;
  // Argument 9 is read without a presence test: missing reads as empty.
  EXPECT_EQ(0, run({"1", "1", "0", "id", "a@b", "s", "m", "----"}));
  EXPECT_EQ(1, g_run_context.mode);
}

TEST_F(EntryTest, RewriteArgumentsDefaultWhenEmptyOrMissing) {
  EXPECT_EQ(0, run({"4", std::string(200, 'v'), "1", "https://h/share.cgi?ssid=X", "0"}));
  EXPECT_EQ(4, g_run_context.mode);
  EXPECT_EQ(std::string(128, 'v'), g_run_context.field9_value);
  EXPECT_EQ(1, g_run_context.new_ssl);
  EXPECT_EQ(0, g_run_context.new_expire);
  EXPECT_EQ(nullptr, g_run_context.edit_input);
  EXPECT_EQ(26, g_run_context.edit_input_len);

  EXPECT_EQ(0, run({"4", "", "0", "", ""}));
  EXPECT_STREQ("", g_run_context.field9_value);
  EXPECT_EQ(1, g_run_context.new_expire);
  EXPECT_EQ(0, g_run_context.edit_input_len);

  EXPECT_EQ(0, run({"4"}));
  EXPECT_EQ(4, g_run_context.mode);
  EXPECT_EQ(1, g_run_context.new_expire);
  EXPECT_EQ(0, run({"4", "x", "1", "u", "1700000000"}));
  EXPECT_EQ(1700000000, g_run_context.new_expire);
}

TEST_F(EntryTest, ModeThreeOptionParsingRestartsOnEveryRun) {
  EXPECT_EQ(1, run({"3", "-m"}));
  // A parser left where the last run stopped would see no option here.
  EXPECT_EQ(1, run({"3", "-x"}));
  EXPECT_EQ(1, run({"3", "-s", "1", "-q"}));
  EXPECT_EQ(0, g_run_context.mode);
}

TEST(EntryExitStatus, OnlyMinusTwentySurvives) {
  EXPECT_EQ(-20, entry_exit_status(-20));
  EXPECT_EQ(236, static_cast<unsigned char>(entry_exit_status(-20)));
  for (int r : {1, 0, -1, -2, 20}) EXPECT_EQ(0, entry_exit_status(r)) << r;
}

}  // namespace
