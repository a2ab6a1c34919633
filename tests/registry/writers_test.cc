// Registry writers under injected faults, and mode 2's item-by-item matching against a plain model.
// Their ordinary output is checked byte for byte in e2e/registry_test.
#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "diag/syslog_report.h"
#include "platform/os.h"
#include "registry/append.h"
#include "registry/edits.h"
#include "registry/fields.h"
#include "registry/refresh.h"
#include "registry/run_context.h"
#include "registry/share_url.h"
#include "support/appliance.h"

namespace {

std::vector<std::string> g_syslog;
int g_errno = 0, g_fcloses = 0;
size_t short_fwrite(const void* d, size_t s, size_t n, FILE* f) { return errno = ENOSPC, n > 0 ? fwrite(d, s, n - 1, f) : 0; }
size_t full_fwrite(const void*, size_t, size_t, FILE*) { return errno = g_errno, 0; }
int failing_fsync(int) { return errno = g_errno, -1; }
// Fails the write of the line that holds "B2".
size_t failing_line_fwrite(const void* d, size_t s, size_t n, FILE* f) {
  if (n > 0 && memmem(d, n, "B2", 2) != nullptr) return errno = ENOSPC, 0;
  return fwrite(d, s, n, f);
}
std::string line(const std::string& id, const char* path = "a.txt") {
  return id + "\th\t-\t0\t/share/Public/" + path + "\t-\t0\t-\tv\t-\n";
}

class Writers : public ::testing::Test {
 protected:
  void SetUp() override {
    set_syslog_report_observer([](const char* l) { g_syslog.push_back(l); });
    share_url_forget_port();
    root.write("/share/Public/a.txt", "x");
    root.write(kShareRegistryPath, registry);
    reset();
  }
  void TearDown() override {
    os_reset();
    set_syslog_report_observer(nullptr);
    free(g_run_context.edit_input);
    memset(&g_run_context, 0, sizeof g_run_context);
  }
  // A mode-4 (or mode-2) run for A1 unless `list` is given.
  void reset(const std::string& list = "http://h:80/share.cgi?ssid=A1") {
    os_reset();
    g_syslog.clear();
    free(g_run_context.edit_input);
    memset(&g_run_context, 0, sizeof g_run_context);
    g_run_context.edit_input = strdup(list.c_str());
    g_run_context.edit_input_len = static_cast<int32_t>(list.size());
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
  const std::string registry = line("A1") + line("B2") + line("C3", "gone");
};

// Each failing step of an append: its result, one report naming it, and the stream closed exactly
// once whatever failed after the open.
TEST_F(Writers, EachFailingAppendStepIsReportedAndClosesTheStream) {
  root.write("/etc/config/f", "a\n");
  EXPECT_EQ(1, sf_appendData("/etc/config/f", "b\tc\n"));
  EXPECT_EQ(1, sf_appendData("/etc/config/f", ""));
  EXPECT_EQ("a\nb\tc\n", root.read("/etc/config/f"));
  EXPECT_TRUE(g_syslog.empty());
  const struct { void (*inject)(); int result, closes; const char* report; } cases[] = {  // report: whole, or a prefix ending in "("
      {[] { os.fopen = [](const char*, const char*) -> FILE* { return errno = EACCES, nullptr; }; }, -1, 0,
       "ERROR: [sf_appendData][fopen]data=abc(13:Permission denied)(13:Permission denied)"},
      {[] { os.fwrite = short_fwrite; }, -2, 1,
       "ERROR: [sf_appendData][fwrite]data=abc(28:No space left on device)(28:No space left on device)"},
      {[] { os.ferror = [](FILE*) { return 1; }; }, -3, 1, "ERROR: [sf_appendData][ferror]data=abc("},
      {[] { os.fclose = [](FILE* f) { return fclose(f), errno = EIO, -1; }; }, -4, 0,
       "ERROR: [sf_appendData][fclose]data=abc(5:Input/output error)(5:Input/output error)"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.report);
    reset();
    g_fcloses = 0;
    os.fclose = [](FILE* f) { return ++g_fcloses, fclose(f); };
    c.inject();
    EXPECT_EQ(c.result, sf_appendData("/etc/config/f", "abc"));
    EXPECT_EQ(c.closes, g_fcloses);
    ASSERT_EQ(1u, g_syslog.size());
    const std::string want = c.report;
    EXPECT_EQ(want, want.back() == '(' ? g_syslog[0].substr(0, want.size()) : g_syslog[0]);
  }
  // The stream appender reports like the file appender.
  reset();
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
  EXPECT_EQ("ERROR: [sf_appendData][fwrite]data=lost\n(28:No space left on device)(28:No space left on device)",
            g_syslog[0]);
  EXPECT_EQ(0u, g_syslog[1].find("ERROR: [sf_appendData][ferror]data=flag\n("));
}

// Every writer on a disk that fails (rename, a line's write, every write or flush): the rewrite
// ends with one report, the registry stays, no companion is left.
TEST_F(Writers, FailingDiskEndsEachRewriteWithOneReport) {
  const struct { const char* name; int (*run)(); } writers[] = {
      {"refresh", load_registry}, {"mode 2", delete_registry_links}, {"mode 4", rewrite_registry_link}};
  for (const auto& w : writers) {
    SCOPED_TRACE(w.name);
    os.rename = [](const char*, const char*) { return errno = EXDEV, -1; };
    EXPECT_EQ(-1, w.run());
    reset();
    expect_registry_untouched();
  }
  os.fwrite = failing_line_fwrite;
  EXPECT_EQ(-1, load_registry());
  expect_registry_untouched();
  ASSERT_EQ(1u, g_syslog.size());
  EXPECT_EQ("ERROR: [sf_appendData][fwrite]data=" + line("B2") + "(28:No space left on device)(28:No space left on device)",
            g_syslog[0]);
  const struct { bool on_write; int err; const char* report; } faults[] = {
      {true, ENOSPC, "][fwrite]data="}, {true, EIO, "][fwrite]data="},
      {false, ENOSPC, "][fsync]data=/etc/config/shareFileEx.ini."}, {false, EIO, "][fsync]data=/etc/config/shareFileEx.ini."}};
  for (const auto& w : writers) {
    for (const auto& f : faults) {
      SCOPED_TRACE(std::string(w.name) + (f.on_write ? " write " : " fsync ") + strerror(f.err));
      reset();
      g_errno = f.err;
      if (f.on_write) os.fwrite = full_fwrite; else os.fsync = failing_fsync;
      EXPECT_EQ(-1, w.run());
      const std::vector<std::string> reports = g_syslog;
      reset();
      expect_registry_untouched();
      ASSERT_EQ(1u, reports.size());
      EXPECT_NE(std::string::npos, reports[0].find(f.report)) << reports[0];
      EXPECT_NE(std::string::npos, reports[0].find("(" + std::to_string(f.err) + ":" + strerror(f.err) + ")")) << reports[0];
      if (w.run == load_registry && !f.on_write) {
        EXPECT_EQ(0u, reports[0].find("ERROR: [load_registry][fsync]data=/etc/config/shareFileEx.ini.tmp"));
      }
    }
  }
}

// A rewrite keeps the registry's mode; the leftovers of killed writers go, other names stay.
TEST_F(Writers, RewriteKeepsTheModeAndRemovesOnlyLeftovers) {
  ASSERT_EQ(0, chmod(root.path(kShareRegistryPath).c_str(), 0600));
  std::set<std::string> want = {"tmpAb12Cd", "shareFileEx.ini.tmpAb12Cde", "shareFileEx.ini.old", "share.ini.tmpAb12Cd"};
  for (const std::string& name : want) root.write("/etc/config/" + name, "left\n");
  for (const char* name : {"shareFileEx.ini.tmpAb12Cd", "shareFileEx.ini.del"}) root.write(std::string("/etc/config/") + name, "left\n");
  EXPECT_EQ(1, refresh_registry());
  EXPECT_EQ(line("A1") + line("B2"), root.read(kShareRegistryPath));
  struct stat st;
  ASSERT_EQ(0, stat(root.path(kShareRegistryPath).c_str(), &st));
  EXPECT_EQ(0600u, st.st_mode & 07777);
  EXPECT_EQ(getuid(), st.st_uid);
  want.insert({"shareFileEx.ini", "shareFileEx.ini.lock"});
  EXPECT_EQ(want, config_files());
}

// Mode 2 against a plain model of it: for every line, every item parsed again in turn over the same
// never-cleared host and id until one id matches. Lists whose ids have one length and lists with
// mixed lengths, items without an id and repeats must give the model's registry and RunContext.
struct Outcome { std::string registry, host, ssid; };  // host, ssid: the whole buffers, tails included

Outcome model(const std::string& registry, const std::string& list) {
  char host[sizeof g_run_context.url_host] = {}, ssid[sizeof g_run_context.ssid] = {};
  uint16_t n = 0;
  count_fields(&n, list.c_str(), list.size(), ",", 1);
  Outcome o;
  for (size_t start = 0, end; start < registry.size(); start = end) {
    end = registry.find('\n', start) + 1;
    const std::string l = registry.substr(start, end - start);
    char id[256], item[256];
    EXPECT_EQ(1, get_field(id, sizeof id, 1, l.c_str(), l.size(), "\t"));
    for (uint16_t i = 1; i <= n; ++i) {
      EXPECT_EQ(1, get_field(item, sizeof item, i, list.c_str(), list.size(), ","));
      parse_share_url(item, host, sizeof host, ssid, sizeof ssid);
      if (strcmp(id, ssid) == 0) break;
      if (i == n) o.registry += l;
    }
  }
  o.host.assign(host, sizeof host);
  o.ssid.assign(ssid, sizeof ssid);
  return o;
}

TEST_F(Writers, DeletionsMatchTheModelAndRefuseUnreadableLists) {
  auto run = [&](const std::string& text, const std::string& list, Outcome* o) {
    root.remove(std::string(kShareRegistryPath) + ".del");
    root.write(kShareRegistryPath, text);
    reset(list);
    g_run_context.mode = 2;
    os.fsync = [](int) { return 0; };  // hundreds of rewrites; durability is not the point here
    int rc = delete_registry_links();
    o->registry = root.read(kShareRegistryPath);
    o->host.assign(g_run_context.url_host, sizeof g_run_context.url_host);
    o->ssid.assign(g_run_context.ssid, sizeof g_run_context.ssid);
    return rc;
  };
  std::mt19937 rng{20261122};
  // Ids from "ab" collide and share prefixes; length 0 means 1 to 3 letters.
  auto id = [&](size_t len) {
    std::string s;
    for (size_t i = 0, n = len ? len : 1 + rng() % 3; i < n; ++i) s += "ab"[rng() % 2];
    return s;
  };
  static const char* const kPrefixes[] = {"http://10.0.0.1:8080/share.cgi?", "https://nas/share.cgi?",
                                          "https://nas.example.com:8443/share.cgi?fid=3&", "http://host.example.com:80/share.cgi?"};
  Outcome got;
  for (size_t id_len : {3, 0}) {
    for (int round = 0; round < 100; ++round) {
      std::string list, text;
      for (int i = 0, items = 1 + static_cast<int>(rng() % 6); i < items; ++i) {
        const std::string ssid = id(id_len);
        list += (i ? "," : "") + std::string(kPrefixes[rng() % 4]) + (id_len != 0 || rng() % 5 != 0 ? "ssid=" : "fid=") + ssid;
      }
      for (int i = 0, lines = 1 + static_cast<int>(rng() % 12); i < lines; ++i) text += line(id(id_len));
      Outcome want = model(text, list);
      ASSERT_EQ(1, run(text, list, &got)) << list;
      ASSERT_EQ(want.registry, got.registry) << list;
      ASSERT_EQ(want.host, got.host) << list;
      ASSERT_EQ(want.ssid, got.ssid) << list;
    }
  }
  auto url = [](const std::string& i) { return "http://h:1/share.cgi?ssid=" + i; };
  const std::string three = line("K1") + line("K2") + line("K3");
  std::string list;
  for (int i = 0; i < 65534; ++i) list += url("Zz") + ",";
  EXPECT_EQ(1, run(three, list + url("K2"), &got));  // item 65,535 is reached
  EXPECT_EQ(line("K1") + line("K3"), got.registry);
  // A longer id written first keeps its tail under a shorter one, which then never matches its line.
  EXPECT_EQ(1, run(line("ab") + line("abb"), url("abb") + "," + url("ab"), &got));
  EXPECT_EQ(line("ab"), got.registry);
  EXPECT_EQ(1, run(three, url("K1") + "," + url("K2") + "," + url(std::string(220, 'x')) + "," + url("K3"), &got));
  EXPECT_EQ(line("K3"), got.registry);
  // Commas only: no item at all. An empty item does not count, so the last counted item is missing
  // (K1 matches before it is needed, K2 reaches it). An item of 256 bytes cannot be read.
  for (const std::string& bad : {std::string(65535, ','), url("K3") + ",," + url("K1"),
                                 url("K1") + "," + url(std::string(250, 'x')) + "," + url("K3")}) {
    EXPECT_EQ(-1, run(three, bad, &got)) << bad.substr(0, 80);
    EXPECT_EQ(three, got.registry);
  }
  EXPECT_EQ("", root.read(std::string(kShareRegistryPath) + ".del"));
}

}  // namespace
