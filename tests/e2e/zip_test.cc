// share.cgi?zip=1 behind the real lighttpd, judged by three independent readers.
#include <gtest/gtest.h>
#include <signal.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "support/zip_share.h"

namespace {

class ShareZip : public ::testing::Test {
 protected:
  void SetUp() override {
    if (find_program("lighttpd").empty() || find_program("7z").empty() ||
        find_program("unzip").empty()) {
      GTEST_SKIP() << "lighttpd, 7z or unzip is not installed";
    }
    zip_prepare_root(root_);
    const std::string top = std::string(kZipPublic) + "/Fotos";
    root_.write(top + "/Grüße.txt", "hällo wörld\n");
    root_.write(top + "/空/東京 1.jpg", std::string(70000, 'x') + "tail");
    root_.write(top + "/empty.bin", "");
    root_.write(top + "/deep/er/still/n.txt", "n");
    root_.write(top + "/back\\slash.txt", "b");
    root_.mkdirs(top + "/hollow/inner");
    root_.write(std::string(kZipPublic) + "/Secret/s.txt", "outside the folder");
    symlink(root_.path(std::string(kZipPublic) + "/Secret").c_str(), root_.path(top + "/out").c_str());
    symlink("/etc/passwd", root_.path(top + "/pw").c_str());
    mkfifo(root_.path(top + "/fifo").c_str(), 0600);
    add({"fotos", "/Public/Fotos"});
    server_ = zip_server(root_, false);
    ASSERT_TRUE(server_->running()) << root_.read("/web/logs/error.log");
  }

  void add(std::vector<std::string> args) {
    args.insert(args.begin(), "add");
    args.insert(args.end(), {"--creator", "admin"});
    ASSERT_EQ(0, run_program(ctl_binary(), args, root_).status);
  }

  Download get(const std::string& query, const std::vector<std::string>& extra = {}) {
    return zip_fetch(root_, server_->url("/share.cgi?" + query), "/web/got", extra);
  }

  int count(const std::string& key) {
    RunResult r = run_program("/usr/bin/sqlite3", {root_.path("/etc/config/share_link.db"),
        "SELECT download_count FROM SHARELINK_EVENT WHERE pkey='" + key + "'"}, root_);
    return atoi(r.out.c_str());
  }

  ApplianceRoot root_;
  std::unique_ptr<WebServer> server_;
};

TEST_F(ShareZip, ThreeReadersAcceptTheArchives) {
  const std::string top = std::string(kZipPublic) + "/Fotos";
  add({"pair", "/Public/Fotos/Grüße.txt", "--fid", "1:/Public/Fotos/Grüße.txt", "--fid",
       "2:/Public/Fotos/空/東京 1.jpg"});
  struct Case {
    std::string query, filename, folder;
    std::vector<std::string> files;
  } cases[] = {
      {"ssid=fotos&zip=1", "fotos.zip", top, {}},
      {"ssid=fotos&zip=1&path=%E7%A9%BA", "%e7%a9%ba.zip", top + "/空", {}},
      {"ssid=fotos&zip=1&path=hollow", "hollow.zip", top + "/hollow", {}},
      {"ssid=pair&zip=1", "gr", top, {top + "/Grüße.txt", top + "/空/東京 1.jpg"}},
  };
  int counted = 0;
  for (const Case& c : cases) {
    SCOPED_TRACE(c.query);
    Download d = get(c.query);
    ASSERT_EQ(200, d.status) << d.head;
    EXPECT_EQ("application/zip", d.header("content-type"));
    EXPECT_NE(std::string::npos, d.header("content-disposition").find(c.filename)) << d.head;
    EXPECT_EQ(d.length, d.received);
    EXPECT_EQ("", zip_readers_verdict(root_, "/web/got", c.folder, c.files));
    if (c.query.find("fotos") != std::string::npos) ++counted;
  }
  EXPECT_EQ(counted, count("fotos"));  // one download per archive, subfolders too
  EXPECT_EQ(1, count("pair"));
  Download head = get("ssid=fotos&zip=1", {"-I"});
  EXPECT_EQ(200, head.status);
  EXPECT_GT(head.length, 70000);
  EXPECT_EQ(counted, count("fotos"));
  Download page = get("ssid=fotos");
  EXPECT_NE(std::string::npos, root_.read("/web/got").find("Download all (.zip, 1 MiB)"));
  EXPECT_NE(std::string::npos, root_.read("/web/got").find("ssid=fotos&amp;zip=1"));
}

TEST_F(ShareZip, TheGateHoldsForArchives) {
  add({"gone", "/Public/Fotos", "--expire", "1000", "--createtic", "900"});
  add({"coded", "/Public/Fotos", "--accesscode", "s3cret"});
  add({"used", "/Public/Fotos", "--download-limit", "1"});
  struct Case {
    std::string ssid, extra_query;
    std::vector<std::string> curl;
    int status;
  } cases[] = {
      {"gone", "", {}, 410},
      {"coded", "", {}, 403},
      {"coded", "", {"--data", "code=wrong"}, 403},
      {"nosuch", "", {}, 404},
      {"fotos", "&path=..%2FSecret", {}, 404},
      {"fotos", "&path=out", {}, 404},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.ssid + c.extra_query);
    Download dl = get("ssid=" + c.ssid + c.extra_query + "&dl=1", c.curl);
    std::string dl_body = root_.read("/web/got");
    Download zip = get("ssid=" + c.ssid + c.extra_query + "&zip=1", c.curl);
    EXPECT_EQ(c.status, zip.status) << zip.head;
    EXPECT_EQ(dl.status, zip.status);
    EXPECT_EQ(dl_body, root_.read("/web/got"));
  }
  EXPECT_EQ(200, get("ssid=used&zip=1").status);
  EXPECT_EQ(1, count("used"));
  Download dl = get("ssid=used&dl=1&path=empty.bin");
  std::string dl_body = root_.read("/web/got");
  Download zip = get("ssid=used&zip=1");
  EXPECT_EQ(410, zip.status);
  EXPECT_EQ(dl.status, zip.status);
  EXPECT_EQ(dl_body, root_.read("/web/got"));
  EXPECT_EQ(1, count("used"));
  EXPECT_EQ(0, count("coded"));
}

TEST_F(ShareZip, AFourthStreamWaits) {
  const std::string big = std::string(kZipPublic) + "/Fotos/big.bin";
  root_.write(big, "");
  ASSERT_EQ(0, truncate(root_.path(big).c_str(), 64 << 20));
  std::vector<pid_t> slow;
  for (int i = 0; i < 3; ++i) {
    pid_t pid = fork();
    if (pid == 0) {
      execl("/usr/bin/curl", "curl", "-s", "--limit-rate", "64k", "-o", "/dev/null", "-A", "Mozilla/5.0",
            server_->url("/share.cgi?ssid=fotos&zip=1").c_str(), static_cast<char*>(nullptr));
      _exit(127);
    }
    slow.push_back(pid);
  }
  auto busy_slots = [&] {
    int n = 0;
    for (int i = 0; i < 3; ++i) {
      int fd = open(root_.path("/etc/config/share_zip_slot." + std::to_string(i)).c_str(), O_RDONLY);
      if (fd >= 0 && flock(fd, LOCK_SH | LOCK_NB) != 0) ++n;
      if (fd >= 0) close(fd);
    }
    return n;
  };
  for (int tries = 0; tries < 300 && busy_slots() < 3; ++tries) usleep(100 * 1000);
  ASSERT_EQ(3, busy_slots());
  Download busy = get("ssid=fotos&zip=1&path=hollow");
  EXPECT_EQ(503, busy.status) << busy.head;
  EXPECT_EQ("30", busy.header("retry-after"));
  for (pid_t pid : slow) kill(pid, SIGKILL);
  for (pid_t pid : slow) waitpid(pid, nullptr, 0);
  Download again;
  for (int tries = 0; tries < 100 && again.status != 200; ++tries) {
    usleep(100 * 1000);
    again = get("ssid=fotos&zip=1&path=hollow");
  }
  EXPECT_EQ(200, again.status);
}

}  // namespace
