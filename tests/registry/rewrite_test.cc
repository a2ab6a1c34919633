// Failures at the end of a registry rewrite: the registry stays whole and no
// companion file is left behind.
#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <set>
#include <string>
#include <vector>

#include "diag/syslog_report.h"
#include "platform/os.h"
#include "registry/edits.h"
#include "registry/refresh.h"
#include "registry/run_context.h"
#include "registry/share_url.h"
#include "support/appliance.h"

namespace {

std::vector<std::string> g_syslog;
void capture(const char* line) { g_syslog.push_back(line); }

int failing_rename(const char*, const char*) {
  errno = EXDEV;
  return -1;
}
int failing_fsync(int) {
  errno = EIO;
  return -1;
}
// A disk that fails every write, or every flush, with g_errno.
int g_errno = 0;
size_t full_fwrite(const void*, size_t, size_t, FILE*) {
  errno = g_errno;
  return 0;
}
int failing_fsync_errno(int) {
  errno = g_errno;
  return -1;
}
// Fails the write of the line that holds "B2".
size_t failing_line_fwrite(const void* d, size_t s, size_t n, FILE* f) {
  if (n > 0 && memmem(d, n, "B2", 2) != nullptr) {
    errno = ENOSPC;
    return 0;
  }
  return fwrite(d, s, n, f);
}

class RewriteTest : public ::testing::Test {
 protected:
  void SetUp() override {
    g_syslog.clear();
    set_syslog_report_observer(capture);
    share_url_forget_port();
    memset(&g_run_context, 0, sizeof g_run_context);
    root.write("/share/Public/a.txt", "x");
    root.write(kShareRegistryPath, registry);
  }
  void TearDown() override {
    os_reset();
    set_syslog_report_observer(nullptr);
    memset(&g_run_context, 0, sizeof g_run_context);
  }
  std::set<std::string> config_files() const {
    std::set<std::string> names;
    DIR* d = opendir(root.path("/etc/config").c_str());
    while (dirent* e = readdir(d)) {
      if (e->d_name[0] != '.') names.insert(e->d_name);
    }
    closedir(d);
    return names;
  }
  void expect_registry_untouched() {
    EXPECT_EQ(registry, root.read(kShareRegistryPath));
    EXPECT_EQ(kAlone, config_files());
  }

  // The registry and its lock file, nothing else.
  const std::set<std::string> kAlone = {"shareFileEx.ini", "shareFileEx.ini.lock"};

  ApplianceRoot root;
  ScopedEnv env{{{"SHARELINK_ROOT", root.dir()}}};
  // The second line is stale, so a refresh would change the file.
  const std::string registry =
      "A1\th\t-\t0\t/share/Public/a.txt\t-\t0\t-\tv\t-\n"
      "B2\th\t-\t0\t/share/Public/a.txt\t-\t0\t-\tv\t-\n"
      "C3\th\t-\t0\t/share/Public/gone\t-\t0\t-\tv\t-\n";
};

TEST_F(RewriteTest, RefreshSucceedsWithoutLeftovers) {
  EXPECT_EQ(1, refresh_registry());
  EXPECT_EQ(registry.substr(0, registry.rfind("C3")), root.read(kShareRegistryPath));
  EXPECT_EQ(kAlone, config_files());
}

TEST_F(RewriteTest, FailedRenameAtTheEndOfARefresh) {
  os.rename = failing_rename;
  EXPECT_EQ(-1, load_registry());
  expect_registry_untouched();
}

TEST_F(RewriteTest, FailedFlushAtTheEndOfARefresh) {
  os.fsync = failing_fsync;
  EXPECT_EQ(-1, refresh_registry());
  expect_registry_untouched();
  ASSERT_EQ(1u, g_syslog.size());
  EXPECT_EQ(0u, g_syslog[0].find("ERROR: [load_registry][fsync]data=/etc/config/shareFileEx.ini.tmp"));
}

TEST_F(RewriteTest, AFailedLineIsReportedAndTheRefreshAbandoned) {
  os.fwrite = failing_line_fwrite;
  EXPECT_EQ(-1, load_registry());
  expect_registry_untouched();
  ASSERT_EQ(1u, g_syslog.size());
  EXPECT_EQ(
      "ERROR: [sf_appendData][fwrite]data=B2\th\t-\t0\t/share/Public/a.txt\t-\t0\t-\tv\t-\n"
      "(28:No space left on device)(28:No space left on device)",
      g_syslog[0]);
}

TEST_F(RewriteTest, FailedRenameOfTheDeletionRemovesTheDelFile) {
  static char input[] = "http://h:80/share.cgi?ssid=A1";
  g_run_context.edit_input = input;
  g_run_context.edit_input_len = static_cast<int32_t>(strlen(input));
  os.rename = failing_rename;
  EXPECT_EQ(-1, delete_registry_links());
  expect_registry_untouched();
}

TEST_F(RewriteTest, FailedRenameOfTheLineRewriteRemovesTheTemporaryFile) {
  static char input[] = "http://h:80/share.cgi?ssid=A1";
  g_run_context.edit_input = input;
  g_run_context.edit_input_len = static_cast<int32_t>(strlen(input));
  g_run_context.new_expire = 1;
  os.rename = failing_rename;
  EXPECT_EQ(-1, rewrite_registry_link());
  expect_registry_untouched();
}

// Every writer on a disk that fails: the first failed write or flush ends
// the rewrite with one report, the registry stays, no companion is left.
TEST_F(RewriteTest, FailingDiskEndsEachRewriteWithOneReport) {
  static char input[] = "http://h:80/share.cgi?ssid=A1";
  struct Writer {
    const char* name;
    int (*run)();
  };
  const Writer writers[] = {{"refresh", load_registry},
                            {"mode 2", delete_registry_links},
                            {"mode 4", rewrite_registry_link}};
  struct Fault {
    const char* name;
    bool on_write;
    int err;
    const char* report;
  };
  const Fault faults[] = {{"write ENOSPC", true, ENOSPC, "][fwrite]data="},
                          {"write EIO", true, EIO, "][fwrite]data="},
                          {"fsync ENOSPC", false, ENOSPC, "][fsync]data=/etc/config/shareFileEx.ini."},
                          {"fsync EIO", false, EIO, "][fsync]data=/etc/config/shareFileEx.ini."}};
  for (const Writer& w : writers) {
    for (const Fault& f : faults) {
      SCOPED_TRACE(std::string(w.name) + ", " + f.name);
      g_syslog.clear();
      g_errno = f.err;
      g_run_context.edit_input = input;
      g_run_context.edit_input_len = static_cast<int32_t>(strlen(input));
      g_run_context.new_expire = 1;
      if (f.on_write) {
        os.fwrite = full_fwrite;
      } else {
        os.fsync = failing_fsync_errno;
      }
      EXPECT_EQ(-1, w.run());
      os_reset();
      expect_registry_untouched();
      ASSERT_EQ(1u, g_syslog.size());
      EXPECT_NE(std::string::npos, g_syslog[0].find(f.report)) << g_syslog[0];
      EXPECT_NE(std::string::npos, g_syslog[0].find("(" + std::to_string(f.err) + ":" + strerror(f.err) + ")"))
          << g_syslog[0];
    }
  }
}

// A rewrite keeps the registry's mode; the leftovers of killed writers go,
// files of other names stay.
TEST_F(RewriteTest, RewriteKeepsTheModeAndRemovesOnlyLeftovers) {
  ASSERT_EQ(0, chmod(root.path(kShareRegistryPath).c_str(), 0600));
  for (const char* name : {"shareFileEx.ini.tmpAb12Cd", "shareFileEx.ini.del", "tmpAb12Cd",
                           "shareFileEx.ini.tmpAb12Cde", "shareFileEx.ini.old", "share.ini.tmpAb12Cd"}) {
    root.write(std::string("/etc/config/") + name, "left\n");
  }
  EXPECT_EQ(1, refresh_registry());
  struct stat st;
  ASSERT_EQ(0, stat(root.path(kShareRegistryPath).c_str(), &st));
  EXPECT_EQ(0600u, st.st_mode & 07777);
  EXPECT_EQ(getuid(), st.st_uid);
  EXPECT_EQ((std::set<std::string>{"shareFileEx.ini", "shareFileEx.ini.lock", "tmpAb12Cd",
                                   "shareFileEx.ini.tmpAb12Cde", "shareFileEx.ini.old",
                                   "share.ini.tmpAb12Cd"}),
            config_files());
}

}  // namespace
