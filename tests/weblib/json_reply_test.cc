#include "weblib/json_reply.h"

#include <gtest/gtest.h>

#include "support/appliance.h"
#include "weblib/stdout_capture.h"

namespace {

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
      {[] { print_status(20); }, v + "\"status\": 20, \"success\": \"true\" }\n"},
      {[] { print_status_error(5, 2, "x"); }, "{ \"status\": 5, \"success\": \"true\", \"err_code\": 2, \"err_msg\": \"x\" }\n"},
      {[] { print_permission(7, 0); }, v + "\"permission\": 7, \"play\": 0, \"success\": \"true\" }\n"},
      {[] { print_status_result(1, "a \"b\""); }, "{ \"status\": 1, \"result\": \"a \\\"b\\\"\" }\n"},
      {[] { print_status_result(1, nullptr); }, "{ \"status\": 1, \"result\": \"\" }\n"},
      {[] { print_json_header(); }, "Content-type: application/json; charset=\"UTF-8\"\r\n\r\n"},
      {[] { print_html_header(); }, "Content-type: text/html\r\n\r\n"},
  };
  ApplianceRoot root;
  for (const auto& c : cases) EXPECT_EQ(c.out, capture_stdout(root, c.print));
}

}  // namespace
