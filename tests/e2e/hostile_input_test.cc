// Hostile command lines and a disk that cannot grow: documented status, nothing outside the root, data intact.
#include <ftw.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <ostream>
#include <regex>
#include <set>
#include <string>
#include <vector>

#include "support/appliance.h"
#include "support/store_fixture.h"

namespace {

const char kRegistry[] = "/etc/config/shareFileEx.ini";
const char kSentinelMark[] = "@SENTINEL@";
constexpr size_t kMaxArg = 128 * 1024 - 1;

std::string line(const std::string& id, const std::string& path, const std::string& expiry = "0",
                 const std::string& host = "nas", const std::string& value = "v9") {
  return id + "\t" + host + "\tf3\t0\t" + path + "\tf6\t" + expiry + "\tf8\t" + value + "\tf10\n";
}
std::string repeat(const std::string& unit, size_t size) {
  std::string s;
  while (s.size() + unit.size() <= size) s += unit;
  return s;
}

const std::string kUtf8 = "\xff\xfe\xc0\xaf\xed\xa0\x80\xf8\x88\x80\x80\x80 \x80";  // invalid
const std::string kCrLf = "a\r\nBcc: victim@example.org\r\n\r\nbody";
const std::string kDollar = "$MAIL_TO$ $CONTENT$ $$ $ $HOME ${PATH}";
const std::string kShell = "$(touch @SENTINEL@) `touch @SENTINEL@`; touch @SENTINEL@ | touch @SENTINEL@";
const std::string kFormat = "%s%s%n%x%p%999999d";
const std::string kSql = "x' OR 1=1; DROP TABLE SHARELINK_EVENT; --";
const std::string kBig = repeat(kUtf8 + kCrLf + kDollar + kShell + kFormat + kSql + ",", kMaxArg);
const std::string kHost = "https://HOSTNAME/share.cgi?ssid=AbC";

struct Case {
  const char* name;
  std::vector<std::string> args;
  int status, messages = 0;      // exit status; mails handed to the mail program
  const char* expiry = nullptr;  // null: registry unchanged; "": emptied; else AbC rewritten with this expiry
  bool may_leave_del = false;    // mode 2 stopped by an unreadable URL item
};
void PrintTo(const Case& c, std::ostream* os) { *os << c.name; }

const std::vector<Case> kCases = {
    {"no_mode", {}, 1}, {"empty_mode", {""}, 0}, {"mode_beyond_32_bits", {"4294967297", "x"}, 0},
    {"mode_beyond_64_bits", {"99999999999999999999999", "x"}, 0}, {"negative_mode", {"-1"}, 0},
    {"mode_7", {"7", "a", "b"}, 0}, {"mode_invalid_utf8", {kUtf8}, 0}, {"mode_huge", {repeat("9", kMaxArg)}, 0},
    {"mode_shell", {kShell}, 0}, {"mail_no_arguments", {"1"}, 3},
    {"mail_eight_elements", {"1", "1", "0", "AbC", "a@b.example", "s", "m"}, 3},
    {"mail_empty_strings", {"1", "", "", "", "", "", "", ""}, 2},
    {"mail_recipient_without_at", {"1", "1", "0", "AbC", "nobody", "s", "m", "----"}, 2},
    {"mail_recipient_crlf_without_at", {"1", "1", "0", "AbC", "x\r\ny", "s", "m", "----"}, 2},
    {"mail_only_at", {"1", "", "", "", "@", "", "", "", ""}, 0},
    {"mail_only_commas", {"1", "3", "0", ",,,,,", "a@b.example", "s", "m", "----"}, 0},
    {"mail_many_commas", {"1", "3", "0", repeat(",", kMaxArg), "a@b.example", "s", "m", "l"}, 0},
    {"mail_negative_count", {"1", "-5", "-1", "AbC", "a@b.example", "s", "m", "----"}, 0, 1},
    {"mail_count_beyond_32_bits",
     {"1", "4294967297", "99999999999", "AbC,DeF", "a@b.example", "s", "m", "l1", "l2"}, 0, 1},
    {"mail_unknown_and_long_ids",
     {"1", "2", "0", "Nope," + std::string(300, 'i'), "a@b.example", "s", "m", "----"}, 0},
    {"mail_null_items", {"1", "2", "1", "NULL,AbC,NULL", "a@b.example", "s", "m", "l1", "l2"}, 0, 1},
    {"mail_crlf_and_dollar", {"1", "1", "1", "AbC", "a@b.example,\r\n" + kCrLf + "@x", kCrLf + kDollar,
                              kDollar + kCrLf, kDollar, kCrLf, "personal\r\n", "root\r\nBcc: v@example.org", kCrLf},
     0, 3},
    {"mail_invalid_utf8",
     {"1", "1", "0", "AbC", kUtf8 + "@" + kUtf8, kUtf8, kUtf8, kUtf8, kUtf8, kUtf8, kUtf8, kUtf8}, 0, 1},
    {"mail_shell_and_format", {"1", "1", "0", "AbC", "a@b.example", kShell + kFormat, kShell, kFormat, kShell, kFormat,
                              kShell, kShell + "@x"}, 0, 1},
    {"mail_none_at_none", {"1", "1", "0", "AbC", "none@none", kBig, kBig, kBig}, 0},
    {"mail_one_mebibyte", {"1", "3", "1", "NULL,AbC,DeF", repeat("a@b.example,", kMaxArg), kBig, kBig, kBig, kBig,
                          kBig, kBig, kBig + "@x"}, 0, 20},
    {"delete_no_arguments", {"2"}, 4}, {"delete_empty_list", {"2", ""}, 0, 0, ""},
    {"delete_without_ssid", {"2", "https://nas/share.cgi?id=AbC,http://nas:80/x"}, 0},
    {"delete_ssid_of_nothing", {"2", "https://nas/share.cgi?ssid="}, 0},
    {"delete_only_commas", {"2", ",,,,"}, 0, 0, nullptr, true},
    {"delete_many_commas", {"2", repeat(",", kMaxArg)}, 0, 0, nullptr, true},
    {"delete_huge_url", {"2", "https://" + repeat("h", kMaxArg - 40) + "/share.cgi?ssid=AbCx"}, 0, 0, nullptr, true},
    {"delete_huge_id", {"2", "http://nas:80/share.cgi?ssid=" + repeat("AbC", kMaxArg - 40)}, 0, 0, nullptr, true},
    {"delete_hostile_texts", {"2", kUtf8 + "," + kCrLf + "," + kDollar + "," + kShell + "," + kFormat + "ssid=Q"}, 0},
    {"delete_extra_arguments", {"2", "http://nas:80/x?ssid=Nope", "x", "y", "z"}, 0},
    {"delete_big_mixed", {"2", kBig}, 0, 0, nullptr, true}, {"list_no_options", {"3"}, 0},
    {"list_unknown_option", {"3", "-x"}, 1}, {"list_missing_value", {"3", "-u"}, 1},
    {"list_empty_values", {"3", "-m", "", "-s", "", "-n", "", "-u", "", "-f", ""}, 0},
    {"list_sort_minus_one", {"3", "-m", "-1", "-n", "10", "-u", "ann"}, 0},
    {"list_sort_38", {"3", "-m", "38", "-n", "10", "-u", "ann"}, 0},
    {"list_negative_start_and_size", {"3", "-s", "-5", "-n", "-10", "-u", "ann"}, 0},
    {"list_negative_start", {"3", "-s", "-2147483648", "-n", "10", "-u", "ann"}, 0},
    {"list_numbers_beyond_32_bits",
     {"3", "-m", "4294967302", "-s", "4294967296", "-n", "99999999999", "-u", "ann"}, 0},
    {"list_size_int_max", {"3", "-s", "2147483647", "-n", "2147483647", "-u", "ann"}, 0},
    {"list_hostile_user_and_filter", {"3", "-n", "5", "-u", kSql + kCrLf + kDollar, "-f", kSql + "%_" + kShell}, 0},
    {"list_invalid_utf8", {"3", "-n", "5", "-u", kUtf8, "-f", kUtf8}, 0},
    {"list_huge_values", {"3", "-n", "5", "-u", kBig, "-f", kBig}, 0},
    {"list_stray_argument", {"3", "stray", "-n", "1", "-u", "ann"}, 0}, {"rewrite_no_arguments", {"4"}, 0},
    {"rewrite_empty_strings", {"4", "", "", "", ""}, 0},
    {"rewrite_without_ssid", {"4", "v", "1", "https://nas/share.cgi?id=AbC", "0"}, 0},
    {"rewrite_unknown_id", {"4", kCrLf, "1", "https://nas/share.cgi?ssid=Nope", "99999999999"}, 0},
    {"rewrite_huge_arguments", {"4", kBig, "4294967297", "https://nas/share.cgi?ssid=" + repeat("Q", kMaxArg - 40),
                               repeat("9", kMaxArg)}, 0},
    {"rewrite_hostile_url", {"4", "", "1", kShell + kFormat + kUtf8, "-1"}, 0},
    {"rewrite_expiry_beyond_32_bits", {"4", "", "0", kHost, "99999999999"}, 0, 0, "1215752191"},
    {"rewrite_value_with_crlf_and_dollar", {"4", "x\r\n$y$", "0", kHost}, 0, 0, "0"},
    {"rewrite_negative_expiry", {"4", "", "-7", kHost, "-5"}, 0, 0, "-5"},
};

// Every path under dir, relative to it.
std::set<std::string> walk(const std::string& dir) {
  static std::set<std::string> found;
  static size_t prefix;
  found.clear(); prefix = dir.size();
  nftw(dir.c_str(), [](const char* p, const struct stat*, int, FTW*) { return found.insert(p + prefix), 0; }, 16,
       FTW_PHYS);
  return found;
}

// The whole store, schema and rows.
std::string store_dump(const ApplianceRoot& root) {
  return run_program("/usr/bin/sqlite3", {store_file(root), ".dump"}, root).out;
}

class HostileInput : public ::testing::TestWithParam<Case> {
 protected:
  void SetUp() override {
    root.write("/share/Public/a.txt", "a"); root.write("/share/Public/b.txt", "b");
    root.write(kRegistry, registry); root.write("/tmp/.kdx_sf_clean_flag", ""); root.mkdirs("/home/tester");
    root.mkdirs("/tmpdir"); root.mkdirs("/var/mail");
    root.write("/etc/config/Korvix.conf", "[System]\nWeb Access Port = 8080\n[Alert]\nSMTP Server = 127.0.0.1\n"
                                          "SMTP Enable = TRUE\nSender = alert@nas.example\n");
    root.write("/etc/config/ssmtp/ssmtp.conf", "AuthUser = mailer\n");
    root.write("/home/httpd/cgi-bin/html/email.tpl",
               "To: $MAIL_TO$\nFrom: $MAIL_FROM$\nSubject: $MAIL_SUBJECT$\nContent-Type: text/html; charset=UTF-8\n\n"
               "<p>$MAIL_SUBJECT_TXT$</p>\n$CONTENT$\n<p>$YEAR$ $VEXA$ $UNKNOWN$</p>\n");
    root.script("/usr/sbin/sendmail", "n=$(ls \"$SHARELINK_ROOT/var/mail\" | wc -l)\n"
                                      "cat > \"$SHARELINK_ROOT/var/mail/msg.$n\"\n"
                                      "printf '%s\\n' \"$@\" > \"$SHARELINK_ROOT/var/mail/args.$n\"\n");
    make_store(root, true, true);
    FixtureLink a("AbC"), d("DeF"), m("MiR");
    a.sharefile = m.sharefile = "/share/Public/a.txt"; a.link_name = "a.txt";
    m.link_name = "report"; m.creator = "Mirra:ann";
    d.sharefile = "/share/Public/b.txt"; d.ssl = 1; d.expire = 2000000000;
    insert_links(root, {a, d, m});
    insert_fids(root, {{"AbC", "1", "/share/Public/a.txt"}, {"MiR", "1", "/share/Public/a.txt"}});
    insert_users(root, {{"AbC", "bob", "", "bob@example.org"}});
    store = store_dump(root);
    ASSERT_NE(std::string::npos, store.find("'MiR'")) << store;
  }

  ApplianceRoot root, outside;
  const std::string rest = line("DeF", "/share/Public/b.txt", "4000000000") + line("GhI", "/share/Public/a.txt", "-5");
  const std::string registry = line("AbC", "/share/Public/a.txt") + rest;
  std::string store;
};

TEST_P(HostileInput, EndsWithItsStatusAndChangesOnlyWhatItMay) {
  const Case& c = GetParam();
  const std::string sentinel = outside.dir() + "/sentinel";
  std::vector<std::string> args;
  for (std::string a : c.args) {
    const size_t size = a.size();
    for (size_t at = a.find(kSentinelMark); at != std::string::npos; at = a.find(kSentinelMark, at + sentinel.size())) {
      a.replace(at, strlen(kSentinelMark), sentinel);
    }
    args.push_back(a.substr(0, size > kMaxArg - 64 ? kMaxArg : std::string::npos));
  }
  const std::set<std::string> outside_before = walk(outside.dir()), before = walk(root.dir());
  RunResult r =
      run_program(tool_binary(), args, root, {{"HOME", root.path("/home/tester")}, {"TMPDIR", root.path("/tmpdir")}});
  EXPECT_EQ(c.status, r.status) << r.err.substr(0, 4000);
  EXPECT_TRUE(r.err.find("Sanitizer") == std::string::npos && r.err.find("runtime error") == std::string::npos)
      << r.err.substr(0, 4000);
  if (!args.empty() && args[0] == "3" && !r.out.empty()) {
    EXPECT_EQ('\n', r.out.back()); EXPECT_NE(std::string::npos, r.out.rfind("\t<ret>")) << r.out.substr(0, 2000);
  } else {
    EXPECT_EQ("", r.out.substr(0, 2000));
  }
  EXPECT_NE(0, access(sentinel.c_str(), F_OK)) << "the sentinel outside the root was created";
  EXPECT_EQ(outside_before, walk(outside.dir()));

  const std::set<std::string> after = walk(root.dir());
  const std::set<std::string> may_appear = {"/tmp/parceldeck.log", "/tmp/parceldeck.log.old", "/tmp/kdx_shareLink.lock",
      "/tmp/kdx_shareLink_flock.lock", "/tmp/.kdx_sf_clean_flag", "/etc/config/shareFileEx.ini.lock",
      c.may_leave_del ? "/etc/config/shareFileEx.ini.del" : ""};
  int messages = 0;
  for (const auto& p : after) {
    EXPECT_TRUE(before.count(p) || may_appear.count(p) || p.compare(0, 10, "/var/mail/") == 0) << "new file " << p;
    if (p.compare(0, 14, "/var/mail/msg.") != 0) continue;
    ++messages;
    const std::string msg = root.read(p), head = msg.substr(0, msg.find("\n\n"));
    EXPECT_TRUE(std::regex_match(head, std::regex("To: [^\r\n]*\nFrom: [^\r\n]*\nSubject: =\\?UTF-8\\?B\\?[^\r\n]*\n"
                                                  "Content-Type: text/html; charset=UTF-8")))
        << head.substr(0, 2000);
  }
  for (const auto& p : before) EXPECT_TRUE(after.count(p)) << "file vanished: " << p;
  EXPECT_EQ(c.messages, messages); EXPECT_TRUE(store_dump(root) == store) << store_dump(root).substr(0, 2000);
  const std::string expected = c.expiry == nullptr ? registry
                               : c.expiry[0] == '\0' ? ""
                                                     : line("AbC", "/share/Public/a.txt", c.expiry) + rest;
  EXPECT_TRUE(root.read(kRegistry) == expected) << root.read(kRegistry).substr(0, 2000);
}

INSTANTIATE_TEST_SUITE_P(AllModes, HostileInput, ::testing::ValuesIn(kCases),
                         [](const ::testing::TestParamInfo<Case>& info) { return info.param.name; });


const char kA[] = "/share/VOL1/Public/a.txt";

// A tab, CR or LF in a mode-4 value, host or expiry would split the line: the registry stays byte for byte and
// one line is logged. A mode-2 id holding one matches nothing. Clean values land.
TEST(RegistryValues, BadOnesAndADiskThatCannotGrowChangeNothing) {
  ApplianceRoot root;
  root.write("/share/VOL1/Public/a.txt", "inside\n");  // lines of missing files are dropped
  const std::string registry = line("AbC", kA) + line("Ab\r", kA, "0", "nas", "v");
  const std::string url = "https://nas.example/share.cgi?ssid=AbC";
  const std::vector<std::vector<std::string>> runs = {
      {"4", "x\ty", "0", url}, {"4", "x\ry", "0", url}, {"4", "x\ny", "1", url, "0"},
      {"4", "", "0", "http://na\ts:80/share.cgi?ssid=AbC"}, {"4", "", "0", "http://na\ns:80/share.cgi?ssid=AbC"},
      {"4", "", "0", url, "5\n"}, {"4", "", "0", url, "\t5"},
      {"2", "http://h:1/share.cgi?ssid=Ab\r"}, {"2", "http://h:1/share.cgi?ssid=AbC\n"}};
  for (const auto& args : runs) {
    SCOPED_TRACE(args[0] + " " + args[1] + " " + args[3 % args.size()]);
    root.write(kRegistry, registry); root.remove("/tmp/parceldeck.log");
    EXPECT_EQ(0, run_program(tool_binary(), args, root).status); EXPECT_EQ(registry, root.read(kRegistry));
    std::string log = root.exists("/tmp/parceldeck.log") ? root.read("/tmp/parceldeck.log") : "";
    if (args[0] == "4") { EXPECT_EQ(1, std::count(log.begin(), log.end(), '\n')) << log; }
  }
  root.write(kRegistry, registry); run_program(tool_binary(), {"4", "xy", "0", url, "0"}, root);
  EXPECT_EQ(line("AbC", kA, "0", "nas.example", "xy") + registry.substr(line("AbC", kA).size()), root.read(kRegistry));
  // With every write of the new registry failing (EFBIG under a file-size limit, SIGXFSZ ignored) each writer
  // stops at the first failure with one report, keeps the registry and leaves no companion behind.
  std::string big;
  for (int i = 0; i < 3000; ++i) big += line("L" + std::to_string(100000 + i), kA);
  const std::string asan = getenv("ASAN_OPTIONS") ? getenv("ASAN_OPTIONS") : "";
  for (std::vector<std::string> args : std::vector<std::vector<std::string>>{{"9"},
           {"2", "http://h:1/share.cgi?ssid=L100001"}, {"4", "new", "0", "https://HOSTNAME/share.cgi?ssid=L100002"}}) {
    SCOPED_TRACE(args[0]);
    root.write(kRegistry, big); root.remove("/tmp/syslog.log");
    args.insert(args.begin(), {"--fsize=65536", "--", "/bin/sh", "-c", "trap '' XFSZ; exec \"$0\" \"$@\"",
                               tool_binary()});
    RunResult r = run_program("/usr/bin/prlimit", args, root, {{"LD_PRELOAD", SLT_TEST_SYSLOG_LIB},
                                                               {"ASAN_OPTIONS", asan + ":verify_asan_link_order=0"}});
    EXPECT_EQ(0, r.status) << r.err; EXPECT_TRUE(root.read(kRegistry) == big);
    const std::string log = root.exists("/tmp/syslog.log") ? root.read("/tmp/syslog.log") : "";
    EXPECT_NE(std::string::npos, log.find("ERROR: ")) << log.substr(0, 600);
    EXPECT_EQ(log.find("ERROR: "), log.rfind("ERROR: ")) << log.substr(0, 600);  // one report (its line has a LF)
    EXPECT_NE(std::string::npos, log.find("(27:File too large)")) << log.substr(0, 600);
    EXPECT_EQ("shareFileEx.ini\nshareFileEx.ini.lock\n", run_program("/bin/ls", {"-A", root.path("/etc/config")}, root).out);
  }
}

// Terminal controls in stored rows and in a visitor's link key reach the operator's terminal only as escapes:
// C1 as characters and as raw bytes (U+009B alone starts an escape sequence), bidi overrides, tags, ESC, DEL.
TEST(OperatorOutput, StoredAndVisitorTextsPrintAsEscapes) {
  ApplianceRoot root;
  root.write("/etc/config/smb.conf", "[Public]\npath = /share/VOL1/Public\n");
  ASSERT_EQ(0, run_program(ctl_binary(), {"init"}, root).status);
  const std::string hostile = "a\xc2\x9b" "31m\xe2\x80\xae" "b\x1b[2J\x9b\x7f\\\t\xe2\x81\xa6\xf3\xa0\x80\x81"
                              "\xef\xbb\xbf\xc3\xa9\xe2\x80\x8b";
  const std::string shown = "a\\u009b31m\\u202eb\\x1b[2J\\x9b\\x7f\\\\\\t\\u2066\\U000e0001\\ufeff\xc3\xa9\\u200b";
  ASSERT_EQ(0, run_program(ctl_binary(), {"add", "k" + hostile, "/Public/x" + hostile, "--creator", hostile,
                                          "--link-name", hostile, "--host", "nas" + hostile}, root).status);
  EXPECT_EQ("k" + shown + "\t" + shown + "\t0\t/Public/x" + shown + "\t" + shown + "\n",
            run_program(ctl_binary(), {"list"}, root).out);
  EXPECT_EQ("http://nas" + shown + ":8080/share.cgi?ssid=k" + shown + "\n",
            run_program(ctl_binary(), {"url", "k" + hostile}, root).out);
  root.mkdirs("/share/VOL1/Public/gpj\xe2\x80\xae\xc2\x9b\x1b.exe");  // a backslash would not resolve
  EXPECT_EQ("/share/VOL1/Public/gpj\\u202e\\u009b\\x1b.exe\n1\n",
            run_program(ctl_binary(), {"resolve", "/Public/gpj\xe2\x80\xae\xc2\x9b\x1b.exe"}, root).out);
  std::string query = "ssid=";  // what an anonymous visitor sends
  const char* hex = "0123456789ABCDEF";
  for (unsigned char c : hostile) query += "%" + std::string(1, hex[c >> 4]) + hex[c % 16];
  run_program(SLT_BUILD_DIR "/share.cgi", {}, root, {{"QUERY_STRING", query}, {"REQUEST_METHOD", "GET"},
                                                     {"REMOTE_ADDR", "192.0.2.7"}});
  const std::string audit = run_program(ctl_binary(), {"audit"}, root).out;
  EXPECT_NE(std::string::npos, audit.find("\t" + shown + "\t\t192.0.2.7\t")) << audit;
  EXPECT_NE(std::string::npos, audit.find("\trefused:unknown\n")) << audit;
}

}  // namespace
