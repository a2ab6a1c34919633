#include "weblib/json_reply.h"

#include <gtest/gtest.h>

#include "support/appliance.h"
#include "weblib/stdout_capture.h"

namespace {

class JsonReply : public ::testing::Test {
 protected:
  std::string out(const std::function<void()>& fn) { return capture_stdout(root_, fn); }
  ApplianceRoot root_;
};

TEST_F(JsonReply, StatusLeavesVersionOutForZeroThreeEightAndFifteen) {
  EXPECT_EQ("{ \"status\": 0, \"success\": \"true\" }\n", out([] { print_status(0); }));
  EXPECT_EQ("{ \"status\": 8, \"success\": \"true\" }\n", out([] { print_status(8); }));
  EXPECT_EQ("{ \"status\": 3, \"success\": \"true\" }\n", out([] { print_status(3); }));
  EXPECT_EQ("{ \"status\": 15, \"success\": \"true\" }\n", out([] { print_status(15); }));
  EXPECT_EQ(
      "{ \"version\": \"6.0.1.6963\", \"build\": \"20250804\", \"status\": 9, \"success\": \"true\" }\n",
      out([] { print_status(9); }));
  EXPECT_EQ(
      "{ \"version\": \"6.0.1.6963\", \"build\": \"20250804\", \"status\": 20, \"success\": \"true\" }\n",
      out([] { print_status(20); }));
}

TEST_F(JsonReply, OtherEnvelopesKeepTheirMemberOrder) {
  EXPECT_EQ("{ \"status\": 5, \"success\": \"true\", \"err_code\": 2, \"err_msg\": \"x\" }\n",
            out([] { print_status_error(5, 2, "x"); }));
  EXPECT_EQ(
      "{ \"version\": \"6.0.1.6963\", \"build\": \"20250804\", \"permission\": 7, \"play\": 0, "
      "\"success\": \"true\" }\n",
      out([] { print_permission(7, 0); }));
  EXPECT_EQ("{ \"status\": 1, \"result\": \"a \\\"b\\\"\" }\n",
            out([] { print_status_result(1, "a \"b\""); }));
  EXPECT_EQ("{ \"status\": 1, \"result\": \"\" }\n", out([] { print_status_result(1, nullptr); }));
}

TEST_F(JsonReply, Headers) {
  EXPECT_EQ("Content-type: application/json; charset=\"UTF-8\"\r\n\r\n",
            out([] { print_json_header(); }));
  EXPECT_EQ("Content-type: text/html\r\n\r\n", out([] { print_html_header(); }));
}

}  // namespace
