// send_zip's answer as share.cgi writes it: the store's folder kept
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
    v_.target.is_folder = true, v_.target.name = "d";
    v_.target.folder = UniqueFd(open(root_.path("/d").c_str(), O_RDONLY | O_DIRECTORY));
  }
  StoreFiles store(const std::string& ap) {
    struct stat st;
    EXPECT_EQ(0, lstat(root_.path(ap).c_str(), &st));
    StoreFiles f;
    f.ids.insert({st.st_dev, st.st_ino});
    return f;
  }
  // What send_zip writes to standard output; `counted` says whether it counted.
  std::string answer(const StoreFiles& excluded, bool* counted) {
    *counted = false;
    fflush(stdout);
    const int saved = dup(1);
    const int out = open(root_.path("/out").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    dup2(out, 1), close(out);
    v_.store = excluded;
    send_zip(v_, false, "192.0.2.1", [counted] { *counted = true; return CountOutcome::kCounted; },
             nullptr);
    fflush(stdout);
    dup2(saved, 1), close(saved);
    return root_.read("/out");
  }

  ApplianceRoot root_;
  ScopedEnv env_{{{"SHARELINK_ROOT", root_.dir()}}};
  Verdict v_;
};

TEST_F(ZipAnswer, ExcludedEntriesStayOutAndRefusalsCountNothing) {
  bool counted = false;
  const std::string zip = answer(store("/d/store"), &counted);
  EXPECT_EQ(0u, zip.find("Status: 200 OK\r\n"));
  EXPECT_TRUE(counted && zip.find("kept") != std::string::npos && zip.find("store/") == std::string::npos);
  EXPECT_EQ(std::string::npos, zip.find("the key"));

  EXPECT_EQ(0u, answer(store("/d"), &counted).find("Status: 404 "));
  EXPECT_FALSE(counted);
}

}  // namespace
