// What the entry puts into RunContext, with its bounds. The registry holds a line too short for the
// refresh, so no action runs and the fields stay as the command line set them. Exit statuses are
// checked end to end in e2e/entry_test.
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

// Lengths and counts as given, bounded texts cut, released slots emptied at exit; arguments 9 and on
// may be empty or missing.
TEST_F(EntryTest, MailArgumentsAndTheirBounds) {
  EXPECT_EQ(0, run({"1", "2", "1", "id1,id2", "a@b", "subj", "msg", "l1", "l2", "personal-account-type",
                    std::string(70, 'p'), std::string(300, 's')}));
  // mode, link_count, append_line2, link_ids_len, recipients_len, subject_len, message_len
  EXPECT_EQ((std::vector<int>{1, 2, 1, 7, 3, 4, 3}), (std::vector<int>{c.mode, c.link_count, c.append_line2, c.link_ids_len,
                                                                       c.recipients_len, c.subject_len, c.message_len}));
  EXPECT_STREQ("id1,id2", c.link_ids);
  EXPECT_EQ(nullptr, c.recipients);
  EXPECT_EQ(nullptr, c.mail_line2);
  EXPECT_STREQ("personal-account", c.account_type);
  EXPECT_EQ(std::string(64, 'p'), c.personal_account);
  EXPECT_EQ(std::string(255, 's'), c.sender);
  EXPECT_EQ(0, run({"1", "1", "0", "id", "a@b", "s", "m", "----", "", "", "", ""}));
  EXPECT_EQ("", std::string(c.account_type) + c.sender);
}

// The value is cut to 128 bytes; an expiry that is empty or missing means "keep" (1).
TEST_F(EntryTest, RewriteArgumentsDefaultWhenEmptyOrMissing) {
  EXPECT_EQ(0, run({"4", std::string(200, 'v'), "1", "https://h/share.cgi?ssid=X", "0"}));
  EXPECT_EQ(std::string(128, 'v'), c.field9_value);
  EXPECT_EQ(nullptr, c.edit_input);
  // mode, new_ssl, new_expire, edit_input_len
  EXPECT_EQ((std::vector<int64_t>{4, 1, 0, 26}), (std::vector<int64_t>{c.mode, c.new_ssl, c.new_expire, c.edit_input_len}));
  EXPECT_EQ(0, run({"4", "", "0", "", ""}));
  EXPECT_STREQ("", c.field9_value);
  EXPECT_EQ((std::vector<int64_t>{1, 0}), (std::vector<int64_t>{c.new_expire, c.edit_input_len}));
  EXPECT_EQ(0, run({"4"}));
  EXPECT_EQ(1, c.new_expire);
  EXPECT_EQ(0, run({"4", "x", "1", "u", "1700000000"}));
  EXPECT_EQ(1700000000, c.new_expire);
  // Option parsing restarts on every run: a parser left where the last run stopped sees no option.
  for (auto args : {std::vector<std::string>{"3", "-m"}, {"3", "-x"}, {"3", "-s", "1", "-q"}}) EXPECT_EQ(1, run(args)) << args.back();
}

}  // namespace
