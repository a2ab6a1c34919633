#include <gtest/gtest.h>

#include <string>

#include "support/appliance.h"

namespace {

class Resolve : public ::testing::Test {
 protected:
  Resolve() {
    root_.write("/etc/config/smb.conf", "[Public]\npath = /share/VOL1/Public\n");
    root_.write("/share/VOL1/Public/docs/a.txt", "hello");
  }
  RunResult resolve(const std::vector<std::string>& args) {
    std::vector<std::string> all = {"resolve"};
    all.insert(all.end(), args.begin(), args.end());
    return run_program(ctl_binary(), all, root_);
  }
  ApplianceRoot root_;
};

TEST_F(Resolve, PrintsRealPathAndKind) {
  RunResult r = resolve({"/Public/docs/a.txt"});
  EXPECT_EQ(0, r.status) << r.err;
  EXPECT_EQ("/share/VOL1/Public/docs/a.txt\n3\n", r.out);
  r = resolve({"Public/docs"});
  EXPECT_EQ("/share/VOL1/Public/docs\n1\n", r.out);
}

TEST_F(Resolve, ResolvesTeamFoldersForTheCreator) {
  root_.script("/sbin/mirrasrv_tool",
               "echo \"$@\" > \"$SHARELINK_ROOT/tmp/mirrasrv.args\"\nprintf /share/VOL1/Public\n");
  RunResult r = resolve({"tfx://Team1/docs/a.txt", "Mirra:alice"});
  EXPECT_EQ(0, r.status) << r.err;
  EXPECT_EQ("/share/VOL1/Public/docs/a.txt\n3\n", r.out);
  EXPECT_EQ("-t alice:tfx://Team1\n", root_.read("/tmp/mirrasrv.args"));
}

TEST_F(Resolve, ReportsFailuresOnStandardError) {
  RunResult r = resolve({"/Public/../../../etc/config"});
  EXPECT_EQ(1, r.status);
  EXPECT_EQ("", r.out);
  EXPECT_NE(std::string::npos, r.err.find("-1")) << r.err;
  r = resolve({"/Unknown/a"});  // no such share: "MD0_DATA" is refused
  EXPECT_EQ(1, r.status);
  EXPECT_EQ(2, resolve({}).status);
}

}  // namespace
