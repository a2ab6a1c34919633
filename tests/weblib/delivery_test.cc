// File bodies as the request library sends them, byte for byte with a fixed
// clock; whole files, ranges across chunks and a served variant are checked
// through the real web server in tests/e2e/web_test.cc.
#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "paths/display_path.h"
#include "platform/os.h"
#include "support/appliance.h"
#include "weblib/download_name.h"
#include "weblib/file_delivery.h"
#include "weblib/stdout_capture.h"
#include "weblib/transcode.h"

namespace {

constexpr time_t kNow = 1700000000;
const char kUnset[] = "\x01unset";
const char kThumbs[] = "/share/VOL1/Public/v/.@__thumb/transcode";

time_t fixed_time(time_t* out) {
  if (out != nullptr) *out = kNow;
  return kNow;
}

class Delivery : public ::testing::Test {
 protected:
  Delivery()
      : env_{{{"SHARELINK_ROOT", root_.dir()}, {"HTTP_RANGE", kUnset}, {"IF_MODIFIED_SINCE", kUnset},
              {"HTTP_USER_AGENT", "Mozilla/5.0 (X11; Linux x86_64)"}, {"REMOTE_USER", kUnset}}} {
    os.time = fixed_time;
    put("/share/P/a.txt", "0123456789");
  }
  ~Delivery() override { os_reset(); }

  void put(const std::string& ap, const std::string& content) {
    root_.write(ap, content);
    root_.set_mtime(ap, 1000000000);
  }
  // Sends ap with the given range (null: none); returns the output, *rc the result.
  std::string send(const std::string& ap, const char* range, int transcoded = 0, int* rc = nullptr) {
    ScopedEnv r{{{"HTTP_RANGE", range != nullptr ? range : kUnset}}};
    int result = 99;
    std::string out = capture_stdout(root_, [&] { result = send_file_with_ranges(ap.c_str(), transcoded); });
    if (rc != nullptr) *rc = result;
    return out;
  }
  std::string send_variant(const char* display, const char* variant, int* rc) {
    return capture_stdout(root_, [&] { *rc = send_transcoded_file(display, variant); });
  }

  ApplianceRoot root_;
  ScopedEnv env_;
};

TEST_F(Delivery, CachingHeadersAndNoModificationTimeForZero) {
  const std::string cache = "Cache-Control: private, max-age=604800, pre-check=604800\nPragma: private\n"
                            "Expires: Tue, 21 Nov 2023 22:13:20 GMT\n";
  int rc = 99;
  EXPECT_EQ(cache + "Last-Modified: Sun, 09 Sep 2001 01:46:40 GMT\nAccept-Ranges: bytes\r\nContent-Length: 10\r\n"
                    "Content-Disposition: inline; filename=\"a.txt\"; filename*=utf-8''a.txt\r\n"
                    "Content-Transfer-Encoding: binary\r\nContent-Type: text/plain\r\n\r\n0123456789",
            send("/share/P/a.txt", nullptr, 0, &rc));
  EXPECT_EQ(0, rc);
  put("/share/P/empty.bin", "");
  root_.set_mtime("/share/P/empty.bin", 0);
  EXPECT_EQ(cache + "Accept-Ranges: bytes\r\nContent-Length: 0\r\n"
                    "Content-Disposition: inline; filename=\"empty.bin\"; filename*=utf-8''empty.bin\r\n"
                    "Content-Transfer-Encoding: binary\r\nContent-Type: application/octet-stream\r\n\r\n",
            send("/share/P/empty.bin", nullptr, 0, &rc));
  EXPECT_EQ(0, rc);
}

TEST_F(Delivery, NotModifiedOnlyForTheExactTime) {
  int rc = 99;
  {
    ScopedEnv ims{{{"IF_MODIFIED_SINCE", "1000000000"}}};
    EXPECT_EQ("Status: 304\r\nContent-Length: 0\r\n\r\n", send("/share/P/a.txt", "bytes=2-3", 0, &rc));
    EXPECT_EQ(0, rc);
  }
  for (const char* other : {"999999999", "1000000000x", "", " 1000000000"}) {
    ScopedEnv ims{{{"IF_MODIFIED_SINCE", other}}};
    std::string out = send("/share/P/a.txt", nullptr);
    EXPECT_EQ(0u, out.find("Accept-Ranges: bytes\r\n")) << other;
    EXPECT_EQ("0123456789", out.substr(out.size() - 10)) << other;
  }
}

TEST_F(Delivery, RangesAnsweredByteForByte) {
  put("/share/P/empty.txt", "");
  ScopedEnv ims{{{"IF_MODIFIED_SINCE", "1"}}};  // keeps the caching headers out
  const char* const cases[][3] = {
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
    int rc = 99;
    EXPECT_EQ(c[2], send(std::string("/share/P/") + c[0], c[1], 0, &rc)) << c[1];
    EXPECT_EQ(c[2][8] == '2' ? 0 : -1, rc) << c[1];
  }
}

TEST_F(Delivery, ContentTypeByNameOrVariant) {
  ScopedEnv ims{{{"IF_MODIFIED_SINCE", "1"}}};
  const struct {
    const char* path;
    int transcoded;
    const char* type_line;
  } cases[] = {
      {"/share/P/page.HTML", 0, "Content-Type: text/plain\r\n\r\n"},
      {"/share/P/Makefile", 0, "Content-Type: application/force-download\r\n\r\n"},
      {"/share/P/x.unknownext", 0, "Content-Type: application/octet-stream\r\n\r\n"},
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
  EXPECT_NE(std::string::npos, send("/share/P/r\xc3\xa9sum\xc3\xa9;#-.pdf", nullptr)
                                   .find("filename=\"r%C3%A9sum%C3%A9%3B%23-.pdf\"; "
                                         "filename*=utf-8''r%C3%A9sum%C3%A9%3B%23-.pdf\r\n"));
}

TEST_F(Delivery, FailuresBeforeAnyOutputAndAfterTheHeaders) {
  root_.mkdirs("/share/P/folder");
  int rc = 99;
  unsigned long long before = delivery_bytes_written();
  for (const char* path : {"/share/P/missing.txt", "/share/P/folder"}) {
    EXPECT_EQ("", send(path, nullptr, 0, &rc));
    EXPECT_EQ(-1, rc);
  }
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

// A variant that is not there: headers for an empty path and a failure; with
// a range nothing at all; an unresolved display path sends nothing.
TEST_F(Delivery, MissingVariantOrPath) {
  root_.write("/etc/config/smb.conf", "[Public]\npath = /share/VOL1/Public\n");
  root_.write("/share/VOL1/Public/v/clip.mp4", "the original");
  root_.write(std::string(kThumbs) + "/clip.mp4.ipad720p", "720p!");
  root_.write(std::string(kThumbs) + "/clip.mp4.mobile240p", "240");
  ScopedEnv ims{{{"IF_MODIFIED_SINCE", "1"}}};
  int rc = 0;
  for (const char* variant : {"mp4_480", "MP4_720" /* names match exactly */, static_cast<const char*>(nullptr)}) {
    EXPECT_EQ("Content-Disposition: attachment; filename=\"clip.mp4\"; filename*=utf-8''clip.mp4\r\n"
              "Content-Length: 0\r\nContent-Type: application/force-download\r\n\r\n",
              send_variant("/Public/v/clip.mp4", variant, &rc)) << variant;
    EXPECT_EQ(-1, rc);
  }
  EXPECT_EQ(kPathShare, sf_current_path_kind());
  for (const char* path : {"/Nowhere/v/clip.mp4", static_cast<const char*>(nullptr)}) {
    EXPECT_EQ("", send_variant(path, "mp4_720", &rc));
    EXPECT_EQ(-1, rc);
  }
  ScopedEnv range{{{"HTTP_RANGE", "bytes=1-2"}}};
  EXPECT_EQ("", send_variant("/Public/v/clip.mp4", "mp4_1080", &rc));
  EXPECT_EQ(-1, rc);
}

TEST_F(Delivery, NamesFlagsAndRemotePaths) {
  EXPECT_TRUE(is_ie_user_agent("Mozilla/4.0 (compatible; MSIE 8.0)"));
  EXPECT_TRUE(is_ie_user_agent("Trident/7.0"));
  EXPECT_FALSE(is_ie_user_agent("Mozilla/5.0 Firefox/128.0"));
  EXPECT_FALSE(is_ie_user_agent(nullptr));
  char out[1024];
  EXPECT_EQ(20u, CGI_Handle_IE_Filename("a;b#c-d\xff.txt", out, sizeof out));
  EXPECT_STREQ("a%3Bb%23c%2Dd%ff.txt", out);
  EXPECT_EQ(5u, CGI_Handle_IE_Filename(";;;", out, 6));
  EXPECT_STREQ("%3B%3", out);
  std::string esc;
  ASSERT_TRUE(url_escape_name("a b/\xc3\xa9~.-_", &esc));
  EXPECT_EQ("a%20b%2F%C3%A9~.-_", esc);

  root_.write(std::string(kThumbs) + "/m.mkv.mobile480p", "x");
  root_.write(std::string(kThumbs) + "/m.mkv.original", "x");
  TranscodeFlags f;
  ASSERT_EQ(0, sf_transcode_availability("/share/VOL1/Public/v", "m.mkv", &f));
  EXPECT_TRUE(f.p480 && f.original);
  EXPECT_FALSE(f.p240 || f.p360 || f.p720 || f.p1080);
  EXPECT_EQ(-1, sf_transcode_availability(nullptr, "m.mkv", &f));
  EXPECT_FALSE(f.p480);
  EXPECT_EQ(nullptr, find_transcode_variant("mp4_72"));

  root_.write("/etc/config/remote_folder.conf", "[1]\nName = cloud\nLocal Path = /share/VOL1/remote1\n");
  root_.write("/share/VOL1/remote1/a.txt", "x");
  EXPECT_EQ(kKindFile, sf_display_to_real_path("/remote:1@cloud/a.txt", out, sizeof out));
  EXPECT_STREQ("/share/VOL1/remote1/a.txt", out);
  EXPECT_EQ(kPathRemoteFolder, sf_current_path_kind());
  EXPECT_EQ(-1, sf_display_to_real_path("/remote:2@cloud/a.txt", out, sizeof out));
  EXPECT_STREQ("", out);
}

}  // namespace
