#include "weblib/cgi_front.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "support/appliance.h"
#include "weblib/stdout_capture.h"

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

TEST(CgiFront, FuncSelectsTheHandler) {
  ApplianceRoot root;
  ScopedEnv env{{{"SHARELINK_ROOT", root.dir()}, {"REMOTE_USER", kUnset}, {"HTTP_RANGE", kUnset}}};
  auto answer = [&](const std::string& query) {
    CgiRequest req;
    cgi_parse_params(query.data(), query.size(), &req);
    return capture_stdout(root, [&] { handle_cgi_request(&req); });
  };
  const std::string header = "Content-type: application/json; charset=\"UTF-8\"\r\n\r\n";
  const std::string status20 =
      header + "{ \"version\": \"6.0.1.6963\", \"build\": \"20250804\", \"status\": 20, \"success\": \"true\" }\n";
  EXPECT_EQ(status20, answer(""));
  EXPECT_EQ(status20, answer("func=MIME_TABLE"));
  EXPECT_EQ(status20, answer("func=download"));
  EXPECT_EQ(status20, answer("func=transcode&path=/Public/a.mp4&variant=mp4_999"));
  EXPECT_EQ(0u, answer("func=mime_table").find(header + "{ \"datas\": [ "));
  EXPECT_EQ(status20, answer("func=set_share_link_db"));
}

}  // namespace
