// The request library byte for byte with a fixed clock; big files and ranges across chunks: tests/e2e/web_test.cc.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <stdexcept>
#include <string>

#include "paths/display_path.h"
#include "platform/cgi.h"
#include "platform/os.h"
#include "platform/profile.h"
#include "support/appliance.h"
#include "support/store_fixture.h"
#include "weblib/cgi_front.h"
#include "weblib/db_handler.h"
#include "weblib/download_name.h"
#include "weblib/file_delivery.h"
#include "weblib/http_date.h"
#include "weblib/json_reply.h"
#include "weblib/mime_table.h"
#include "weblib/range.h"
#include "weblib/transcode.h"

namespace {

const char kUnset[] = "\x01unset";

TEST(MimeTable, LookupIgnoresCaseAndTakesTheLastExtension) {
  const struct { const char* name; int32_t file_class; const char* type; } cases[] = {
      {"REPORT.PDF", kClassPdf, "application/pdf"},  // the first of two pdf rows wins
      {"archive.tar.gz", kClassOther, "application/octet-stream"}, {"index.html", kClassOther, "text/plain"},
      {"/share/Public/holiday.2019.MKV", kClassVideo, "video/x-matroska"},
      {"deck.ppam", kClassPresentation, "application/vnd.ms-powerpoint.addin.macroenabled.12"},
      {"raw.3FR", kClassImage, "image/3fr"}, {"song.flac", kClassAudio, "audio/x-flac"},
      {"m.eml", kClassMail, "message/rfc822"},
      {"t.xlsx", kClassSpreadsheet, "application/vnd.openxmlformats-officedocument.spreadsheetml.sheet"},
      {"sheet.gsheet", kClassOther, "application/vnd.google-apps.spreadsheet"},
      // Unknown extensions: the default type, zero-filled to the end.
      {"data.unknownext", 0, "application/octet-stream"}, {"trailing.", 0, "application/octet-stream"},
      {"a.pdff", 0, "application/octet-stream"},
  };
  char out[kMimeTypeSize];
  for (const auto& c : cases) {
    memset(out, 'Z', sizeof out); EXPECT_EQ(c.file_class, mime_type_of(c.name, out)) << c.name;
    EXPECT_STREQ(c.type, out) << c.name;
    for (size_t i = strlen(out); c.file_class == 0 && i < sizeof out; ++i) ASSERT_EQ('\0', out[i]) << c.name;
    EXPECT_EQ(c.file_class, file_class_of(c.name)) << c.name;
  }
  memset(out, 'Z', sizeof out);  // no dot: the output is left alone
  EXPECT_EQ(0, mime_type_of("README", out) + mime_type_of(nullptr, out) + file_class_of(nullptr));
  for (char c : out) ASSERT_EQ('Z', c);
}

TEST(HttpDate, FormatsReadsAndTranslates) {
  char out[kHttpDateSize];
  EXPECT_EQ(0u, format_http_date(784111777, out, 10)); EXPECT_STREQ("", out);
  format_http_date(784111777, out, sizeof out); EXPECT_STREQ("Sun, 06 Nov 1994 08:49:37 GMT", out);
  for (time_t t : {time_t{0}, time_t{951782400} /* 2000-02-29 */, time_t{1754265600}, time_t{4102444799}}) {
    time_t back = -1;
    EXPECT_TRUE(format_http_date(t, out, sizeof out) == 29 && parse_http_date(out, &back) && back == t) << out;
  }
  for (const char* bad : {"", "Sunday, 06-Nov-94 08:49:37 GMT", "Sun Nov  6 08:49:37 1994",
                          "Mon, 06 Nov 1994 08:49:37 GMT" /* wrong weekday */, "Sun, 06 Nov 1994 08:49:37 UTC",
                          "Sun, 06 Nov 1994 08:49:37 gmt", "sun, 06 Nov 1994 08:49:37 GMT",
                          "Sun, 06 Nov 1994 08:49:37 GMT ", " Sun, 06 Nov 1994 08:49:37 GMT",
                          "Sun, 6 Nov 1994 08:49:37 GMT", "Thu, 29 Feb 2001 08:49:37 GMT" /* no such day */,
                          "Sun, 06 Nov 1994 24:00:00 GMT", "Sun, 06 Nov 1994 08:60:00 GMT",
                          "Sun, 06 Xyz 1994 08:49:37 GMT", "Sun, 06 Nov 19x4 08:49:37 GMT", "784111777",
                          "Sun, 06 Nov 1994 08:49:3/ GMT" /* "3/" would read as 29 */,
                          static_cast<const char*>(nullptr)}) {
    time_t when = 42;
    EXPECT_TRUE(!parse_http_date(bad, &when) && when == 42) << (bad ? bad : "(null)");
  }
  // The server's If-Modified-Since becomes seconds; anything else unsets them.
  ScopedEnv env{{{"HTTP_IF_MODIFIED_SINCE", "Sun, 09 Sep 2001 01:46:40 GMT"}, {"IF_MODIFIED_SINCE", kUnset}}};
  EXPECT_TRUE(translate_if_modified_since());
  EXPECT_STREQ("1000000000", getenv("IF_MODIFIED_SINCE") ? getenv("IF_MODIFIED_SINCE") : "(unset)");
  for (const char* bad : {"Sunday, 09-Sep-01 01:46:40 GMT", "1000000000", "", kUnset}) {
    ScopedEnv b{{{"HTTP_IF_MODIFIED_SINCE", bad}, {"IF_MODIFIED_SINCE", "1000000000"}}};
    EXPECT_TRUE(!translate_if_modified_since() && getenv("IF_MODIFIED_SINCE") == nullptr) << bad;
  }
}

TEST(ByteRange, Table) {
  constexpr unsigned long long kMax = ULLONG_MAX;
  constexpr RangeOutcome W = RangeOutcome::kWhole, P = RangeOutcome::kPartial, U = RangeOutcome::kUnsatisfiable,
                         M = RangeOutcome::kMultiple;
  const struct { const char* text; unsigned long long size; RangeOutcome outcome; unsigned long long start, end; }
  cases[] = {
      {nullptr, 10, W, 0, 9}, {"bytes=0-", 10, P, 0, 9}, {"bytes=5-100", 10, P, 5, 9}, {"bytes=5-9", 10, P, 5, 9},
      {"bytes=0-0", 10, P, 0, 0}, {"bytes=9-", 10, P, 9, 9}, {"bytes=0-1,3-4", 10, M, 0, 9}, {"bytes=,", 10, M, 0, 9},
      // The suffix form keeps its end at 0: only the whole-file suffix is served.
      {"bytes=-3", 10, U, 0, 9}, {"bytes=-10", 10, P, 0, 0}, {"bytes=-11", 10, U, 0, 9}, {"bytes=-", 10, U, 0, 9},
      {"-10", 10, P, 0, 0}, {"bytes=7-3", 10, U, 0, 9}, {"bytes=10-", 10, U, 0, 9}, {"bytes=10-20", 10, U, 0, 9},
      // Digits beyond 64 bits count as the largest value.
      {"bytes=99999999999999999999999999-", 10, U, 0, 9}, {"bytes=18446744073709551615-", 10, U, 0, 9},
      {"bytes=18446744073709551616-18446744073709551617", 10, U, 0, 9},
      {"bytes=2-99999999999999999999999999", 10, P, 2, 9}, {"bytes=-99999999999999999999999999", 10, U, 0, 9},
      // Missing numbers: the start stays 0, the end becomes the last byte.
      {"bytes=", 10, P, 0, 9}, {"", 10, P, 0, 9}, {"garbage", 10, P, 0, 9}, {"bytes=x-5", 10, P, 0, 9},
      {"bytes=3-x", 10, P, 3, 9}, {"bytes=3", 10, P, 3, 9}, {"bytes= 2- 4", 10, P, 2, 4},
      {"bytes=+2-4", 10, P, 2, 4}, {"bytes=5--3", 10, P, 5, 9}, {"bytes=2-4 junk", 10, P, 2, 4},
      // An empty file: its last byte is the largest value, and no range fits.
      {nullptr, 0, W, 0, kMax}, {"bytes=0-", 0, U, 0, kMax}, {"bytes=0-0", 0, U, 0, kMax},
      {"bytes=-0", 0, U, 0, kMax}, {"bytes=", 0, U, 0, kMax},
      {"bytes=1099511627775-", 1099511627776ULL, P, 1099511627775ULL, 1099511627775ULL},
      {"bytes=0-18446744073709551614", kMax, P, 0, kMax - 1},
  };
  for (const auto& c : cases) {
    unsigned long long start = 77, end = 77;
    RangeOutcome got = parse_byte_range(c.text, c.size, &start, &end);
    EXPECT_TRUE(got == c.outcome && start == c.start && end == c.end)
        << (c.text ? c.text : "(null)") << " size " << c.size << ": " << int(got) << " " << start << "-" << end;
  }
}

std::string reply(int status) {
  return "{ \"version\": \"6.0.1.6963\", \"build\": \"20250804\", \"status\": " + std::to_string(status) +
         ", \"success\": \"true\" }\n";
}
constexpr time_t kNow = 1700000000;
const char kThumbs[] = "/share/VOL1/Public/v/.@__thumb/transcode";
const char kConfig[] = "/etc/config/Korvix.conf";
time_t fixed_time(time_t* out) { return out != nullptr ? (*out = kNow) : kNow; }

// One appliance root as the CGI environment, with a fixed clock.
class WebLib : public ::testing::Test {
 protected:
  WebLib()
      : env_{{{"SHARELINK_ROOT", root_.dir()}, {"REMOTE_USER", kUnset}, {"HTTP_RANGE", kUnset},
              {"IF_MODIFIED_SINCE", kUnset}, {"HTTP_USER_AGENT", "Mozilla/5.0 (X11; Linux x86_64)"}}} {
    os.time = fixed_time;
    root_.mkdirs("/share/VOL1/.@db"); put("/share/P/a.txt", "0123456789");
  }
  ~WebLib() override { os_reset(); }
  void put(const std::string& ap, const std::string& text) { root_.write(ap, text); root_.set_mtime(ap, 1000000000); }
  // What one call prints on standard output (pointed at a file of the root for it) and its result.
  std::pair<std::string, int> run(const std::function<int()>& call) {
    fflush(stdout);
    int saved = dup(1), fd = open(root_.path("/tmp/captured-stdout").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    if (saved < 0 || fd < 0 || dup2(fd, 1) < 0) throw std::runtime_error("cannot redirect stdout");
    close(fd);
    int rc = call();
    fflush(stdout); dup2(saved, 1); close(saved);
    clearerr(stdout);
    return {root_.read("/tmp/captured-stdout"), rc};
  }
  std::pair<std::string, int> handle(const std::string& query) {
    CgiRequest req;
    cgi_parse_params(query.data(), query.size(), &req);
    return run([&] { return sf_set_db_handler(&req); });
  }
  // Sends ap with the given range (null: none).
  std::pair<std::string, int> send(const std::string& ap, const char* range = nullptr, int transcoded = 0) {
    ScopedEnv r{{{"HTTP_RANGE", range != nullptr ? range : kUnset}}};
    return run([&] { return send_file_with_ranges(ap.c_str(), transcoded); });
  }
  std::pair<std::string, int> variant(const char* display, const char* name) {
    return run([=] { return send_transcoded_file(display, name); });
  }
  // The configured store path and its table count.
  std::pair<std::string, std::string> store() {
    char out[512];
    profile_cache_clear(); Get_Profile_String("Depot", "Share_Link_Db", "", out, sizeof out);
    try {
      return {out, store_value(root_, "SELECT COUNT(*) FROM sqlite_master WHERE type = 'table'")};
    } catch (const std::exception&) {
      return {out, "not a store"};
    }
  }
  mode_t mode_of(const std::string& ap) {
    struct stat st;
    return stat(root_.path(ap).c_str(), &st) == 0 ? (st.st_mode & 07777) : 0;
  }

  ApplianceRoot root_;
  ScopedEnv env_;
};
using Pair = std::pair<std::string, std::string>;
const std::pair<std::string, int> kNothing = {"", -1};

TEST_F(WebLib, JsonEnvelopesKeepTheirMemberOrder) {
  const std::string v = "{ \"version\": \"6.0.1.6963\", \"build\": \"20250804\", ";
  const std::pair<int (*)(), std::string> cases[] = {
      // Status leaves the version out for 0, 3, 8 and 15.
      {[] { return print_status(0); }, "{ \"status\": 0, \"success\": \"true\" }\n"},
      {[] { return print_status(8); }, "{ \"status\": 8, \"success\": \"true\" }\n"},
      {[] { return print_status(3) + print_status(15); },
       "{ \"status\": 3, \"success\": \"true\" }\n{ \"status\": 15, \"success\": \"true\" }\n"},
      {[] { return print_status(9); }, v + "\"status\": 9, \"success\": \"true\" }\n"},
      {[] { return print_status_error(5, 2, "x"); },
       "{ \"status\": 5, \"success\": \"true\", \"err_code\": 2, \"err_msg\": \"x\" }\n"},
      {[] { return print_permission(7, 0); }, v + "\"permission\": 7, \"play\": 0, \"success\": \"true\" }\n"},
      {[] { return print_status_result(1, "a \"b\""); }, "{ \"status\": 1, \"result\": \"a \\\"b\\\"\" }\n"},
      {[] { return print_status_result(1, nullptr); }, "{ \"status\": 1, \"result\": \"\" }\n"},
      {[] { return print_html_header(); }, "Content-type: text/html\r\n\r\n"},
  };
  for (const auto& c : cases) EXPECT_EQ(std::make_pair(c.second, 0), run(c.first));
}

TEST_F(WebLib, RelocationTablesPermissionsAndVolume) {
  root_.write("/share/VOL1/file", "x");
  const struct { const char* user; std::string query; int status, result; } cases[] = {
      {"bob", "share_link_db=/share/VOL1/.@db/a.db", 4, -1}, {kUnset, "force_delete=1", 20, 0},
      {kUnset, "share_link_db=", 20, 0}, {kUnset, "share_link_db=/share/NOPE/a.db", 20, -1},
      {kUnset, "share_link_db=/share/VOL1/file/a.db", 20, -1}, {kUnset, "share_link_db=relative/a.db", 20, -1},
      {kUnset, "share_link_db=/share/VOL1/.@db/a%0A[Evil]%0Ak=v", 20, -1},
      {kUnset, "share_link_db=/share/VOL1/.@db/" + std::string(250, 'x'), 35, -1},  // beyond the 256-byte buffer
  };
  for (const auto& c : cases) {
    ScopedEnv user{{{"REMOTE_USER", c.user}}};
    EXPECT_EQ(std::make_pair(reply(c.status), c.result), handle(c.query)) << c.query;
  }
  EXPECT_FALSE(root_.exists(kConfig));
  // A new path gets all four tables; a valid store keeps its rows even with force_delete; a file that is no
  // store gets 19 with the configuration already pointing at it; force_delete is a number ("01" replaces).
  ASSERT_EQ(std::make_pair(reply(1), 0), handle("share_link_db=/share/VOL1/.@db/s.db"));
  EXPECT_EQ(Pair("/share/VOL1/.@db/s.db", "4"), store());
  store_exec(root_, "INSERT INTO SHARELINK_EVENT(pkey) VALUES('k1');");
  EXPECT_EQ(reply(1), handle("share_link_db=/share/VOL1/.@db/s.db&force_delete=yes").first);
  EXPECT_NE(std::string::npos, root_.read("/share/VOL1/.@db/s.db").find("k1"));
  root_.write("/share/VOL1/.@db/text.db", "not a database at all, just some text that is long enough");
  EXPECT_EQ(std::make_pair(reply(19), 0), handle("share_link_db=/share/VOL1/.@db/text.db&force_delete=1x"));
  EXPECT_EQ(Pair("/share/VOL1/.@db/text.db", "not a store"), store());
  EXPECT_EQ(reply(1), handle("share_link_db=/share/VOL1/.@db/text.db&force_delete=01").first);
  EXPECT_EQ(Pair("/share/VOL1/.@db/text.db", "4"), store());
  os.rename = [](const char*, const char*) { return errno = EIO, -1; };
  EXPECT_EQ(std::make_pair(reply(19), -1), handle("share_link_db=/share/VOL1/.@db/new.db"));  // reported, no store
  os_reset(); EXPECT_EQ(Pair("/share/VOL1/.@db/text.db", "4"), store());
  EXPECT_FALSE(root_.exists("/share/VOL1/.@db/new.db"));
  root_.remove(kConfig); profile_cache_clear();
  EXPECT_EQ(0, sf_fix_db_permissions());  // nothing configured
  root_.write(kConfig, "[Depot]\nShare_Link_Db = /share/VOL1/.@db/p.db\n");
  EXPECT_EQ(0, sf_fix_db_permissions());  // no such file
  root_.write(kConfig, "[Depot]\nShare_Link_Db = /share/VOL1/.@db\n"); profile_cache_clear();
  EXPECT_LT(sf_create_all_tables(), 0);  // a folder cannot be opened as the store
  root_.write(kConfig, "[Depot]\nShare_Link_Db = /share/VOL1/.@db/p.db\n"); profile_cache_clear();
  EXPECT_EQ(0, sf_create_all_tables()); EXPECT_EQ(Pair("/share/VOL1/.@db/p.db", "4"), store());
  chmod(root_.path("/share/VOL1/.@db/p.db").c_str(), 0640); chmod(root_.path("/share/VOL1/.@db").c_str(), 0750);
  EXPECT_EQ(1, sf_fix_db_permissions());
  EXPECT_EQ(std::make_pair(0777u, 0777u), std::make_pair(mode_of("/share/VOL1/.@db"), mode_of("/share/VOL1/.@db/p.db")));
  chmod(root_.path("/share/VOL1/.@db/p.db").c_str(), 01666);  // already writable by others: kept
  EXPECT_EQ(1, sf_fix_db_permissions()); EXPECT_EQ(01666u, mode_of("/share/VOL1/.@db/p.db"));

  EXPECT_EQ(0, sf_set_db_volume(nullptr) + sf_set_db_volume("/"));
  root_.script("/bin/mkdir", "[ \"$1\" = -p ] || exit 2\nexec mkdir -p \"$SHARELINK_ROOT$2\"\n");
  EXPECT_EQ(1, sf_set_db_volume("/share/VOL1")); EXPECT_EQ(0777u, mode_of("/share/VOL1/.@kdx/share_link_db"));
  EXPECT_EQ("/share/VOL1/.@kdx/share_link_db/share_link.db", store().first);
  EXPECT_EQ(-1, sf_set_db_volume(("/share/" + std::string(500, 'v')).c_str()));
  root_.script("/bin/mkdir", "exit 1\n"); EXPECT_EQ(-1, sf_set_db_volume("/share/VOL2"));
  EXPECT_EQ("/share/VOL1/.@kdx/share_link_db/share_link.db", store().first);
}

TEST_F(WebLib, DeliveryHeadersRangesAndTypes) {
  const std::string cache = "Cache-Control: private, max-age=604800, pre-check=604800\nPragma: private\n"
                            "Expires: Tue, 21 Nov 2023 22:13:20 GMT\n";
  EXPECT_EQ(std::make_pair(cache + "Last-Modified: Sun, 09 Sep 2001 01:46:40 GMT\nAccept-Ranges: bytes\r\n"
                           "Content-Length: 10\r\nContent-Disposition: inline; filename=\"a.txt\"; "
                           "filename*=utf-8''a.txt\r\nContent-Transfer-Encoding: binary\r\n"
                           "Content-Type: text/plain\r\n\r\n0123456789", 0),
            send("/share/P/a.txt"));
  put("/share/P/empty.bin", "");
  root_.set_mtime("/share/P/empty.bin", 0);  // no Last-Modified
  EXPECT_EQ(std::make_pair(cache + "Accept-Ranges: bytes\r\nContent-Length: 0\r\nContent-Disposition: inline; "
                           "filename=\"empty.bin\"; filename*=utf-8''empty.bin\r\nContent-Transfer-Encoding: binary\r\n"
                           "Content-Type: application/octet-stream\r\n\r\n", 0),
            send("/share/P/empty.bin"));
  for (const char* other : {"999999999", "1000000000x", "", " 1000000000"}) {
    ScopedEnv ims{{{"IF_MODIFIED_SINCE", other}}};
    std::string out = send("/share/P/a.txt").first;
    EXPECT_EQ(0u, out.find("Accept-Ranges: bytes\r\n")) << other;  // and no caching headers
    EXPECT_EQ("0123456789", out.substr(out.size() - 10)) << other;
  }
  ScopedEnv exact{{{"IF_MODIFIED_SINCE", "1000000000"}}};
  EXPECT_EQ(std::make_pair(std::string("Status: 304\r\nContent-Length: 0\r\n\r\n"), 0),
            send("/share/P/a.txt", "bytes=2-3"));
  put("/share/P/empty.txt", "");
  ScopedEnv ims{{{"IF_MODIFIED_SINCE", "1"}}};  // keeps the caching headers out
  const struct { const char *file, *range; std::string out; } cases[] = {
      {"a.txt", "bytes=3-4", "Status: 206\nContent-Transfer-Encoding: binary\r\nContent-Type: text/plain\r\n"
       "Content-Disposition: inline; filename=\"a.txt\"; filename*=utf-8''a.txt\r\nAccept-Ranges: bytes\r\n"
       "Content-Range: bytes 3-4/10\r\nContent-Length: 2\r\n\r\n34"},
      {"a.txt", "bytes=0-1,3-4", "Status: 416\nContent-Range: bytes 0-9/10\r\n\r\n"},
      {"a.txt", "bytes=7-3", "Status: 416\r\nContent-Range: bytes 0-9/10\r\n\r\n"},
      {"a.txt", "bytes=10-", "Status: 416\r\nContent-Range: bytes 0-9/10\r\n\r\n"},
      {"a.txt", "bytes=99999999999999999999999-", "Status: 416\r\nContent-Range: bytes 0-9/10\r\n\r\n"},
      {"empty.txt", "bytes=0-", "Status: 416\r\nContent-Range: bytes 0-18446744073709551615/0\r\n\r\n"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(std::make_pair(c.out, c.out[8] == '2' ? 0 : -1), send(std::string("/share/P/") + c.file, c.range))
        << c.range;
  }
  const struct { const char* path; int transcoded; const char* type; } types[] = {
      {"/share/P/page.HTML", 0, "text/plain"}, {"/share/P/Makefile", 0, "application/force-download"},
      {"/share/P/x.unknownext", 0, "application/octet-stream"},
      {"/share/P/.@__thumb/transcode/clip.avi.mobile240p", 1, "video/mp4"},
      {"/share/P/.@__thumb/transcode/clip.avi.original", 1, "video/mp4"}, {"/share/P/clip.avi", 1, ""},
  };
  for (const auto& c : types) {
    put(c.path, "x");
    const std::string out = send(c.path, nullptr, c.transcoded).first;
    EXPECT_EQ(std::string("Content-Type: ") + c.type + "\r\n\r\nx", out.substr(out.rfind("Content-Type"))) << c.path;
  }
  put("/share/P/r\xc3\xa9sum\xc3\xa9;#-.pdf", "x");
  EXPECT_NE(std::string::npos, send("/share/P/r\xc3\xa9sum\xc3\xa9;#-.pdf").first.find(
      "filename=\"r%C3%A9sum%C3%A9%3B%23-.pdf\"; filename*=utf-8''r%C3%A9sum%C3%A9%3B%23-.pdf\r\n"));
}

// A missing variant: headers for an empty path and a failure (nothing with a range); an unresolved path: nothing.
TEST_F(WebLib, VariantsNamesMissingPathsAndFailures) {
  root_.write("/etc/config/smb.conf", "[Public]\npath = /share/VOL1/Public\n");
  root_.write("/share/VOL1/Public/v/clip.mp4", "the original");
  root_.write(std::string(kThumbs) + "/clip.mp4.ipad720p", "720p!");
  root_.write(std::string(kThumbs) + "/clip.mp4.mobile240p", "240");
  root_.write("/share/VOL1/Public/v/a-b;c.mp4", "the original");
  root_.write(std::string(kThumbs) + "/a-b;c.mp4.ipad720p", "720p!");
  ScopedEnv ims{{{"IF_MODIFIED_SINCE", "1"}}};
  for (const char* name : {"mp4_480", "MP4_720" /* names match exactly */, static_cast<const char*>(nullptr)}) {
    EXPECT_EQ(std::make_pair(std::string("Content-Disposition: attachment; filename=\"clip.mp4\"; filename*=utf-8''"
                                         "clip.mp4\r\nContent-Length: 0\r\nContent-Type: application/force-download"
                                         "\r\n\r\n"), -1),
              variant("/Public/v/clip.mp4", name)) << (name ? name : "(null)");
  }
  EXPECT_EQ(kPathShare, sf_current_path_kind());
  // An available variant is an attachment under the original's name (made safe for Microsoft browsers).
  const std::string tail = "\r\nContent-Length: 5\r\nContent-Type: application/force-download\r\n\r\n720p!";
  EXPECT_EQ(std::make_pair("Content-Disposition: attachment; filename=\"a-b%3Bc.mp4\"; filename*=utf-8''a-b%3Bc.mp4" +
                           tail, 1), variant("/Public/v/a-b;c.mp4", "mp4_720"));
  {
    ScopedEnv ie{{{"HTTP_USER_AGENT", "Mozilla/5.0 (Windows NT 10.0; Trident/7.0)"}}};
    EXPECT_EQ(std::make_pair("Content-Disposition: attachment; filename=\"a%252Db%253Bc.mp4\"; filename*=utf-8''"
                             "a%252Db%253Bc.mp4" + tail, 1), variant("/Public/v/a-b;c.mp4", "mp4_720"));
    ScopedEnv range{{{"HTTP_RANGE", "bytes=1-2"}}};
    const std::string part = variant("/Public/v/a-b;c.mp4", "mp4_720").first;
    EXPECT_EQ("Content-Type: video/mp4\r\n", part.substr(part.find("Content-Type"), 25));
    EXPECT_EQ("Content-Range: bytes 1-2/5\r\nContent-Length: 2\r\n\r\n20", part.substr(part.find("Content-Range")));
  }
  EXPECT_EQ(kNothing, variant("/Nowhere/v/clip.mp4", "mp4_720")); EXPECT_EQ(kNothing, variant(nullptr, "mp4_720"));
  ScopedEnv range{{{"HTTP_RANGE", "bytes=1-2"}}};
  EXPECT_EQ(kNothing, variant("/Public/v/clip.mp4", "mp4_1080"));
  root_.mkdirs("/share/P/folder");
  const unsigned long long before = delivery_bytes_written();
  EXPECT_EQ(kNothing, send("/share/P/missing.txt")); EXPECT_EQ(kNothing, send("/share/P/folder"));
  os.fopen = [](const char*, const char*) -> FILE* { return errno = EACCES, nullptr; };
  EXPECT_EQ(std::make_pair(std::string(), -4), send("/share/P/a.txt")); EXPECT_EQ(before, delivery_bytes_written());
  // The client went away: the body write fails after the headers.
  os_reset();
  os.time = fixed_time;
  os.fwrite = [](const void*, size_t, size_t, FILE*) -> size_t { return 0; };
  auto sent = send("/share/P/a.txt", "bytes=1-2");
  EXPECT_EQ(-1, sent.second);
  EXPECT_EQ(sent.first.size(), sent.first.find("Content-Length: 2\r\n\r\n") + strlen("Content-Length: 2\r\n\r\n"));
  EXPECT_EQ(before + sent.first.size(), delivery_bytes_written());
  EXPECT_TRUE(is_ie_user_agent("Mozilla/4.0 (compatible; MSIE 8.0)") && is_ie_user_agent("Trident/7.0"));
  EXPECT_FALSE(is_ie_user_agent("Mozilla/5.0 Firefox/128.0") || is_ie_user_agent(nullptr));
  char out[1024];
  EXPECT_EQ(20u, CGI_Handle_IE_Filename("a;b#c-d\xff.txt", out, sizeof out));
  EXPECT_STREQ("a%3Bb%23c%2Dd%ff.txt", out);
  EXPECT_EQ(5u, CGI_Handle_IE_Filename(";;;", out, 6)); EXPECT_STREQ("%3B%3", out);
  std::string esc;
  EXPECT_TRUE(url_escape_name("a b/\xc3\xa9~.-_", &esc)); EXPECT_EQ("a%20b%2F%C3%A9~.-_", esc);
  root_.write(std::string(kThumbs) + "/m.mkv.mobile480p", "x");
  root_.write(std::string(kThumbs) + "/m.mkv.original", "x");
  TranscodeFlags f;
  ASSERT_EQ(0, sf_transcode_availability("/share/VOL1/Public/v", "m.mkv", &f));
  EXPECT_TRUE(f.p480 && f.original && !(f.p240 || f.p360 || f.p720 || f.p1080));
  EXPECT_EQ(-1, sf_transcode_availability(nullptr, "m.mkv", &f)); EXPECT_FALSE(f.p480 || f.original);
  EXPECT_EQ(nullptr, find_transcode_variant("mp4_72"));
}

}  // namespace
