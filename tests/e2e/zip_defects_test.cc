// Archives behind the real lighttpd where they once went wrong: names that
// end a name block exactly, one client holding every slot, folders nested
// thousands deep, and hidden names.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/wait.h>
#include <unistd.h>

#include "platform/fs_beneath.h"
#include "support/zip_share.h"
#include "zipstream/zipstream.h"

namespace {

bool has(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }

class ZipDefects : public ::testing::Test {
 protected:
  void SetUp() override {
    if (find_program("lighttpd").empty() || find_program("7z").empty() || find_program("unzip").empty()) {
      GTEST_SKIP() << "lighttpd, 7z or unzip is not installed";
    }
    zip_prepare_root(root_);
    server_ = zip_server(root_, false);
    ASSERT_TRUE(server_->running()) << root_.read("/web/logs/error.log");
  }
  void TearDown() override { remove_deep_chain(root_, pub_ + "/Deep"); }
  void add(const std::string& key, const std::string& folder) {
    ASSERT_EQ(0, share_add(root_, {key, "/Public/" + folder}));
  }
  Download get(const std::string& query, const std::vector<std::string>& extra = {}, const std::string& to = "") {
    return zip_fetch(root_, server_->url("/share.cgi" + query), to, extra);
  }
  int slots_held() {
    int n = 0;
    for (int i = 0; i < 3; ++i) {
      UniqueFd fd(open(root_.path("/etc/config/share_zip_slot." + std::to_string(i)).c_str(), O_RDONLY));
      n += fd.get() >= 0 && flock(fd.get(), LOCK_SH | LOCK_NB) != 0;
    }
    return n;
  }

  ApplianceRoot root_;
  const std::string pub_ = kZipPublic;
  std::unique_ptr<WebServer> server_;
};

// 1,025 names of 128 bytes: the 1,025th begins exactly where the first name
// block ends.
TEST_F(ZipDefects, NamesThatEndANameBlockExactly) {
  for (int i = 0; i < 1025; ++i) {
    const std::string n = std::to_string(i);
    root_.write(pub_ + "/Many/" + std::string(128 - n.size(), 'n') + n, n);
  }
  add("many", "Many");
  Download page = get("?ssid=many");
  EXPECT_EQ(200, page.status);
  EXPECT_PRED2(has, page.body, "Download all (.zip, 1 MiB)");
  Download zip = get("?ssid=many&zip=1", {}, "/web/got");
  ASSERT_EQ(200, zip.status) << zip.head;
  EXPECT_EQ(zip.length, zip.received);
  EXPECT_EQ("", zip_readers_verdict(root_, "/web/got", pub_ + "/Many"));
}

// While one archive streams to an address, that address gets 429 for a
// second (not counted); another address is served.
TEST_F(ZipDefects, OneArchiveAtATimePerClient) {
  root_.write(pub_ + "/Big/big.bin", ""), root_.write(pub_ + "/Big/small/s.txt", "s");
  ASSERT_EQ(0, truncate(root_.path(pub_ + "/Big/big.bin").c_str(), 64 << 20));
  add("big", "Big");
  const pid_t slow = fork();
  if (slow == 0) {
    execl("/usr/bin/curl", "curl", "-s", "--limit-rate", "64k", "-o", "/dev/null", "-A", "Mozilla/5.0",
          server_->url("/share.cgi?ssid=big&zip=1").c_str(), static_cast<char*>(nullptr));
    _exit(127);
  }
  for (int tries = 0; tries < 300 && slots_held() < 1; ++tries) usleep(100 * 1000);
  ASSERT_EQ(1, slots_held());
  Download again = get("?ssid=big&zip=1&path=small");
  EXPECT_EQ(429, again.status) << again.head;
  EXPECT_EQ("60", again.header("retry-after"));
  EXPECT_PRED2(has, again.body, "An archive is already being downloaded from your address");
  EXPECT_EQ(1, share_count(root_, "big"));
  Download other = get("?ssid=big&zip=1&path=small", {"--interface", "127.0.0.2"});
  EXPECT_EQ(200, other.status) << other.head;
  EXPECT_EQ(2, share_count(root_, "big"));
  kill(slow, SIGKILL), waitpid(slow, nullptr, 0);
}

// 8,000 folders deep: the page comes without the archive button and the
// archive is refused, uncounted; a tree as deep as allowed is archived.
TEST_F(ZipDefects, DeepFoldersAreCappedNotWalkedAgainAndAgain) {
  make_deep_chain(root_, pub_ + "/Deep", 8000, false);
  make_deep_chain(root_, pub_ + "/Capped", kMaxFolderDepth, true);
  add("deep", "Deep"), add("capped", "Capped");
  Download page = get("?ssid=deep");
  EXPECT_EQ(200, page.status);
  EXPECT_FALSE(has(page.body, "Download all")) << page.body;
  Download zip = get("?ssid=deep&zip=1");
  EXPECT_EQ(403, zip.status);
  EXPECT_PRED2(has, zip.body, "nested more than 128 levels deep");
  EXPECT_EQ(0, share_count(root_, "deep"));
  EXPECT_PRED2(has, get("?ssid=capped").body, "Download all (.zip,");
  ASSERT_EQ(200, get("?ssid=capped&zip=1", {}, "/web/got").status);
  EXPECT_EQ("", zip_readers_verdict(root_, "/web/got", pub_ + "/Capped"));
  remove_deep_chain(root_, pub_ + "/Capped");
}

// Hidden files and folders (the system's ".@" folders among them) stay out
// at every depth; check_zip.py leaves them out of what it expects.
TEST_F(ZipDefects, HiddenNamesStayOutOfArchives) {
  const std::pair<const char*, bool> files[] = {{"a.txt", true},           {".env", false},
                                                {".@__thumb/a.jpg", false}, {"sub/b.txt", true},
                                                {"sub/.git/config", false}, {"sub/.x", false}};
  for (const auto& f : files) root_.write(pub_ + "/Docs/" + f.first, std::string("content of ") + f.first);
  add("docs", "Docs");
  ASSERT_EQ(200, get("?ssid=docs&zip=1", {}, "/web/got").status);
  EXPECT_EQ("", zip_readers_verdict(root_, "/web/got", pub_ + "/Docs"));
  const std::string bytes = root_.read("/web/got");  // stored, so contents show as they are
  for (const auto& f : files) EXPECT_EQ(f.second, has(bytes, std::string("content of ") + f.first)) << f.first;
}

}  // namespace
