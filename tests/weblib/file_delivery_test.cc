#include "weblib/file_delivery.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "platform/os.h"
#include "support/appliance.h"
#include "weblib/stdout_capture.h"

namespace {

constexpr time_t kNow = 1700000000;
const char kUnset[] = "\x01unset";

time_t fixed_time(time_t* out) {
  if (out != nullptr) *out = kNow;
  return kNow;
}

const char kCacheHeaders[] =
    "Cache-Control: private, max-age=604800, pre-check=604800\n"
    "Pragma: private\n"
    "Expires: Tue, 21 Nov 2023 22:13:20 GMT\n"
    "Last-Modified: Sun, 09 Sep 2001 01:46:40 GMT\n";

class Delivery : public ::testing::Test {
 protected:
  Delivery()
      : env_{{{"SHARELINK_ROOT", root_.dir()},
              {"HTTP_RANGE", kUnset},
              {"IF_MODIFIED_SINCE", kUnset},
              {"HTTP_USER_AGENT", kUnset},
              {"REMOTE_USER", kUnset}}} {
    os.time = fixed_time;
  }
  ~Delivery() override { os_reset(); }

  void put(const std::string& ap, const std::string& content) {
    root_.write(ap, content);
    root_.set_mtime(ap, 1000000000);
  }
  // Sends ap with the given range (null: none) and returns the output.
  std::string send(const std::string& ap, const char* range, int transcoded = 0, int* result = nullptr) {
    ScopedEnv r{{{"HTTP_RANGE", range != nullptr ? range : kUnset}}};
    int rc = 99;
    std::string out = capture_stdout(root_, [&] { rc = send_file_with_ranges(ap.c_str(), transcoded); });
    if (result != nullptr) *result = rc;
    return out;
  }

  ApplianceRoot root_;
  ScopedEnv env_;
};

// Whole files and single ranges byte for byte (across chunks too) are checked
// through the real web server in tests/e2e/web_test.cc; here the edges it
// does not reach.
TEST_F(Delivery, CachingHeadersAndAnEmptyFileWithoutModificationTime) {
  int rc = 99;
  put("/share/Public/a.txt", "0123456789");
  EXPECT_EQ(std::string(kCacheHeaders) + "Accept-Ranges: bytes\r\nContent-Length: 10\r\n",
            send("/share/Public/a.txt", nullptr).substr(0, strlen(kCacheHeaders) + 42));
  // No Last-Modified for a time of 0.
  put("/share/Public/empty.bin", "");
  root_.set_mtime("/share/Public/empty.bin", 0);
  std::string out = send("/share/Public/empty.bin", nullptr, 0, &rc);
  EXPECT_EQ(0, rc);
  EXPECT_EQ(std::string(kCacheHeaders).substr(0, std::string(kCacheHeaders).find("Last-Modified")) +
                "Accept-Ranges: bytes\r\nContent-Length: 0\r\n",
            out.substr(0, out.find("Content-Disposition")));
  EXPECT_EQ("Content-Type: application/octet-stream\r\n\r\n", out.substr(out.rfind("Content-Type")));
}

TEST_F(Delivery, NotModifiedOnlyForTheExactTime) {
  put("/share/Public/a.txt", "0123456789");
  int rc = 99;
  {
    ScopedEnv ims{{{"IF_MODIFIED_SINCE", "1000000000"}}};
    EXPECT_EQ("Status: 304\r\nContent-Length: 0\r\n\r\n", send("/share/Public/a.txt", "bytes=2-3", 0, &rc));
    EXPECT_EQ(0, rc);
  }
  for (const char* other : {"999999999", "1000000000x", "", " 1000000000"}) {
    ScopedEnv ims{{{"IF_MODIFIED_SINCE", other}}};
    std::string out = send("/share/Public/a.txt", nullptr, 0, &rc);
    EXPECT_EQ(0u, out.find("Accept-Ranges: bytes\r\n")) << other;
    EXPECT_EQ("0123456789", out.substr(out.size() - 10)) << other;
  }
}

TEST_F(Delivery, RefusedRangesGetThe416Answers) {
  put("/share/Public/a.txt", "0123456789");
  put("/share/Public/empty.txt", "");
  ScopedEnv ims{{{"IF_MODIFIED_SINCE", "1"}}};  // keeps the caching headers out
  const char* const cases[][3] = {
      {"a.txt", "bytes=0-1,3-4", "Status: 416\nContent-Range: bytes 0-9/10\r\n\r\n"},
      {"a.txt", "bytes=7-3", "Status: 416\r\nContent-Range: bytes 0-9/10\r\n\r\n"},
      {"a.txt", "bytes=10-", "Status: 416\r\nContent-Range: bytes 0-9/10\r\n\r\n"},
      {"a.txt", "bytes=99999999999999999999999-", "Status: 416\r\nContent-Range: bytes 0-9/10\r\n\r\n"},
      {"empty.txt", "bytes=0-", "Status: 416\r\nContent-Range: bytes 0-18446744073709551615/0\r\n\r\n"},
  };
  for (const auto& c : cases) {
    int rc = 99;
    EXPECT_EQ(c[2], send(std::string("/share/Public/") + c[0], c[1], 0, &rc)) << c[1];
    EXPECT_EQ(-1, rc) << c[1];
  }
}

TEST_F(Delivery, ContentTypeByNameOrVariant) {
  ScopedEnv ims{{{"IF_MODIFIED_SINCE", "1"}}};
  struct {
    const char* path;
    int transcoded;
    const char* type_line;
  } cases[] = {
      {"/share/P/page.HTML", 0, "Content-Type: text/plain\r\n\r\n"},
      {"/share/P/Makefile", 0, "Content-Type: application/force-download\r\n\r\n"},
      {"/share/P/x.unknownext", 0, "Content-Type: application/octet-stream\r\n\r\n"},
      {"/share/P/clip.mp4", 0, "Content-Type: video/mp4\r\n\r\n"},
      {"/share/P/photo.jpg", 0, "Content-Type: image/jpeg\r\n\r\n"},
      {"/share/P/.@__thumb/transcode/clip.avi.mobile240p", 1, "Content-Type: video/mp4\r\n\r\n"},
      {"/share/P/.@__thumb/transcode/clip.avi.original", 1, "Content-Type: video/mp4\r\n\r\n"},
      {"/share/P/clip.avi", 1, "Content-Type: \r\n\r\n"},
  };
  for (const auto& c : cases) {
    put(c.path, "x");
    std::string out = send(c.path, nullptr, c.transcoded);
    EXPECT_NE(std::string::npos, out.find(c.type_line)) << c.path << "\n" << out;
  }
  put("/share/P/r\xc3\xa9sum\xc3\xa9;#-.pdf", "x");
  std::string out = send("/share/P/r\xc3\xa9sum\xc3\xa9;#-.pdf", nullptr);
  EXPECT_NE(std::string::npos,
            out.find("filename=\"r%C3%A9sum%C3%A9%3B%23-.pdf\"; filename*=utf-8''r%C3%A9sum%C3%A9%3B%23-.pdf\r\n"));
}

TEST_F(Delivery, FailuresBeforeAnyOutputAndAfterTheHeaders) {
  root_.mkdirs("/share/P/folder");
  put("/share/P/a.txt", "0123456789");
  int rc = 99;
  unsigned long long before = delivery_bytes_written();
  EXPECT_EQ("", send("/share/P/missing.txt", nullptr, 0, &rc));
  EXPECT_EQ(-1, rc);
  EXPECT_EQ("", send("/share/P/folder", nullptr, 0, &rc));
  EXPECT_EQ(-1, rc);
  os.fopen = [](const char*, const char*) -> FILE* {
    errno = EACCES;
    return nullptr;
  };
  EXPECT_EQ("", send("/share/P/a.txt", nullptr, 0, &rc));
  EXPECT_EQ(-4, rc);
  EXPECT_EQ(before, delivery_bytes_written());
  os_reset();
  os.time = fixed_time;

  // The client went away: the body write fails after the headers.
  os.fwrite = [](const void*, size_t, size_t, FILE*) -> size_t { return 0; };
  std::string out = send("/share/P/a.txt", "bytes=1-2", 0, &rc);
  EXPECT_EQ(-1, rc);
  EXPECT_EQ(out.size(), out.find("Content-Length: 2\r\n\r\n") + strlen("Content-Length: 2\r\n\r\n"));
  EXPECT_EQ(before + out.size(), delivery_bytes_written());
}

}  // namespace
