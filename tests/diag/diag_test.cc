#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <regex>
#include <string>

#include "diag/app_log.h"
#include "diag/db_error_log.h"
#include "diag/debug_log.h"
#include "support/appliance.h"

namespace {

class DiagTest : public ::testing::Test {
 protected:
  void TearDown() override {
    set_debug_destination(nullptr, kDebugToStderr);
    set_debug_level(0);
  }
  // The debug log's file destination, inside the appliance root.
  void log_to_file() { set_debug_destination("/tmp/debug.log", kDebugToFile); }
  std::string debug_file() const { return root.read("/tmp/debug.log"); }

  ApplianceRoot root;
  ScopedEnv env{{{"SHARELINK_ROOT", root.dir()}}};
};

TEST_F(DiagTest, AppLogRotatesOnlyAboveTheLimit) {
  root.write(kAppLogPath, std::string(204800, 'a'));
  app_log("caller", 12, "first %s\n", "line");
  EXPECT_FALSE(root.exists(kAppLogOldPath));
  std::string log = root.read(kAppLogPath);
  EXPECT_EQ(204800u + strlen("caller 12, first line\n"), log.size());
  EXPECT_EQ("caller 12, first line\n", log.substr(204800));
  struct stat st;
  ASSERT_EQ(0, stat(root.path(kAppLogPath).c_str(), &st));
  EXPECT_EQ(0777u, st.st_mode & 0777);

  root.write(kAppLogPath, std::string(204801, 'b'));
  root.write(kAppLogOldPath, "older generation");
  app_log("caller", 13, "second\n");
  EXPECT_EQ("caller 13, second\n", root.read(kAppLogPath));
  EXPECT_EQ(std::string(204801, 'b'), root.read(kAppLogOldPath));
}

TEST_F(DiagTest, ModuleListsBuildTheMask) {
  set_debug_level(9);
  log_to_file();
  char list[] = "Config,,WEBSERVER";
  EXPECT_EQ(0, set_debug_modules(list));
  EXPECT_EQ(0x80000003u, debug_mask());
  char empty[] = "";
  EXPECT_EQ(0, set_debug_modules(empty));
  EXPECT_EQ(0x80000000u, debug_mask());
  char unknown[] = "scan,foo,rend";
  EXPECT_EQ(1, set_debug_modules(unknown));
  EXPECT_EQ(0x80000008u, debug_mask());
  EXPECT_EQ(0, set_debug_modules(nullptr));
  EXPECT_EQ(0x80000008u, debug_mask());

  std::string log = debug_file();
  EXPECT_NE(std::string::npos, log.find(": Adding module Config to debug list (0x00000001)\n"));
  EXPECT_NE(std::string::npos, log.find(": Adding module WEBSERVER to debug list (0x00000002)\n"));
  EXPECT_NE(std::string::npos, log.find(": Debug mask is 0x80000003\n"));
  EXPECT_NE(std::string::npos, log.find(": Unknown module: foo\n"));
  EXPECT_EQ(std::string::npos, log.find("rend"));
}

TEST_F(DiagTest, LevelsAboveTheThresholdAreDropped) {
  log_to_file();
  debug_log(9, 0xFFFFFFFFu, "dropped at threshold 0\n");
  char modules[] = "config";
  set_debug_modules(modules);
  set_debug_level(9);
  debug_log(9, 0x00000002u, "dropped by the mask\n");
  debug_log(9, kDebugFileManager, "kept\n");
  std::string log = debug_file();
  EXPECT_EQ(std::string::npos, log.find("dropped"));
  EXPECT_NE(std::string::npos, log.find("kept"));
}

TEST_F(DiagTest, StoreErrorReportsAreWordedByCode) {
  char modules[] = "config";
  set_debug_modules(modules);
  set_debug_level(9);
  log_to_file();
  sf_debug_db_error_log(-20, "AbC", "7");
  sf_debug_db_error_log(-11, "AbC", nullptr);
  sf_debug_db_error_log(-5, "AbC", nullptr);
  const std::string stamp = "[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}";
  const std::string pid = std::to_string(getpid());
  const std::regex expected(
      "\\(pid=" + pid + "\\)" + stamp + ": sf_debug_db_error_log [0-9]+, DB OPEN ERROR, Ret=-20, Ssid=AbC, Fid=7\n" +
      stamp + ": sf_debug_db_error_log [0-9]+, DB OPEN ERROR, Ret=-20, Ssid=AbC, Fid=7\n" +
      "\\(pid=" + pid + "\\)" + stamp + ": sf_debug_db_error_log [0-9]+, DB PARAMETER ERROR, Ret=-11, Ssid=AbC\n" +
      stamp + ": sf_debug_db_error_log [0-9]+, DB PARAMETER ERROR, Ret=-11, Ssid=AbC\n" +
      "\\(pid=" + pid + "\\)" + stamp + ": sf_debug_db_error_log [0-9]+, sharelink query error, Ret=-5, Ssid=AbC\n" +
      stamp + ": sf_debug_db_error_log [0-9]+, sharelink query error, Ret=-5, Ssid=AbC\n");
  std::string log = debug_file();
  EXPECT_TRUE(std::regex_match(log, expected)) << log;
}

TEST_F(DiagTest, FatalMessageWithFileDestinationEndsTheProcess) {
  EXPECT_EXIT(
      {
        log_to_file();
        debug_log(0, 0, "cannot go on\n");
      },
      ::testing::ExitedWithCode(1), "^cannot go on\nAborting\n$");
  const std::string stamp = "[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}";
  const std::regex expected("\\(pid=[0-9]+\\)" + stamp + ": cannot go on\n" + stamp +
                            ": cannot go on\n" + stamp + ": Aborting\n");
  std::string log = debug_file();
  EXPECT_TRUE(std::regex_match(log, expected)) << log;
}

}  // namespace
