// The request library's text formats: JSON replies, the MIME table, HTTP
// dates and byte ranges.
#include <gtest/gtest.h>

#include <climits>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>

#include "support/appliance.h"
#include "weblib/cgi_front.h"
#include "weblib/http_date.h"
#include "weblib/json_reply.h"
#include "weblib/mime_table.h"
#include "weblib/range.h"
#include "weblib/stdout_capture.h"

namespace {

const char kUnset[] = "\x01unset";

TEST(JsonReply, EnvelopesKeepTheirMemberOrder) {
  const std::string v = "{ \"version\": \"6.0.1.6963\", \"build\": \"20250804\", ";
  const struct {
    void (*print)();
    std::string out;
  } cases[] = {
      // Status leaves the version out for 0, 3, 8 and 15.
      {[] { print_status(0); }, "{ \"status\": 0, \"success\": \"true\" }\n"},
      {[] { print_status(8); }, "{ \"status\": 8, \"success\": \"true\" }\n"},
      {[] { print_status(3); }, "{ \"status\": 3, \"success\": \"true\" }\n"},
      {[] { print_status(15); }, "{ \"status\": 15, \"success\": \"true\" }\n"},
      {[] { print_status(9); }, v + "\"status\": 9, \"success\": \"true\" }\n"},
      {[] { print_status_error(5, 2, "x"); }, "{ \"status\": 5, \"success\": \"true\", \"err_code\": 2, \"err_msg\": \"x\" }\n"},
      {[] { print_permission(7, 0); }, v + "\"permission\": 7, \"play\": 0, \"success\": \"true\" }\n"},
      {[] { print_status_result(1, "a \"b\""); }, "{ \"status\": 1, \"result\": \"a \\\"b\\\"\" }\n"},
      {[] { print_status_result(1, nullptr); }, "{ \"status\": 1, \"result\": \"\" }\n"},
      {[] { print_html_header(); }, "Content-type: text/html\r\n\r\n"},
  };
  ApplianceRoot root;
  for (const auto& c : cases) EXPECT_EQ(c.out, capture_stdout(root, c.print));
}

TEST(MimeTable, LookupIgnoresCaseAndTakesTheLastExtension) {
  const struct {
    const char* name;
    int32_t file_class;
    const char* type;
  } cases[] = {
      {"REPORT.PDF", kClassPdf, "application/pdf"},  // the first of two pdf rows wins
      {"archive.tar.gz", kClassOther, "application/octet-stream"},
      {"/share/Public/holiday.2019.MKV", kClassVideo, "video/x-matroska"},
      {"deck.ppam", kClassPresentation, "application/vnd.ms-powerpoint.addin.macroenabled.12"},
      {"index.html", kClassOther, "text/plain"},
      {"raw.3FR", kClassImage, "image/3fr"},
      {"song.flac", kClassAudio, "audio/x-flac"},
      {"m.eml", kClassMail, "message/rfc822"},
      {"t.xlsx", kClassSpreadsheet, "application/vnd.openxmlformats-officedocument.spreadsheetml.sheet"},
      {"sheet.gsheet", kClassOther, "application/vnd.google-apps.spreadsheet"},
      // Unknown extensions: the default type, zero-filled to the end.
      {"data.unknownext", 0, "application/octet-stream"}, {"trailing.", 0, "application/octet-stream"},
      {"a.pdff", 0, "application/octet-stream"},
  };
  char out[kMimeTypeSize];
  for (const auto& c : cases) {
    memset(out, 'Z', sizeof out);
    EXPECT_EQ(c.file_class, mime_type_of(c.name, out)) << c.name;
    EXPECT_STREQ(c.type, out) << c.name;
    for (size_t i = strlen(out); c.file_class == 0 && i < sizeof out; ++i) ASSERT_EQ('\0', out[i]) << c.name;
    EXPECT_EQ(c.file_class, file_class_of(c.name)) << c.name;
  }
  // No dot: the output is left alone.
  memset(out, 'Z', sizeof out);
  EXPECT_EQ(0, mime_type_of("README", out));
  EXPECT_EQ(0, mime_type_of(nullptr, out));
  for (char c : out) ASSERT_EQ('Z', c);
  EXPECT_EQ(0, file_class_of(nullptr));
}

TEST(HttpDate, FormatsInUtcAndReadsBackOnlyAnExactFixdate) {
  char out[kHttpDateSize];
  EXPECT_EQ(0u, format_http_date(784111777, out, 10));
  EXPECT_STREQ("", out);
  EXPECT_EQ(29u, format_http_date(784111777, out, sizeof out));
  EXPECT_STREQ("Sun, 06 Nov 1994 08:49:37 GMT", out);
  for (time_t t : {time_t{0}, time_t{951782400} /* 2000-02-29 */, time_t{1754265600}, time_t{4102444799}}) {
    ASSERT_GT(format_http_date(t, out, sizeof out), 0u);
    time_t back = -1;
    EXPECT_TRUE(parse_http_date(out, &back)) << out;
    EXPECT_EQ(t, back) << out;
  }
  for (const char* bad : {"", "Sunday, 06-Nov-94 08:49:37 GMT", "Sun Nov  6 08:49:37 1994",
                          "Mon, 06 Nov 1994 08:49:37 GMT" /* wrong weekday */, "Sun, 06 Nov 1994 08:49:37 UTC",
                          "Sun, 06 Nov 1994 08:49:37 gmt", "sun, 06 Nov 1994 08:49:37 GMT",
                          "Sun, 06 Nov 1994 08:49:37 GMT ", " Sun, 06 Nov 1994 08:49:37 GMT",
                          "Sun, 6 Nov 1994 08:49:37 GMT", "Thu, 29 Feb 2001 08:49:37 GMT" /* no such day */,
                          "Sun, 06 Nov 1994 24:00:00 GMT", "Sun, 06 Nov 1994 08:60:00 GMT",
                          "Sun, 06 Xyz 1994 08:49:37 GMT", "Sun, 06 Nov 19x4 08:49:37 GMT", "784111777",
                          static_cast<const char*>(nullptr)}) {
    time_t when = 42;
    EXPECT_FALSE(parse_http_date(bad, &when)) << (bad ? bad : "(null)");
    EXPECT_EQ(42, when) << (bad ? bad : "(null)");
  }
}

// The server's If-Modified-Since becomes seconds; anything else unsets them.
TEST(HttpDate, IfModifiedSinceBecomesSeconds) {
  ScopedEnv env{{{"HTTP_IF_MODIFIED_SINCE", "Sun, 09 Sep 2001 01:46:40 GMT"}, {"IF_MODIFIED_SINCE", kUnset}}};
  EXPECT_TRUE(translate_if_modified_since());
  ASSERT_NE(nullptr, getenv("IF_MODIFIED_SINCE"));
  EXPECT_STREQ("1000000000", getenv("IF_MODIFIED_SINCE"));
  for (const char* bad : {"Sunday, 09-Sep-01 01:46:40 GMT", "1000000000", "", kUnset}) {
    ScopedEnv b{{{"HTTP_IF_MODIFIED_SINCE", bad}, {"IF_MODIFIED_SINCE", "1000000000"}}};
    EXPECT_FALSE(translate_if_modified_since()) << bad;
    EXPECT_EQ(nullptr, getenv("IF_MODIFIED_SINCE")) << bad;
  }
}

constexpr unsigned long long kMax = ULLONG_MAX;
constexpr RangeOutcome W = RangeOutcome::kWhole, P = RangeOutcome::kPartial, U = RangeOutcome::kUnsatisfiable,
                       M = RangeOutcome::kMultiple;

TEST(ByteRange, Table) {
  const struct {
    const char* text;
    unsigned long long size;
    RangeOutcome outcome;
    unsigned long long start, end;
  } cases[] = {
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
    SCOPED_TRACE(std::string(c.text ? c.text : "(null)") + " size " + std::to_string(c.size));
    EXPECT_EQ(c.outcome, parse_byte_range(c.text, c.size, &start, &end));
    EXPECT_EQ(c.start, start);
    EXPECT_EQ(c.end, end);
  }
}

// Whatever the text, a served range lies inside the file and a refusal
// reports the whole file.
TEST(ByteRange, AnyTextGivesARangeInsideTheFile) {
  std::mt19937 gen(20250804);
  const char alphabet[] = "0123456789-=, b+x";
  const unsigned long long sizes[] = {0, 1, 2, 10, 8192, 1ULL << 40, kMax};
  for (int i = 0; i < 20000; ++i) {
    std::string text = gen() % 3 == 0 ? "bytes=" : "";
    for (size_t k = 0, len = gen() % 24; k < len; ++k) text += alphabet[gen() % (sizeof alphabet - 1)];
    unsigned long long size = sizes[gen() % 7], start = 0, end = 0;
    RangeOutcome o = parse_byte_range(text.c_str(), size, &start, &end);
    ASSERT_NE(W, o) << text;
    ASSERT_EQ(text.find(',') != std::string::npos, o == M) << text;
    ASSERT_TRUE(o == P ? start <= end && end < size : start == 0 && end == size - 1) << text;
  }
}

}  // namespace
