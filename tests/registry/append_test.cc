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

void capture(const char* line) { g_syslog.push_back(line); }

FILE* failing_fopen(const char*, const char*) {
  errno = EACCES;
  return nullptr;
}
size_t short_fwrite(const void* d, size_t s, size_t n, FILE* f) {
  errno = ENOSPC;
  return n > 0 ? fwrite(d, s, n - 1, f) : 0;
}
int error_flag(FILE*) { return 1; }
int counting_fclose(FILE* f) {
  ++g_fcloses;
  return fclose(f);
}
int failing_fclose(FILE* f) {
  fclose(f);
  errno = EIO;
  return -1;
}

class AppendTest : public ::testing::Test {
 protected:
  void SetUp() override {
    g_syslog.clear();
    g_fcloses = 0;
    set_syslog_report_observer(capture);
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

TEST_F(AppendTest, OpenFailure) {
  os.fopen = failing_fopen;
  EXPECT_EQ(-1, sf_appendData("/etc/config/f", "line"));
  ASSERT_EQ(1u, g_syslog.size());
  EXPECT_EQ("ERROR: [sf_appendData][fopen]data=line(13:Permission denied)(13:Permission denied)",
            g_syslog[0]);
}

TEST_F(AppendTest, ShortWriteClosesTheStream) {
  os.fwrite = short_fwrite;
  os.fclose = counting_fclose;
  EXPECT_EQ(-2, sf_appendData("/etc/config/f", "abc"));
  EXPECT_EQ(1, g_fcloses);
  ASSERT_EQ(1u, g_syslog.size());
  EXPECT_EQ("ERROR: [sf_appendData][fwrite]data=abc(28:No space left on device)"
            "(28:No space left on device)",
            g_syslog[0]);
}

TEST_F(AppendTest, ErrorFlagClosesTheStream) {
  os.ferror = error_flag;
  os.fclose = counting_fclose;
  errno = 0;
  EXPECT_EQ(-3, sf_appendData("/etc/config/f", "abc"));
  EXPECT_EQ(1, g_fcloses);
  ASSERT_EQ(1u, g_syslog.size());
  EXPECT_EQ(0u, g_syslog[0].find("ERROR: [sf_appendData][ferror]data=abc("));
}

TEST_F(AppendTest, CloseFailure) {
  os.fclose = failing_fclose;
  EXPECT_EQ(-4, sf_appendData("/etc/config/f", "abc"));
  ASSERT_EQ(1u, g_syslog.size());
  EXPECT_EQ("ERROR: [sf_appendData][fclose]data=abc(5:Input/output error)(5:Input/output error)",
            g_syslog[0]);
}

TEST_F(AppendTest, StreamAppenderReportsLikeTheFileAppender) {
  FILE* f = fopen(root.path("/etc/config/stream").c_str(), "wb");
  ASSERT_NE(nullptr, f);
  EXPECT_EQ(1, append_to_stream(f, "ok\n", 3));
  os.fwrite = short_fwrite;
  EXPECT_EQ(-2, append_to_stream(f, "lost\n", 5));
  os_reset();
  os.ferror = error_flag;
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
