// sharelinkctl resolve: the real path and its kind on standard output, or "-1" on standard error.
#include <gtest/gtest.h>
#include <string>
#include "support/appliance.h"

namespace {
TEST(Resolve, Table) {
  ApplianceRoot root;
  root.write("/etc/config/smb.conf", "[Public]\npath = /share/VOL1/Public\n");
  root.write("/share/VOL1/Public/docs/a.txt", "hello");
  root.script("/sbin/mirrasrv_tool", "echo \"$@\" > \"$SHARELINK_ROOT/tmp/mirrasrv.args\"\nprintf /share/VOL1/Public\n");
  auto resolve = [&root](std::vector<std::string> args) {
    args.insert(args.begin(), "resolve");
    RunResult r = run_program(ctl_binary(), args, root);
    return std::to_string(r.status) + " " + r.out + (r.err.find("-1") != std::string::npos ? "-1" : "");
  };
  EXPECT_EQ("0 /share/VOL1/Public/docs/a.txt\n3\n", resolve({"/Public/docs/a.txt"}));
  EXPECT_EQ("0 /share/VOL1/Public/docs\n1\n", resolve({"Public/docs"}));
  EXPECT_EQ("0 /share/VOL1/Public/docs/a.txt\n3\n", resolve({"tfx://Team1/docs/a.txt", "Mirra:alice"}));
  EXPECT_EQ("-t alice:tfx://Team1\n", root.read("/tmp/mirrasrv.args"));
  EXPECT_EQ("0 /share/VOL1/Public/docs/a.txt\n3\n", resolve({"tfx://Team1/docs/a.txt"}));  // no creator: no owner
  EXPECT_EQ("-t :tfx://Team1\n", root.read("/tmp/mirrasrv.args"));
  root.script("/sbin/mirrasrv_tool", "printf /etc\n");  // an answer outside the shares is not used
  EXPECT_EQ("1 -1", resolve({"tfx://Team1/config", "Mirra:alice"}));
  EXPECT_EQ("1 -1", resolve({"/Unknown/a"}));  // no such share: "MD0_DATA" is refused
  EXPECT_EQ(2, run_program(ctl_binary(), {"resolve"}, root).status);
}
}  // namespace
