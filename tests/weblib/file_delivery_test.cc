#include "weblib/file_delivery.h"

#include <gtest/gtest.h>

#include <cerrno>
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

TEST_F(Delivery, WholeFileWithCachingHeaders) {
  put("/share/Public/a b.txt", "0123456789");
  int rc = 99;
  EXPECT_EQ(std::string(kCacheHeaders) +
                "Accept-Ranges: bytes\r\n"
                "Content-Length: 10\r\n"
                "Content-Disposition: inline; filename=\"a%20b.txt\"; filename*=utf-8''a%20b.txt\r\n"
                "Content-Transfer-Encoding: binary\r\n"
                "Content-Type: text/plain\r\n\r\n"
                "0123456789",
            send("/share/Public/a b.txt", nullptr, 0, &rc));
  EXPECT_EQ(0, rc);

  put("/share/Public/empty.bin", "");
  std::string out = send("/share/Public/empty.bin", nullptr, 0, &rc);
  EXPECT_EQ(0, rc);
  EXPECT_NE(std::string::npos, out.find("Content-Length: 0\r\n"));
  EXPECT_EQ("Content-Type: application/octet-stream\r\n\r\n",
            out.substr(out.size() - strlen("Content-Type: application/octet-stream\r\n\r\n")));
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

TEST_F(Delivery, OneRangeIsServedByteForByte) {
  put("/share/Public/a.txt", "0123456789");
  int rc = 99;
  EXPECT_EQ(std::string(kCacheHeaders) +
                "Status: 206\n"
                "Content-Transfer-Encoding: binary\r\n"
                "Content-Type: text/plain\r\n"
                "Content-Disposition: inline; filename=\"a.txt\"; filename*=utf-8''a.txt\r\n"
                "Accept-Ranges: bytes\r\n"
                "Content-Range: bytes 5-9/10\r\n"
                "Content-Length: 5\r\n\r\n"
                "56789",
            send("/share/Public/a.txt", "bytes=5-100", 0, &rc));
  EXPECT_EQ(0, rc);

  // A range that spans chunk boundaries stops exactly at its end.
  std::string big;
  for (int i = 0; i < 20000; ++i) big += static_cast<char>('a' + (i * 7) % 26);
  put("/share/Public/big.dat", big);
  std::string out = send("/share/Public/big.dat", "bytes=8000-16500", 0, &rc);
  EXPECT_EQ(0, rc);
  EXPECT_NE(std::string::npos, out.find("Content-Range: bytes 8000-16500/20000\r\nContent-Length: 8501\r\n\r\n"));
  EXPECT_EQ(big.substr(8000, 8501), out.substr(out.find("\r\n\r\n") + 4));
  out = send("/share/Public/big.dat", nullptr, 0, &rc);
  EXPECT_EQ(big, out.substr(out.find("\r\n\r\n") + 4));
}

TEST_F(Delivery, RefusedRangesGetThe416Answers) {
  put("/share/Public/a.txt", "0123456789");
  put("/share/Public/empty.txt", "");
  ScopedEnv ims{{{"IF_MODIFIED_SINCE", "1"}}};  // keeps the caching headers out
  int rc = 99;
  EXPECT_EQ("Status: 416\nContent-Range: bytes 0-9/10\r\n\r\n", send("/share/Public/a.txt", "bytes=0-1,3-4", 0, &rc));
  EXPECT_EQ(-1, rc);
  EXPECT_EQ("Status: 416\r\nContent-Range: bytes 0-9/10\r\n\r\n", send("/share/Public/a.txt", "bytes=7-3", 0, &rc));
  EXPECT_EQ(-1, rc);
  EXPECT_EQ("Status: 416\r\nContent-Range: bytes 0-9/10\r\n\r\n", send("/share/Public/a.txt", "bytes=10-", 0, &rc));
  EXPECT_EQ("Status: 416\r\nContent-Range: bytes 0-9/10\r\n\r\n",
            send("/share/Public/a.txt", "bytes=99999999999999999999999-", 0, &rc));
  EXPECT_EQ("Status: 416\r\nContent-Range: bytes 0-18446744073709551615/0\r\n\r\n",
            send("/share/Public/empty.txt", "bytes=0-", 0, &rc));
  EXPECT_EQ(-1, rc);
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

TEST(DeliveryHeaders, NotModifiedAndCachingLines) {
  ApplianceRoot root;
  EXPECT_EQ("Status: 304\r\nContent-Length: 0\r\n\r\n", capture_stdout(root, [] { send_not_modified(); }));
  os.time = fixed_time;
  EXPECT_EQ(
      "Cache-Control: private, max-age=604800, pre-check=604800\n"
      "Pragma: private\n"
      "Expires: Tue, 21 Nov 2023 22:13:20 GMT\n",
      capture_stdout(root, [] { send_cache_headers(0); }));
  EXPECT_EQ(kCacheHeaders, capture_stdout(root, [] { send_cache_headers(1000000000); }));
  os_reset();
}

}  // namespace
