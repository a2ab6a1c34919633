#include "weblib/cgi_front.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "support/appliance.h"

namespace {

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
