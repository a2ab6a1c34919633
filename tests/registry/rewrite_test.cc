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
int g_errno = 0;
int failing_rename(const char*, const char*) { return errno = EXDEV, -1; }
size_t full_fwrite(const void*, size_t, size_t, FILE*) { return errno = g_errno, 0; }
int failing_fsync(int) { return errno = g_errno, -1; }
// Fails the write of the line that holds "B2".
size_t failing_line_fwrite(const void* d, size_t s, size_t n, FILE* f) {
  if (n > 0 && memmem(d, n, "B2", 2) != nullptr) return errno = ENOSPC, 0;
  return fwrite(d, s, n, f);
}

struct Writer {
  const char* name;
  int (*run)();
};
const Writer kWriters[] = {{"refresh", load_registry}, {"mode 2", delete_registry_links}, {"mode 4", rewrite_registry_link}};

class RewriteTest : public ::testing::Test {
 protected:
  void SetUp() override {
    set_syslog_report_observer([](const char* line) { g_syslog.push_back(line); });
    share_url_forget_port();
    root.write("/share/Public/a.txt", "x");
    root.write(kShareRegistryPath, registry);
    reset();
  }
  void TearDown() override {
    os_reset();
    set_syslog_report_observer(nullptr);
    memset(&g_run_context, 0, sizeof g_run_context);
  }
  void reset() {
    static char input[] = "http://h:80/share.cgi?ssid=A1";
    os_reset();
    g_syslog.clear();
    memset(&g_run_context, 0, sizeof g_run_context);
    g_run_context.edit_input = input;
    g_run_context.edit_input_len = static_cast<int32_t>(strlen(input));
    g_run_context.new_expire = 1;
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
  // The registry as it was, next to its lock file and nothing else.
  void expect_registry_untouched() {
    EXPECT_EQ(registry, root.read(kShareRegistryPath));
    EXPECT_EQ((std::set<std::string>{"shareFileEx.ini", "shareFileEx.ini.lock"}), config_files());
  }

  ApplianceRoot root;
  ScopedEnv env{{{"SHARELINK_ROOT", root.dir()}}};
  // The third line is stale, so a refresh would change the file.
  const std::string registry =
      "A1\th\t-\t0\t/share/Public/a.txt\t-\t0\t-\tv\t-\n"
      "B2\th\t-\t0\t/share/Public/a.txt\t-\t0\t-\tv\t-\n"
      "C3\th\t-\t0\t/share/Public/gone\t-\t0\t-\tv\t-\n";
};

TEST_F(RewriteTest, FailedRenameOrLineWriteLeavesNothingBehind) {
  for (const Writer& w : kWriters) {
    SCOPED_TRACE(w.name);
    os.rename = failing_rename;
    EXPECT_EQ(-1, w.run());
    reset();
    expect_registry_untouched();
  }
  os.fwrite = failing_line_fwrite;
  EXPECT_EQ(-1, load_registry());
  expect_registry_untouched();
  ASSERT_EQ(1u, g_syslog.size());
  EXPECT_EQ("ERROR: [sf_appendData][fwrite]data=" + registry.substr(registry.find("B2"), registry.find("C3") - registry.find("B2")) +
                "(28:No space left on device)(28:No space left on device)",
            g_syslog[0]);
}

// Every writer on a disk that fails: the first failed write or flush ends
// the rewrite with one report, the registry stays, no companion is left.
TEST_F(RewriteTest, FailingDiskEndsEachRewriteWithOneReport) {
  struct Fault {
    bool on_write;
    int err;
    const char* report;
  };
  const Fault faults[] = {{true, ENOSPC, "][fwrite]data="},
                          {true, EIO, "][fwrite]data="},
                          {false, ENOSPC, "][fsync]data=/etc/config/shareFileEx.ini."},
                          {false, EIO, "][fsync]data=/etc/config/shareFileEx.ini."}};
  for (const Writer& w : kWriters) {
    for (const Fault& f : faults) {
      SCOPED_TRACE(std::string(w.name) + (f.on_write ? " write " : " fsync ") + strerror(f.err));
      g_errno = f.err;
      if (f.on_write) {
        os.fwrite = full_fwrite;
      } else {
        os.fsync = failing_fsync;
      }
      EXPECT_EQ(-1, w.run());
      const std::vector<std::string> reports = g_syslog;
      reset();
      expect_registry_untouched();
      ASSERT_EQ(1u, reports.size());
      EXPECT_NE(std::string::npos, reports[0].find(f.report)) << reports[0];
      EXPECT_NE(std::string::npos, reports[0].find("(" + std::to_string(f.err) + ":" + strerror(f.err) + ")"))
          << reports[0];
      if (w.run == load_registry && !f.on_write) {
        EXPECT_EQ(0u, reports[0].find("ERROR: [load_registry][fsync]data=/etc/config/shareFileEx.ini.tmp"));
      }
    }
  }
}

// A rewrite keeps the registry's mode; the leftovers of killed writers go,
// files of other names stay.
TEST_F(RewriteTest, RewriteKeepsTheModeAndRemovesOnlyLeftovers) {
  ASSERT_EQ(0, chmod(root.path(kShareRegistryPath).c_str(), 0600));
  const std::set<std::string> others = {"tmpAb12Cd", "shareFileEx.ini.tmpAb12Cde", "shareFileEx.ini.old",
                                        "share.ini.tmpAb12Cd"};
  for (const char* name : {"shareFileEx.ini.tmpAb12Cd", "shareFileEx.ini.del"}) {
    root.write(std::string("/etc/config/") + name, "left\n");
  }
  for (const std::string& name : others) root.write("/etc/config/" + name, "left\n");
  EXPECT_EQ(1, refresh_registry());
  EXPECT_EQ(registry.substr(0, registry.rfind("C3")), root.read(kShareRegistryPath));
  struct stat st;
  ASSERT_EQ(0, stat(root.path(kShareRegistryPath).c_str(), &st));
  EXPECT_EQ(0600u, st.st_mode & 07777);
  EXPECT_EQ(getuid(), st.st_uid);
  std::set<std::string> want = others;
  want.insert({"shareFileEx.ini", "shareFileEx.ini.lock"});
  EXPECT_EQ(want, config_files());
}

}  // namespace
