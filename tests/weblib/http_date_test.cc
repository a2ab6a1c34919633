#include "weblib/http_date.h"

#include <gtest/gtest.h>

#include <cstdlib>

#include "support/appliance.h"
#include "weblib/cgi_front.h"

namespace {

TEST(HttpDate, FormatsInUtc) {
  char out[kHttpDateSize];
  EXPECT_EQ(29u, format_http_date(784111777, out, sizeof out));
  EXPECT_STREQ("Sun, 06 Nov 1994 08:49:37 GMT", out);
  EXPECT_EQ(0u, format_http_date(784111777, out, 10));
  EXPECT_STREQ("", out);
}

TEST(HttpDate, ReadsBackWhatItWrites) {
  for (time_t t : {time_t{0}, time_t{784111777}, time_t{951782400} /* 2000-02-29 */,
                   time_t{1754265600}, time_t{4102444799}}) {
    char text[kHttpDateSize];
    ASSERT_GT(format_http_date(t, text, sizeof text), 0u);
    time_t back = -1;
    ASSERT_TRUE(parse_http_date(text, &back)) << text;
    EXPECT_EQ(t, back) << text;
  }
}

TEST(HttpDate, RefusesAnythingButAnExactFixdate) {
  const char* bad[] = {
      "",
      "Sunday, 06-Nov-94 08:49:37 GMT",   // the obsolete forms
      "Sun Nov  6 08:49:37 1994",
      "Mon, 06 Nov 1994 08:49:37 GMT",    // weekday does not match
      "Sun, 06 Nov 1994 08:49:37 UTC",
      "Sun, 06 Nov 1994 08:49:37 gmt",
      "sun, 06 Nov 1994 08:49:37 GMT",
      "Sun, 06 Nov 1994 08:49:37 GMT ",
      " Sun, 06 Nov 1994 08:49:37 GMT",
      "Sun, 6 Nov 1994 08:49:37 GMT",
      "Thu, 29 Feb 2001 08:49:37 GMT",    // no such day
      "Sun, 06 Nov 1994 24:00:00 GMT",
      "Sun, 06 Nov 1994 08:60:00 GMT",
      "Sun, 06 Xyz 1994 08:49:37 GMT",
      "Sun, 06 Nov 19x4 08:49:37 GMT",
      "784111777",
  };
  for (const char* text : bad) {
    time_t when = 42;
    EXPECT_FALSE(parse_http_date(text, &when)) << text;
    EXPECT_EQ(42, when) << text;
  }
  time_t when = 42;
  EXPECT_FALSE(parse_http_date(nullptr, &when));
  EXPECT_TRUE(parse_http_date("Tue, 29 Feb 2000 00:00:00 GMT", &when));
  EXPECT_EQ(951782400, when);
}

const char kUnset[] = "\x01unset";

TEST(CgiFront, IfModifiedSinceBecomesSeconds) {
  ScopedEnv env{{{"HTTP_IF_MODIFIED_SINCE", "Sun, 09 Sep 2001 01:46:40 GMT"}, {"IF_MODIFIED_SINCE", kUnset}}};
  EXPECT_TRUE(translate_if_modified_since());
  ASSERT_NE(nullptr, getenv("IF_MODIFIED_SINCE"));
  EXPECT_STREQ("1000000000", getenv("IF_MODIFIED_SINCE"));
  // A date that is not an exact IMF-fixdate is ignored, as is no date.
  for (const char* bad : {"Sunday, 09-Sep-01 01:46:40 GMT", "1000000000", ""}) {
    ScopedEnv b{{{"HTTP_IF_MODIFIED_SINCE", bad}, {"IF_MODIFIED_SINCE", "1000000000"}}};
    EXPECT_FALSE(translate_if_modified_since()) << bad;
    EXPECT_EQ(nullptr, getenv("IF_MODIFIED_SINCE")) << bad;
  }
  ScopedEnv none{{{"HTTP_IF_MODIFIED_SINCE", kUnset}, {"IF_MODIFIED_SINCE", "5"}}};
  EXPECT_FALSE(translate_if_modified_since());
  EXPECT_EQ(nullptr, getenv("IF_MODIFIED_SINCE"));
}

}  // namespace
