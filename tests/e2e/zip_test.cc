// share.cgi?zip=1 behind the real lighttpd, judged by three independent readers.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "support/zip_share.h"

namespace {

class ShareZip : public ::testing::Test {
 protected:
  void SetUp() override {
    for (const char* p : {"lighttpd", "7z", "unzip"}) {
      if (find_program(p).empty()) GTEST_SKIP() << p << " is not installed";
    }
    zip_prepare_root(root_);
    for (auto [name, text] : {std::pair<const char*, std::string>{"Grüße.txt", "hällo wörld\n"},
                              {"空/東京 1.jpg", std::string(70000, 'x') + "tail"}, {"empty.bin", ""},
                              {"deep/er/still/n.txt", "n"}, {"back\\slash.txt", "b"}}) {
      root_.write(top_ + "/" + name, text);
    }
    root_.mkdirs(top_ + "/hollow/inner");
    root_.write(std::string(kZipPublic) + "/Secret/s.txt", "outside the folder");
    symlink(root_.path(std::string(kZipPublic) + "/Secret").c_str(), root_.path(top_ + "/out").c_str());
    symlink("/etc/passwd", root_.path(top_ + "/pw").c_str());
    mkfifo(root_.path(top_ + "/fifo").c_str(), 0600);
    add({"fotos", "/Public/Fotos"});
    server_ = zip_server(root_, false);
    ASSERT_TRUE(server_->running()) << root_.read("/web/logs/error.log");
  }
  void add(const std::vector<std::string>& args) { ASSERT_EQ(0, share_add(root_, args)); }
  Download get(const std::string& query, const std::vector<std::string>& extra = {}) {
    return zip_fetch(root_, server_->url("/share.cgi?" + query), "/web/got", extra);
  }

  const std::string top_ = std::string(kZipPublic) + "/Fotos";
  ApplianceRoot root_;
  std::unique_ptr<WebServer> server_;
};

TEST_F(ShareZip, ThreeReadersAcceptTheArchives) {
  add({"pair", "/Public/Fotos/Grüße.txt", "--fid", "1:/Public/Fotos/Grüße.txt", "--fid",
       "2:/Public/Fotos/空/東京 1.jpg"});
  struct Case {
    std::string query, filename, folder;
    std::vector<std::string> files;
  } cases[] = {
      {"ssid=fotos&zip=1", "Fotos.zip", top_, {}},
      {"ssid=fotos&zip=1&path=%E7%A9%BA", "%E7%A9%BA.zip", top_ + "/空", {}},
      {"ssid=fotos&zip=1&path=hollow", "hollow.zip", top_ + "/hollow", {}},
      {"ssid=pair&zip=1", "Gr", top_, {top_ + "/Grüße.txt", top_ + "/空/東京 1.jpg"}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.query);
    Download d = get(c.query);
    ASSERT_EQ(200, d.status) << d.head;
    EXPECT_EQ("application/zip", d.header("content-type"));
    EXPECT_NE(std::string::npos, d.header("content-disposition").find(c.filename)) << d.head;
    EXPECT_EQ(d.length, d.received);
    EXPECT_EQ("", zip_readers_verdict(root_, "/web/got", c.folder, c.files));
  }
  EXPECT_EQ(1, share_count(root_, "pair"));
  Download head = get("ssid=fotos&zip=1", {"-I"});
  EXPECT_EQ(200, head.status);
  EXPECT_GT(head.length, 70000);
  EXPECT_EQ(3, share_count(root_, "fotos"));  // one per archive, subfolders too, none by HEAD
  const std::string page = zip_fetch(root_, server_->url("/share.cgi?ssid=fotos")).body;
  EXPECT_NE(std::string::npos, page.find("Download all (.zip, 1 MiB)"));
  EXPECT_NE(std::string::npos, page.find("ssid=fotos&amp;zip=1"));
}

// An archive gets exactly the answer a single file of the same link would.
TEST_F(ShareZip, TheGateHoldsForArchives) {
  add({"gone", "/Public/Fotos", "--expire", "1000", "--createtic", "900"});
  add({"coded", "/Public/Fotos", "--accesscode", "s3cret"});
  add({"used", "/Public/Fotos", "--download-limit", "1"});
  EXPECT_EQ(200, get("ssid=used&zip=1").status);
  struct Case {
    std::string query;
    std::vector<std::string> curl;
    int status;
  } cases[] = {
      {"ssid=gone", {}, 410},          {"ssid=coded", {}, 403},
      {"ssid=coded", {"--data", "code=wrong"}, 403}, {"ssid=nosuch", {}, 404},
      {"ssid=fotos&path=..%2FSecret", {}, 404},      {"ssid=fotos&path=out", {}, 404},
      {"ssid=used", {}, 410},  // the limit reached by the archive above
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.query);
    Download dl = get(c.query + (c.query == "ssid=used" ? "&path=empty.bin" : "") + "&dl=1", c.curl);
    const std::string dl_body = root_.read("/web/got");
    Download zip = get(c.query + "&zip=1", c.curl);
    EXPECT_EQ(c.status, zip.status) << zip.head;
    EXPECT_EQ(dl.status, zip.status);
    EXPECT_EQ(dl_body, root_.read("/web/got"));
  }
  EXPECT_EQ(1, share_count(root_, "used"));
  EXPECT_EQ(0, share_count(root_, "coded"));
}

TEST_F(ShareZip, AFourthStreamWaits) {
  root_.write(top_ + "/big.bin", "");
  ASSERT_EQ(0, truncate(root_.path(top_ + "/big.bin").c_str(), 64 << 20));
  std::vector<pid_t> slow;
  for (int i = 0; i < 3; ++i) {
    if ((slow.emplace_back(fork())) == 0) {
      execl("/usr/bin/curl", "curl", "-s", "--limit-rate", "64k", "-o", "/dev/null", "-A", "Mozilla/5.0",
            server_->url("/share.cgi?ssid=fotos&zip=1").c_str(), static_cast<char*>(nullptr));
      _exit(127);
    }
  }
  auto busy_slots = [&] {
    int n = 0;
    for (int i = 0; i < 3; ++i) {
      int fd = open(root_.path("/etc/config/share_zip_slot." + std::to_string(i)).c_str(), O_RDONLY);
      n += fd >= 0 && flock(fd, LOCK_SH | LOCK_NB) != 0;
      if (fd >= 0) close(fd);
    }
    return n;
  };
  for (int tries = 0; tries < 300 && busy_slots() < 3; ++tries) usleep(100 * 1000);
  ASSERT_EQ(3, busy_slots());
  Download busy = get("ssid=fotos&zip=1&path=hollow");
  EXPECT_EQ(503, busy.status) << busy.head;
  EXPECT_EQ("30", busy.header("retry-after"));
  for (pid_t pid : slow) kill(pid, SIGKILL), waitpid(pid, nullptr, 0);
  int again = 0;  // a slot is free once a stream ends
  for (int tries = 0; tries < 100 && again != 200; ++tries) {
    usleep(100 * 1000), again = get("ssid=fotos&zip=1&path=hollow").status;
  }
  EXPECT_EQ(200, again);
}

}  // namespace
