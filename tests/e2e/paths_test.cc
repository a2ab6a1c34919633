// sharelinkctl resolve: the real path and its kind on standard output, or "-1" on standard error.
#include <gtest/gtest.h>

#include <string>

#include "support/appliance.h"

namespace {

TEST(Resolve, Table) {
  ApplianceRoot root;
  root.write("/etc/config/smb.conf", "[Public]\npath = /share/VOL1/Public\n");
  root.write("/share/VOL1/Public/docs/a.txt", "hello");
  root.script("/sbin/mirrasrv_tool",
              "echo \"$@\" > \"$SHARELINK_ROOT/tmp/mirrasrv.args\"\nprintf /share/VOL1/Public\n");
  const struct { std::vector<std::string> args; int status; std::string out; } cases[] = {
      {{"/Public/docs/a.txt"}, 0, "/share/VOL1/Public/docs/a.txt\n3\n"},
      {{"Public/docs"}, 0, "/share/VOL1/Public/docs\n1\n"},
      {{"tfx://Team1/docs/a.txt", "Mirra:alice"}, 0, "/share/VOL1/Public/docs/a.txt\n3\n"},
      {{"/Unknown/a"}, 1, ""},  // "MD0_DATA" is refused
      {{}, 2, ""},
  };
  for (const auto& c : cases) {
    std::vector<std::string> args = {"resolve"};
    args.insert(args.end(), c.args.begin(), c.args.end());
    RunResult r = run_program(ctl_binary(), args, root);
    const std::string what = c.args.empty() ? "(none)" : c.args[0];
    EXPECT_EQ(c.status, r.status) << what << r.err;
    EXPECT_EQ(c.out, r.out) << what;
    if (c.status == 1) { EXPECT_NE(std::string::npos, r.err.find("-1")) << what << r.err; }
  }
  EXPECT_EQ("-t alice:tfx://Team1\n", root.read("/tmp/mirrasrv.args"));
}

}  // namespace
