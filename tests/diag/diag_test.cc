#include <gtest/gtest.h>
#include <regex>
#include <string>
#include "diag/db_error_log.h"
#include "diag/debug_log.h"
#include "support/appliance.h"

namespace {
class DiagTest : public ::testing::Test {
 protected:
  void SetUp() override { set_debug_destination("/tmp/debug.log", kDebugToFile); }
  void TearDown() override { set_debug_destination(nullptr, kDebugToStderr); set_debug_level(0); }
  void modules(std::string list, int result = 0) { EXPECT_EQ(result, set_debug_modules(&list[0])) << list; }
  std::string log() const { return root.read("/tmp/debug.log"); }
  ApplianceRoot root;
  ScopedEnv env{{{"SHARELINK_ROOT", root.dir()}}};
};
// Each list starts the mask afresh; a message passes the level threshold and the mask, or is
// dropped. Store errors are worded by code and go out twice (the open failure: e2e/store_test).
TEST_F(DiagTest, ModuleListsAndLevelsFilterMessages) {
  debug_log(9, 0xFFFFFFFFu, "dropped at threshold 0\n");
  set_debug_level(9);
  modules("Config,,WEBSERVER");
  debug_log(9, 0x00000002u, "webserver kept\n");
  modules("");
  debug_log(9, 0x00000002u, "dropped by the fresh mask\n");
  sf_debug_db_error_log(-11, "dropped", "7");
  modules("scan,foo,rend", 1);
  debug_log(9, 0x00000010u, "dropped: rend came after the unknown name\n");
  EXPECT_EQ(0, set_debug_modules(nullptr));  // keeps the mask
  debug_log(9, 0x00000008u, "scan still kept\n");
  modules("config");
  sf_debug_db_error_log(-11, "AbC", "7");
  sf_debug_db_error_log(-5, "AbC", nullptr);
  std::string text = log();
  EXPECT_EQ(std::string::npos, text.find("dropped")) << text;
  for (const char* kept : {": Adding module WEBSERVER to debug list (0x00000002)\n", ": Debug mask is 0x80000003\n",
                           ": Unknown module: foo\n", "webserver kept\n", "scan still kept\n"})
    EXPECT_NE(std::string::npos, text.find(kept)) << kept;
  for (const char* twice : {", DB PARAMETER ERROR, Ret=-11, Ssid=AbC, Fid=7\n", ", sharelink query error, Ret=-5, Ssid=AbC\n"})
    EXPECT_LT(text.find(twice), text.rfind(twice)) << twice;  // found, twice
}
// Stamped after the process id in the file, plain on standard error; then the process ends.
TEST_F(DiagTest, FatalMessageWithFileDestinationEndsTheProcess) {
  EXPECT_EXIT(debug_log(0, 0, "cannot go on\n"), ::testing::ExitedWithCode(1), "^cannot go on\nAborting\n$");
  EXPECT_TRUE(std::regex_match(log(), std::regex("\\(pid=[0-9]+\\)([-0-9]{10} [:0-9]{8}: (cannot go on|Aborting)\n){3}")))
      << log();
}
}  // namespace
