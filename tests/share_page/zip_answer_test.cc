// send_zip's answer as share.cgi writes it: what the caller excludes kept
// out, and a refused plan not counted. (Slots and depth: zip_defects_test.)
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <string>

#include "share_page/zip_answer.h"
#include "support/appliance.h"

namespace {

class ZipAnswer : public ::testing::Test {
 protected:
  void SetUp() override {
    root_.write("/d/a.txt", "kept"), root_.write("/d/store/share_link_secret", "the key");
    g_.is_folder = true, g_.name = "d";
    g_.folder = UniqueFd(open(root_.path("/d").c_str(), O_RDONLY | O_DIRECTORY));
  }
  FileIds ids(const std::string& ap) {
    struct stat st;
    EXPECT_EQ(0, lstat(root_.path(ap).c_str(), &st));
    return {{st.st_dev, st.st_ino}};
  }
  // What send_zip writes to standard output; `counted` says whether it counted.
  std::string answer(const FileIds& excluded, bool* counted) {
    *counted = false;
    fflush(stdout);
    const int saved = dup(1);
    const int out = open(root_.path("/out").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    dup2(out, 1), close(out);
    send_zip(g_, false, [](const std::string&, GateResult*) { return false; },
             [counted] { return *counted = true; }, nullptr, "192.0.2.1", excluded);
    fflush(stdout);
    dup2(saved, 1), close(saved);
    return root_.read("/out");
  }

  ApplianceRoot root_;
  ScopedEnv env_{{{"SHARELINK_ROOT", root_.dir()}}};
  GateResult g_;
};

TEST_F(ZipAnswer, ExcludedEntriesStayOutAndRefusalsCountNothing) {
  bool counted = false;
  const std::string zip = answer(ids("/d/store"), &counted);
  EXPECT_EQ(0u, zip.find("Status: 200 OK\r\n"));
  EXPECT_TRUE(counted && zip.find("kept") != std::string::npos && zip.find("store/") == std::string::npos);
  EXPECT_EQ(std::string::npos, zip.find("the key"));

  EXPECT_EQ(0u, answer(ids("/d"), &counted).find("Status: 404 "));
  EXPECT_FALSE(counted);
}

}  // namespace
