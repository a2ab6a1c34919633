// X-Sendfile behind the real lighttpd with the shipped snippet: the server
// opens only share.cgi's link to the file the gate opened, so names it
// decodes, control bytes and a folder swapped for a link give no byte from
// outside; the links go away; without a private folder share.cgi streams.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdio.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <functional>
#include <regex>
#include <thread>

#include "platform/fs.h"
#include "platform/fs_beneath.h"
#include "platform/os.h"
#include "share_page/file_send.h"
#include "support/zip_share.h"

namespace {

const char kSecret[] = "outside the share";
const char kHand[] = "/etc/config/share_xsend";  // beside the store
const std::regex kLinkName("[0-9]+-[0-9a-f]{32}");

size_t count_of(const std::string& text, const std::string& part) {
  size_t n = 0;
  for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++n;
  return n;
}
std::vector<std::string> names_in(const std::string& dir) {
  std::vector<std::string> out;
  std::error_code ec;
  for (const auto& e : std::filesystem::directory_iterator(dir, ec)) out.push_back(e.path().filename());
  return out;
}

// Names created in a folder while it lives (inotify).
class Creations {
 public:
  explicit Creations(const std::string& dir) : fd_(inotify_init1(IN_NONBLOCK)) {
    inotify_add_watch(fd_, dir.c_str(), IN_CREATE);
  }
  ~Creations() { close(fd_); }
  int count() {
    alignas(inotify_event) char buf[65536];
    for (ssize_t n; (n = read(fd_, buf, sizeof buf)) > 0;)
      for (ssize_t at = 0; at < n; at += sizeof(inotify_event) + reinterpret_cast<inotify_event*>(buf + at)->len) ++n_;
    return n_;
  }
 private:
  int fd_, n_ = 0;
};

class XsendTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (find_program("lighttpd").empty()) GTEST_SKIP() << "lighttpd is not installed";
    zip_prepare_root(root_);
    root_.write("/share/VOL1/Secret/s.txt", kSecret), root_.mkdirs(f_);
    ASSERT_EQ(0, share_add(root_, {"f", "/Public/f"}));
    server_ = std::make_unique<WebServer>(root_, find_program("lighttpd"), [this](int port) {
      return "server.modules = (\"mod_alias\", \"mod_cgi\", \"mod_setenv\")\nserver.bind = \"127.0.0.1\"\n"
             "server.port = " + std::to_string(port) + "\nserver.document-root = \"" + root_.path("/web/htdocs") +
             "\"\nserver.errorlog = \"" + root_.path("/web/logs/error.log") + "\"\n"
             "var.sharelink_cgi_dir = \"" SLT_BUILD_DIR "\"\nvar.sharelink_root = \"" + root_.dir() + "\"\n"
             "var.sharelink_x_sendfile = \"1\"\nvar.sharelink_xsend_folder = \"/etc/config/share_xsend/\"\ninclude \"" + source_path("data/lighttpd/share.conf") + "\"\n";
    });
    ASSERT_TRUE(server_->running()) << root_.read("/web/logs/error.log");
  }
  std::string url(const std::string& path) { return server_->url("/share.cgi?ssid=f&dl=1&path=" + path); }
  Download get(const std::string& path) { return zip_fetch(root_, url(path)); }
  void link_out(const std::string& target, const std::string& name) {
    ASSERT_EQ(0, symlink(root_.path(target).c_str(), root_.path(f_ + "/" + name).c_str()));
  }

  ApplianceRoot root_;
  const std::string f_ = std::string(kZipPublic) + "/f";
  std::unique_ptr<WebServer> server_;
};

// Each of these served the secret before: the server decoded the name, or
// lost the control byte, and followed a link out.
TEST_F(XsendTest, NamesTheServerWouldReadOtherwiseServeTheCheckedFile) {
  root_.write(f_ + "/a%41b.txt", "inside pct"), link_out("/share/VOL1/Secret/s.txt", "aAb.txt");
  root_.write(f_ + "/%2e%2e/%2e%2e/Secret/s.txt", "inside dots");
  root_.write(f_ + "/leak\x01", "inside ctl"), link_out("/share/VOL1/Secret/s.txt", "leak");
  ASSERT_EQ(0, share_add(root_, {"leak", "/Public/f/leak\x01"}));  // the server refuses %01 in a query
  root_.mkdirs(kHand);
  Creations made(root_.path(kHand));
  for (auto [query, body] : {std::pair<std::string, std::string>{"f&dl=1&path=a%2541b.txt", "inside pct"},
                             {"f&dl=1&path=%252e%252e/%252e%252e/Secret/s.txt", "inside dots"}, {"leak&dl=1", "inside ctl"}}) {
    Download d = zip_fetch(root_, server_->url("/share.cgi?ssid=" + query));
    EXPECT_EQ(200, d.status) << query << d.head;
    EXPECT_EQ(body, d.body) << query;
  }
  EXPECT_EQ(3, made.count());  // each through the hand-over
}

TEST_F(XsendTest, AFolderSwappedForALinkNeverLeadsOut) {
  root_.write(f_ + "/d/file.txt", "inside race"), root_.write("/share/VOL1/Secret/file.txt", kSecret);
  link_out("/share/VOL1/Secret", "e");
  const std::string d = root_.path(f_ + "/d"), e = root_.path(f_ + "/e");
  std::atomic<bool> stop{false};
  std::thread swapper([&] {
    while (!stop) renameat2(AT_FDCWD, d.c_str(), AT_FDCWD, e.c_str(), RENAME_EXCHANGE);
  });
  std::vector<std::string> args = {"-s", "-w", "\n%{http_code}\n"};
  for (int i = 0; i < 300; ++i) args.push_back(url("d/file.txt"));
  RunResult r = run_program(find_program("curl"), args, root_);
  stop = true, swapper.join();
  EXPECT_EQ(0u, count_of(r.out, kSecret));
  EXPECT_GT(count_of(r.out, "inside race\n200\n"), 30u);  // not only the gate's 404s
}

TEST_F(XsendTest, WholeBodiesGoThroughALinkThatIsGoneAfterwards) {
  std::string big(3 << 20, '\0');
  for (size_t i = 0; i < big.size(); ++i) big[i] = static_cast<char>(i * 7 + i / 4093);
  root_.write(f_ + "/big.bin", big), root_.write(f_ + "/empty", "");
  {  // share.cgi as the server starts it; opening the named link is what the server does
    ScopedEnv env{{{"REQUEST_METHOD", "GET"}, {"QUERY_STRING", "ssid=f&dl=1&path=big.bin"},
                   {"SHARE_X_SENDFILE", "1"}, {"SHARE_XSEND_FOLDER", "/etc/config/share_xsend/"}, {"SHARELINK_ROOT", root_.dir()}}};
    const auto start = std::chrono::steady_clock::now();
    FILE* cgi = popen(SLT_BUILD_DIR "/share.cgi", "r");
    std::string out;
    char buf[4096];
    for (ssize_t n; out.find("\r\n\r\n") == std::string::npos && (n = read(fileno(cgi), buf, sizeof buf)) > 0;)
      out.append(buf, static_cast<size_t>(n));
    const std::string head = "\r\nX-Sendfile: " + root_.path(kHand) + "/";
    const size_t at = out.rfind(head);
    ASSERT_NE(std::string::npos, at) << out;
    const std::string name = out.substr(at + head.size(), out.size() - 4 - at - head.size());
    EXPECT_TRUE(std::regex_match(name, kLinkName)) << name;
    EXPECT_TRUE(big == root_.read(std::string(kHand) + "/" + name));
    EXPECT_EQ(0, pclose(cgi));
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(3));  // it did not wait out
  }
  Creations made(root_.path(kHand));
  std::vector<std::string> args = {"-s", "--parallel", "--parallel-max", "20"};
  root_.mkdirs("/got");
  for (int i = 0; i < 20; ++i) {
    args.insert(args.end(), {"-A", "burst-" + std::to_string(i), "-o", root_.path("/got/" + std::to_string(i)),
                             url("big.bin")});
  }
  ASSERT_EQ(0, run_program(find_program("curl"), args, root_).status);
  for (int i = 0; i < 20; ++i) EXPECT_TRUE(big == root_.read("/got/" + std::to_string(i))) << i;
  EXPECT_EQ(20, made.count());
  EXPECT_EQ(std::vector<std::string>{}, names_in(root_.path(kHand)));
  const auto start = std::chrono::steady_clock::now();  // the server opens no empty file: streamed
  EXPECT_EQ(200, get("empty").status);
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(2));
  Download part = zip_fetch(root_, url("big.bin"), "", {"-H", "Range: bytes=10-19"});  // ranges and HEAD: the CGI's
  EXPECT_EQ("206 " + big.substr(10, 10), std::to_string(part.status) + " " + part.body);
  EXPECT_EQ(3 << 20, zip_fetch(root_, url("big.bin"), "", {"-I"}).length);
  EXPECT_EQ(20, made.count());
}

TEST_F(XsendTest, WithoutAPrivateFolderShareCgiStreamsAndLeftoversGo) {
  root_.write(f_ + "/a.txt", "streamed"), root_.mkdirs("/share/VOL1/Secret/hand");
  const std::string outside = root_.path("/share/VOL1/Secret/hand"), hand = root_.path(kHand);
  const std::function<void()> cases[] = {
      [&] { root_.write(kHand, "a file in its place"); },
      [&] { ASSERT_EQ(0, symlink(outside.c_str(), hand.c_str())); },
      [&] { root_.mkdirs(kHand), chmod(hand.c_str(), 0777); },  // others could swap the link
  };
  for (size_t i = 0; i < 3; ++i) {
    std::filesystem::remove_all(hand), cases[i]();
    Creations in(outside), here(hand);
    Download d = get("a.txt");
    EXPECT_EQ("200 streamed", std::to_string(d.status) + " " + d.body) << i;
    EXPECT_EQ(0, in.count() + here.count()) << i;
  }
  std::filesystem::remove_all(hand), root_.mkdirs(kHand), chmod(hand.c_str(), 0700);
  const long long now = time(nullptr);
  const std::string hex(32, 'a'), old = std::to_string(now - 90) + "-" + hex,
                    ahead = std::to_string(now + 90) + "-" + hex, fresh = std::to_string(now) + "-" + hex;
  for (const std::string& n : {old, ahead, fresh, std::string("keep.txt")}) root_.write(kHand + ("/" + n), "");
  EXPECT_EQ("streamed", get("a.txt").body);
  // The body may reach the client before share.cgi has removed its own link.
  for (int i = 0; i < 50 && names_in(hand).size() > 2; ++i) usleep(100 * 1000);
  auto left = names_in(hand);
  std::sort(left.begin(), left.end());
  EXPECT_EQ((std::vector<std::string>{fresh, "keep.txt"}), left);
}

// The seam's faults on each new call, in process: where no link can be
// made the body is streamed; where one was made it is gone afterwards.
std::string g_capture;  // share.cgi's standard output
std::string g_served;   // what the stand-in server read through the link
decltype(os.poll) g_real_poll;

int server_poll(pollfd* p, nfds_t n, int ms) {
  const std::string out = read_file(g_capture), key = "X-Sendfile: ";
  const size_t at = out.find(key);
  if (at != std::string::npos) g_served = read_file(out.substr(at + key.size(), out.find('\r', at) - at - key.size()));
  return g_real_poll(p, n, ms);
}

TEST(XsendHandOver, FaultsStreamTheBodyOrLeaveNoLink) {
  ApplianceRoot root;
  ScopedEnv env{{{"SHARELINK_ROOT", root.dir()}}};
  root.write("/share/f.bin", "the body");
  g_capture = root.path("/out"), g_real_poll = os.poll;
  static int linkat_calls;
  struct Case { const char* what; std::function<void()> fault; bool handed, opened; };
  const Case cases[] = {
      {"as it is", [] {}, true, true},
      {"no folder", [] { os.mkdir = [](const char*, mode_t) { return errno = EROFS, -1; }; }, false, false},
      {"other file system", [] { os.linkat = [](int, const char*, int, const char*, int) { return errno = EXDEV, -1; }; }, false, false},
      {"name taken once", [] { linkat_calls = 0, os.linkat = [](int a, const char* b, int c, const char* d, int e) {
         return ++linkat_calls == 1 ? (errno = EEXIST, -1) : linkat(a, b, c, d, e); }; }, true, true},
      {"no inotify", [] { os.inotify_init1 = [](int) { return errno = EMFILE, -1; }; }, false, false},
      {"no watch", [] { os.inotify_add_watch = [](int, const char*, uint32_t) { return errno = ENOSPC, -1; }; }, false, false},
      {"no random", [] { os.getrandom = [](void*, size_t, unsigned) -> ssize_t { return errno = EIO, -1; }; }, false, false},
      {"never opened", [] { os.poll = [](pollfd*, nfds_t, int) { return 0; }; }, true, false},
      {"watch unreadable", [] { os.read = [](int, void*, size_t) -> ssize_t { return errno = EIO, -1; }; }, true, true},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    std::filesystem::remove_all(root.path(kHand)), g_served.clear();
    os_reset(), os.poll = server_poll, c.fault();
    UniqueFd fd(open(root.path("/share/f.bin").c_str(), O_RDONLY));
    struct stat st;
    fstat(fd.get(), &st);
    fflush(stdout);
    const int saved = dup(1), out = open(g_capture.c_str(), O_RDWR | O_CREAT | O_TRUNC, 0600);
    dup2(out, 1);
    const bool ok = send_shared_file(fd.get(), st, "f.bin", plan_file_answer(st, nullptr, nullptr, nullptr, nullptr),
                                     false, false, kHand);
    fflush(stdout), dup2(saved, 1), close(saved), close(out), os_reset();
    const std::string answer = read_file(g_capture);
    const std::regex handed("\r\nX-Sendfile: " + root.path(kHand) + "/[0-9]+-[0-9a-f]{32}\r\n\r\n$");
    EXPECT_TRUE(ok);
    EXPECT_EQ(c.handed, std::regex_search(answer, handed)) << answer;
    EXPECT_EQ(c.handed, answer.size() < 12 || answer.substr(answer.size() - 12) != "\r\n\r\nthe body") << answer;
    EXPECT_EQ(c.opened ? "the body" : "", g_served);
    EXPECT_EQ(std::vector<std::string>{}, names_in(root.path(kHand)));
  }
  // Opens through another name of the file are not the server's.
  std::string fs_path;
  UniqueFd dir(fs_open_private_dir(kHand, &fs_path)), file(open(root.path("/share/f.bin").c_str(), O_RDONLY));
  ASSERT_EQ(root.path(kHand), fs_path);
  UniqueFd watch(fs_watch_opens(dir.get()));
  ASSERT_EQ(0, fs_link_open_file(file.get(), dir.get(), "n"));
  close(open(root.path("/share/f.bin").c_str(), O_RDONLY));
  EXPECT_FALSE(fs_wait_opened(watch.get(), "n", 100));
  close(open((fs_path + "/n").c_str(), O_RDONLY));
  EXPECT_TRUE(fs_wait_opened(watch.get(), "n", 100));
  EXPECT_LT(fs_open_private_dir("/etc/config//share_xsend", &fs_path), 0);  // text that is not canonical
}

}  // namespace

namespace {

// The server is handed only what it will send: a conditional request, a
// folder the configuration does not name, or one a share could serve, is
// streamed by share.cgi (else the server answered 304 or 403 to a download
// that had counted).
TEST_F(XsendTest, OnlyUnconditionalBodiesGoToTheNamedFolder) {
  root_.write(f_ + "/a.txt", "streamed");
  ASSERT_EQ(0, share_add(root_, {"lim", "/Public/f/a.txt", "--download-limit", "3"}));
  for (const char* since : {"Sunday, 06-Nov-39 08:49:37 GMT", "Sun Nov  6 08:49:37 2039", "Mon, 06 Nov 2039 08:49:37 GMT"}) {
    Download d = zip_fetch(root_, server_->url("/share.cgi?ssid=lim&dl=1"), "",
                           {"-A", since, "-H", std::string("If-Modified-Since: ") + since});
    EXPECT_EQ(d.status == 200, d.body == "streamed") << since << " " << d.status;
  }
  EXPECT_EQ(3, share_count(root_, "lim"));  // every counted download sent its bytes
  auto run = [&](const std::map<std::string, std::string>& env) {
    std::map<std::string, std::string> all = {{"REQUEST_METHOD", "GET"}, {"QUERY_STRING", "ssid=f&dl=1&path=a.txt"},
                                              {"SHARE_X_SENDFILE", "1"}};
    for (const auto& kv : env) all[kv.first] = kv.second;
    return run_program(SLT_BUILD_DIR "/share.cgi", {}, root_, all).out;
  };
  for (const char* folder : {"", "/share/VOL1/Public/x/", "/etc/config/../share_xsend/", "relative/"}) {
    const std::string out = run({{"SHARE_XSEND_FOLDER", folder}});
    EXPECT_EQ(std::string::npos, out.find("X-Sendfile:")) << folder;
    EXPECT_EQ("streamed", out.substr(out.find("\r\n\r\n") + 4)) << folder;
  }
}

}  // namespace
