#include "registry/append.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <vector>

#include "diag/syslog_report.h"
#include "platform/os.h"
#include "support/appliance.h"

namespace {

std::vector<std::string> g_syslog;
int g_fcloses = 0;

size_t short_fwrite(const void* d, size_t s, size_t n, FILE* f) {
  errno = ENOSPC;
  return n > 0 ? fwrite(d, s, n - 1, f) : 0;
}
int counting_fclose(FILE* f) { return ++g_fcloses, fclose(f); }

class AppendTest : public ::testing::Test {
 protected:
  void SetUp() override {
    g_syslog.clear();
    set_syslog_report_observer([](const char* line) { g_syslog.push_back(line); });
  }
  void TearDown() override {
    os_reset();
    set_syslog_report_observer(nullptr);
  }
  ApplianceRoot root;
  ScopedEnv env{{{"SHARELINK_ROOT", root.dir()}}};
};

TEST_F(AppendTest, AppendsAndStaysQuiet) {
  root.write("/etc/config/f", "a\n");
  EXPECT_EQ(1, sf_appendData("/etc/config/f", "b\tc\n"));
  EXPECT_EQ(1, sf_appendData("/etc/config/f", ""));
  EXPECT_EQ("a\nb\tc\n", root.read("/etc/config/f"));
  EXPECT_TRUE(g_syslog.empty());
}

// Each failing step: its result, one report naming it, and the stream closed
// exactly once whatever failed after the open.
TEST_F(AppendTest, EachFailingStepIsReportedAndClosesTheStream) {
  const struct {
    void (*inject)();
    int result;
    int closes;
    const char* report;  // whole, or a prefix when it ends in "("
  } cases[] = {
      {[] { os.fopen = [](const char*, const char*) -> FILE* { return errno = EACCES, nullptr; }; }, -1, 0,
       "ERROR: [sf_appendData][fopen]data=abc(13:Permission denied)(13:Permission denied)"},
      {[] { os.fwrite = short_fwrite; }, -2, 1,
       "ERROR: [sf_appendData][fwrite]data=abc(28:No space left on device)(28:No space left on device)"},
      {[] { os.ferror = [](FILE*) { return 1; }; }, -3, 1, "ERROR: [sf_appendData][ferror]data=abc("},
      {[] { os.fclose = [](FILE* f) { return fclose(f), errno = EIO, -1; }; }, -4, 0,
       "ERROR: [sf_appendData][fclose]data=abc(5:Input/output error)(5:Input/output error)"},
  };
  for (const auto& c : cases) {
    g_syslog.clear();
    g_fcloses = 0;
    os_reset();
    os.fclose = counting_fclose;
    c.inject();
    errno = 0;
    EXPECT_EQ(c.result, sf_appendData("/etc/config/f", "abc")) << c.report;
    EXPECT_EQ(c.closes, g_fcloses) << c.report;
    ASSERT_EQ(1u, g_syslog.size()) << c.report;
    const std::string want = c.report;
    EXPECT_EQ(want, want.back() == '(' ? g_syslog[0].substr(0, want.size()) : g_syslog[0]);
  }
}

TEST_F(AppendTest, StreamAppenderReportsLikeTheFileAppender) {
  FILE* f = fopen(root.path("/etc/config/stream").c_str(), "wb");
  ASSERT_NE(nullptr, f);
  EXPECT_EQ(1, append_to_stream(f, "ok\n", 3));
  os.fwrite = short_fwrite;
  EXPECT_EQ(-2, append_to_stream(f, "lost\n", 5));
  os_reset();
  os.ferror = [](FILE*) { return 1; };
  EXPECT_EQ(-3, append_to_stream(f, "flag\n", 5));
  os_reset();
  fclose(f);
  ASSERT_EQ(2u, g_syslog.size());
  EXPECT_EQ("ERROR: [sf_appendData][fwrite]data=lost\n(28:No space left on device)"
            "(28:No space left on device)",
            g_syslog[0]);
  EXPECT_EQ(0u, g_syslog[1].find("ERROR: [sf_appendData][ferror]data=flag\n("));
}

}  // namespace
