// The registry's parser corners (fields and share URLs), its writers under injected faults, and
// mode 2's longest lists. Whole files are checked byte for byte in e2e/registry_test.
#include <dirent.h>
#include <sys/stat.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <set>

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

unsigned g_seed = 12345;
unsigned next() { return (g_seed = g_seed * 1103515245u + 12345u) >> 16; }

// get_field scans in place and must agree with strtok_r on a copy, leaving the buffer as it was when
// it fails; FieldReader must give, field after field (now and then one asked again or lower), what
// get_field gives for each.
TEST(GetField, AgreesWithStrtokAndFieldReader) {
  char buf[8] = "keep";
  EXPECT_EQ(-1, get_field(buf, sizeof buf, 1, "a\tb", 3, nullptr));
  EXPECT_EQ(1, get_field(buf, sizeof buf, 3, "a,b;;c", 6, ",;"));  // the delimiter is a set
  EXPECT_STREQ("c", buf);
  for (int round = 0; round < 3000; ++round) {
    std::string line;
    for (unsigned len = next() % 14; len > 0; --len) line += "ab\t,\n"[next() % 5];
    const bool nul = next() % 8 == 0 && !line.empty();
    if (nul) line[next() % line.size()] = '\0';
    const char* delim = (round % 3 == 0) ? "\t," : "\t";
    size_t line_len = line.empty() ? 0 : next() % (line.size() + 1), size = 1 + next() % 4;
    int n = static_cast<int>(next() % 5), expected = 1;
    std::string expected_out, copy = line.substr(0, line_len);
    char* save = nullptr;
    char* tok = line_len == 0 || n == 0 ? nullptr : strtok_r(&copy[0], delim, &save);
    for (int i = 1; i < n && tok != nullptr; ++i) tok = strtok_r(nullptr, delim, &save);
    if (line_len != 0 && n != 0 && (tok == nullptr || strlen(tok) >= size)) expected = -1; else if (tok) expected_out = tok;
    char out[8] = "keep";
    const int got = get_field(out, size, n, line.c_str(), line_len, delim);
    if (!nul) {
      ASSERT_EQ(expected, got) << line << "|" << line_len << " " << n;
      EXPECT_EQ(expected == 1 ? expected_out : "keep", out) << line << "|" << line_len << " " << n;
    }
    FieldReader reader(line.c_str(), line_len, '\t');
    for (int ask = 0, k = -1; ask < 4; ++ask) {
      k = next() % 6 == 0 ? static_cast<int>(next() % 3) - 1 : k + 1 + static_cast<int>(next() % 3);
      size = 1 + next() % 4;
      char want[8] = "x", field[8] = "x";
      ASSERT_EQ(get_field(want, size, k, line.data(), line_len, "\t"), reader.get(field, size, k)) << round << " " << k;
      ASSERT_STREQ(want, field) << round << " " << k;
    }
  }
}

TEST(CountFields, CountsItemsWithOrWithoutTrailingDelimiter) {
  const std::string many(65536, ',');  // the count is 16 bits wide
  const struct { std::string text; size_t len; const char* delim; size_t delim_len; uint16_t count; } cases[] = {
      {"a,b", 3, ",", 1, 2}, {"a,b,", 4, ",", 1, 2}, {",,", 2, ",", 1, 2}, {"one", 3, ",", 1, 1},
      {",", 1, ",", 1, 1},   {"a,,b", 4, ",", 1, 3}, {"a,b", 0, ",", 1, 0}, {"a,b", 3, ",", 0, 0},
      {"a::b", 4, "::", 2, 2}, {many, many.size(), ",", 1, 0}};
  for (const auto& c : cases) {
    uint16_t n = 99;
    const int result = count_fields(&n, c.text.c_str(), c.len, c.delim, c.delim_len);
    EXPECT_EQ(std::make_pair(1, c.count), std::make_pair(result, n)) << c.text.substr(0, 8) << " " << c.len;
  }
}

// replace_field counts empty fields (unlike get_field), drops the newline or trailing delimiter of
// the field it replaces, and writes nothing (the buffer keeps "#") when it cannot.
TEST(ReplaceField, Table) {
  const struct { const char* line; int n; const char* value; size_t size; const char* delim; int result; const char* out; } cases[] = {
      {"id\t\tthird\n", 2, "H", 64, "\t", 1, "id\tH\tthird\n"},
      {"id\t\tthird\n", 3, "T", 64, "\t", 1, "id\t\tT"},
      {"a\tb\t", 1, "X", 64, "\t", 1, "X\tb"},
      {"a\tb\t", 3, "X", 64, "\t", -1, "#"},
      {"a::b::c", 2, "new", 64, "::", 1, "a::new::c"},
      {"a\tb", 1, "", 64, "\t", 1, "#"},
      {"a\tb", 0, "v", 64, "\t", 1, "#"},
      {"", 1, "v", 64, "\t", 1, "#"},
      {"a\tb", 1, "12345", 8, "\t", 1, "12345\tb"},  // exactly size - 1 bytes fit
      {"a\tb", 1, "123456", 8, "\t", kFieldTooLong, "#"},
  };
  for (const auto& c : cases) {
    char buf[64] = "#";
    EXPECT_EQ(c.result, replace_field(buf, c.size, c.value, c.n, c.line, strlen(c.line), c.delim, strlen(c.delim)))
        << c.line << " " << c.n;
    EXPECT_STREQ(c.out, buf) << c.line << " " << c.n;
  }
}

std::vector<std::string> g_syslog;
int g_errno = 0, g_fcloses = 0;
size_t short_fwrite(const void* d, size_t s, size_t n, FILE* f) { return errno = ENOSPC, n > 0 ? fwrite(d, s, n - 1, f) : 0; }
size_t full_fwrite(const void*, size_t, size_t, FILE*) { return errno = g_errno, 0; }
int failing_fsync(int) { return errno = g_errno, -1; }
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
  void TearDown() override { reset(""), set_syslog_report_observer(nullptr); }
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
    while (dirent* e = readdir(d)) if (e->d_name[0] != '.') names.insert(e->d_name);
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
}

// Every writer on a disk that fails (rename, every write, flush or stream check): the rewrite ends
// with one report, the registry stays, no companion is left.
TEST_F(Writers, FailingDiskEndsEachRewriteWithOneReport) {
  const struct { const char* name; int (*run)(); } writers[] = {
      {"refresh", load_registry}, {"mode 2", delete_registry_links}, {"mode 4", rewrite_registry_link}};
  const struct { void (*inject)(); int err; const char* report; } faults[] = {  // report: nullptr, not checked
      {[] { os.rename = [](const char*, const char*) { return errno = EXDEV, -1; }; }, EXDEV, nullptr},
      {[] { os.fwrite = full_fwrite; }, ENOSPC, "][fwrite]data="},
      {[] { os.fwrite = full_fwrite; }, EIO, "][fwrite]data="},
      {[] { os.fsync = failing_fsync; }, ENOSPC, "][fsync]data=/etc/config/shareFileEx.ini."},
      {[] { os.fsync = failing_fsync; }, EIO, "][fsync]data=/etc/config/shareFileEx.ini."},
      {[] { os.ferror = [](FILE*) { return 1; }; }, 0, "][ferror]data="}};
  for (const auto& w : writers) {
    for (const auto& f : faults) {
      SCOPED_TRACE(std::string(w.name) + " " + (f.report ? f.report : "rename") + strerror(f.err));
      reset();
      g_errno = f.err;
      f.inject();
      EXPECT_EQ(-1, w.run());
      const std::vector<std::string> reports = g_syslog;
      reset();
      expect_registry_untouched();
      if (f.report == nullptr) continue;
      ASSERT_EQ(1u, reports.size());
      EXPECT_NE(std::string::npos, reports[0].find(f.report)) << reports[0];
      EXPECT_TRUE(f.err == 0 || reports[0].find("(" + std::to_string(f.err) + ":" + strerror(f.err) + ")") != std::string::npos)
          << reports[0];
      if (w.run == load_registry && strstr(f.report, "fsync") != nullptr) {
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
  want.insert({"shareFileEx.ini", "shareFileEx.ini.lock"});
  EXPECT_EQ(want, config_files());
}

// Mode 2 reaches item 65,535 of a list (the count is 16 bits wide), and a list of commas only has
// no item at all. Shorter lists are checked end to end in e2e/registry_test.
TEST_F(Writers, DeletionsReachTheLastCountedItem) {
  auto url = [](const std::string& i) { return "http://h:1/share.cgi?ssid=" + i; };
  const std::string three = line("K1") + line("K2") + line("K3");
  std::string many;
  for (int i = 0; i < 65534; ++i) many += url("Zz") + ",";
  const struct { std::string list; int result; std::string after; } cases[] = {
      {many + url("K2"), 1, line("K1") + line("K3")}, {std::string(65535, ','), -1, three}};
  for (const auto& c : cases) {
    root.write(kShareRegistryPath, three);
    reset(c.list);
    g_run_context.mode = 2;
    EXPECT_EQ(c.result, delete_registry_links());
    EXPECT_EQ(c.after, root.read(kShareRegistryPath));
    EXPECT_FALSE(root.exists(std::string(kShareRegistryPath) + ".del"));
  }
}

// The URL parser's length limits (the hosts of ordinary URLs, the secure port's effect and the
// never-cleared outputs are pinned by e2e/registry_test's rewrites and deletions).
TEST_F(Writers, ShareUrlLimits) {
  char host[513], ssid[96];
  const struct { std::string url; std::string host, ssid; } cases[] = {
      {"https", "", ""},
      // A host beyond the 511 bytes looked at: no separator, no host.
      {"http://" + std::string(2000, 'h') + ":1/?ssid=" + std::string(300, 'i'), "", std::string(95, 'i')},
      {"http://" + std::string(500, 'h') + ":1/?ssid=x", std::string(500, 'h'), "x"},
  };
  for (const auto& c : cases) {
    memset(host, 0, sizeof host), memset(ssid, 0, sizeof ssid);
    EXPECT_EQ(0, parse_share_url(c.url.c_str(), host, sizeof host, ssid, sizeof ssid)) << c.url.substr(0, 60);
    EXPECT_EQ(c.host, host) << c.url.substr(0, 60);
    EXPECT_EQ(c.ssid, ssid) << c.url.substr(0, 60);
  }
  EXPECT_EQ(-1, parse_share_url("", host, sizeof host, ssid, sizeof ssid));
  EXPECT_EQ(-1, parse_share_url(nullptr, host, sizeof host, ssid, sizeof ssid));
  EXPECT_STREQ("x", ssid);  // nothing written
}

}  // namespace
