#include <gtest/gtest.h>

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

const char kUnset[] = "\x01unset";
const char kThumbs[] = "/share/VOL1/Public/v/.@__thumb/transcode";

class Transcoded : public ::testing::Test {
 protected:
  Transcoded()
      : env_{{{"SHARELINK_ROOT", root_.dir()},
              {"HTTP_RANGE", kUnset},
              {"IF_MODIFIED_SINCE", "1"},
              {"HTTP_USER_AGENT", "Mozilla/5.0 (X11; Linux x86_64)"},
              {"REMOTE_USER", kUnset}}} {
    root_.write("/etc/config/smb.conf", "[Public]\npath = /share/VOL1/Public\n");
    root_.write("/share/VOL1/Public/v/clip.mp4", "the original");
    root_.write(std::string(kThumbs) + "/clip.mp4.ipad720p", "720p!");
    root_.write(std::string(kThumbs) + "/clip.mp4.mobile240p", "240");
  }

  std::string send(const char* display, const char* variant, int* result) {
    return capture_stdout(root_, [&] { *result = send_transcoded_file(display, variant); });
  }

  ApplianceRoot root_;
  ScopedEnv env_;
};

// The available variant, also ranged, is checked through the real web
// server in tests/e2e/web_test.cc.
TEST_F(Transcoded, VariantNotAvailableSendsHeadersForAnEmptyPathAndFails) {
  const std::string empty =
      "Content-Disposition: attachment; filename=\"clip.mp4\"; filename*=utf-8''clip.mp4\r\n"
      "Content-Length: 0\r\nContent-Type: application/force-download\r\n\r\n";
  int rc = 0;
  for (const char* variant : {"mp4_480", "MP4_720" /* names match exactly */, static_cast<const char*>(nullptr)}) {
    EXPECT_EQ(empty, send("/Public/v/clip.mp4", variant, &rc)) << variant;
    EXPECT_EQ(-1, rc);
  }
  EXPECT_EQ(kPathShare, sf_current_path_kind());
  // With a range: nothing to range over, nothing sent.
  ScopedEnv range{{{"HTTP_RANGE", "bytes=1-2"}}};
  EXPECT_EQ("", send("/Public/v/clip.mp4", "mp4_1080", &rc));
  EXPECT_EQ(-1, rc);
}

TEST_F(Transcoded, UnresolvedDisplayPathSendsNothing) {
  for (const char* path : {"/Nowhere/v/clip.mp4", static_cast<const char*>(nullptr)}) {
    int rc = 0;
    EXPECT_EQ("", send(path, "mp4_720", &rc));
    EXPECT_EQ(-1, rc);
  }
}

TEST(DownloadName, SafeNameForMicrosoftBrowsers) {
  EXPECT_TRUE(is_ie_user_agent("Mozilla/4.0 (compatible; MSIE 8.0)"));
  EXPECT_TRUE(is_ie_user_agent("Trident/7.0"));
  EXPECT_FALSE(is_ie_user_agent("Mozilla/5.0 Firefox/128.0"));
  EXPECT_FALSE(is_ie_user_agent(nullptr));
  char out[1024];
  EXPECT_EQ(20u, CGI_Handle_IE_Filename("a;b#c-d\xff.txt", out, sizeof out));
  EXPECT_STREQ("a%3Bb%23c%2Dd%ff.txt", out);
  char small[6];
  EXPECT_EQ(5u, CGI_Handle_IE_Filename(";;;", small, sizeof small));
  EXPECT_STREQ("%3B%3", small);
  std::string esc;
  ASSERT_TRUE(url_escape_name("a b/\xc3\xa9~.-_", &esc));
  EXPECT_EQ("a%20b%2F%C3%A9~.-_", esc);
}

TEST(TranscodeQuery, FlagsFollowTheVariantFiles) {
  ApplianceRoot root;
  ScopedEnv env{{{"SHARELINK_ROOT", root.dir()}}};
  root.write(std::string(kThumbs) + "/m.mkv.mobile480p", "x");
  root.write(std::string(kThumbs) + "/m.mkv.original", "x");
  TranscodeFlags f;
  ASSERT_EQ(0, sf_transcode_availability("/share/VOL1/Public/v", "m.mkv", &f));
  EXPECT_TRUE(f.p480);
  EXPECT_TRUE(f.original);
  EXPECT_FALSE(f.p240 || f.p360 || f.p720 || f.p1080);
  EXPECT_EQ(-1, sf_transcode_availability(nullptr, "m.mkv", &f));
  EXPECT_FALSE(f.p480);
  EXPECT_EQ(nullptr, find_transcode_variant("mp4_72"));
}

TEST(DisplayPaths, RemoteFoldersTakeTheRemoteResolution) {
  ApplianceRoot root;
  ScopedEnv env{{{"SHARELINK_ROOT", root.dir()}, {"REMOTE_USER", kUnset}}};
  root.write("/etc/config/remote_folder.conf", "[1]\nName = cloud\nLocal Path = /share/VOL1/remote1\n");
  root.write("/share/VOL1/remote1/a.txt", "x");
  char out[600];
  EXPECT_EQ(kKindFile, sf_display_to_real_path("/remote:1@cloud/a.txt", out, sizeof out));
  EXPECT_STREQ("/share/VOL1/remote1/a.txt", out);
  EXPECT_EQ(kPathRemoteFolder, sf_current_path_kind());
  EXPECT_EQ(-1, sf_display_to_real_path("/remote:2@cloud/a.txt", out, sizeof out));
  EXPECT_STREQ("", out);
}

}  // namespace
