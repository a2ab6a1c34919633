// Many recipients at once through the shipped lighttpd configuration
// (data/lighttpd/local.conf, which includes share.conf): 40 parallel
// downloads of a link limited to 10 give exactly 10 whole files and 30 410s,
// and the store counts 10. Five rounds, a fresh link each, with and without
// X-Sendfile.
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <map>
#include <string>
#include <vector>

#include "support/appliance.h"
#include "support/store_fixture.h"

namespace {

// lighttpd with the shipped configuration, on a free port of 127.0.0.1.
class ShareServer {
 public:
  ShareServer(const ApplianceRoot& root, const std::string& x_sendfile) {
    root.mkdirs("/web/htdocs");
    for (int attempt = 0; attempt < 3 && pid_ < 0; ++attempt) start(root, x_sendfile);
  }
  ~ShareServer() {
    if (pid_ <= 0) return;
    kill(pid_, SIGTERM);
    waitpid(pid_, nullptr, 0);
  }
  bool running() const { return pid_ > 0; }
  std::string url(const std::string& target) const {
    return "http://127.0.0.1:" + std::to_string(port_) + target;
  }

 private:
  static int free_port() {
    int fd = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t len = sizeof a;
    int port = -1;
    if (bind(fd, reinterpret_cast<sockaddr*>(&a), sizeof a) == 0 &&
        getsockname(fd, reinterpret_cast<sockaddr*>(&a), &len) == 0) {
      port = ntohs(a.sin_port);
    }
    close(fd);
    return port;
  }
  static bool listening(int port) {
    int fd = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_port = htons(static_cast<uint16_t>(port));
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    bool ok = connect(fd, reinterpret_cast<sockaddr*>(&a), sizeof a) == 0;
    close(fd);
    return ok;
  }
  void start(const ApplianceRoot& root, const std::string& x_sendfile) {
    port_ = free_port();
    const std::map<std::string, std::string> env = {
        {"SHARELINK_WEB_PORT", std::to_string(port_)}, {"SHARELINK_WEB_DIR", root.path("/web")},
        {"SHARELINK_CGI_DIR", SLT_BUILD_DIR}, {"SHARELINK_X_SENDFILE", x_sendfile}};
    const std::string conf = source_path("data/lighttpd/local.conf");
    pid_t pid = fork();
    if (pid < 0) return;
    if (pid == 0) {
      setenv("SHARELINK_ROOT", root.dir().c_str(), 1);
      for (const auto& kv : env) setenv(kv.first.c_str(), kv.second.c_str(), 1);
      execlp("lighttpd", "lighttpd", "-D", "-f", conf.c_str(), static_cast<char*>(nullptr));
      _exit(127);
    }
    for (int i = 0; i < 200; ++i) {
      if (waitpid(pid, nullptr, WNOHANG) == pid) return;  // port taken, or no lighttpd
      if (listening(port_)) {
        pid_ = pid;
        return;
      }
      usleep(50 * 1000);
    }
    kill(pid, SIGKILL);
    waitpid(pid, nullptr, 0);
  }
  pid_t pid_ = -1;
  int port_ = -1;
};

TEST(SlowShareLoad, FortyParallelDownloadsOfALinkLimitedToTen) {
  constexpr int kClients = 40, kLimit = 10, kRounds = 5;
  for (const char* x_sendfile : {"1", "0"}) {
    ApplianceRoot root;
    root.write("/etc/config/smb.conf", "[Public]\npath = /share/Public\n");
    root.write("/etc/config/Korvix.conf", "[System]\nWeb Access Port = 8080\n");
    std::string body;
    for (int i = 0; body.size() < 200 * 1024; ++i) body += "block " + std::to_string(i) + "\n";
    root.write("/share/Public/load.bin", body);
    ASSERT_EQ(run_program(ctl_binary(), {"init"}, root).status, 0);
    ShareServer web(root, x_sendfile);
    ASSERT_TRUE(web.running()) << root.read("/web/error.log");
    for (int round = 0; round < kRounds; ++round) {
      SCOPED_TRACE(std::string("X-Sendfile ") + x_sendfile + ", round " + std::to_string(round));
      const std::string ssid = "LkLoadRound" + std::to_string(round);
      ASSERT_EQ(run_program(ctl_binary(), {"add", ssid, "/Public/load.bin", "--creator", "admin", "--host",
                                           "127.0.0.1", "--download-limit", std::to_string(kLimit)},
                            root).status, 0);
      // One curl, 40 transfers at once; each client its own User-Agent, so
      // no two count as the same visitor.
      root.mkdirs("/out" + std::to_string(round));
      std::vector<std::string> args = {"-s", "--parallel", "--parallel-immediate", "--parallel-max",
                                       std::to_string(kClients)};
      for (int i = 0; i < kClients; ++i) {
        if (i > 0) args.push_back("--next");
        const std::string out = root.path("/out" + std::to_string(round) + "/" + std::to_string(i));
        for (const std::string& a : {std::string("-A"), "load-client-" + std::to_string(i), std::string("-o"), out,
                                     std::string("-w"), "%{http_code} " + std::to_string(i) + "\n",
                                     web.url("/share.cgi?ssid=" + ssid + "&dl=1")}) {
          args.push_back(a);
        }
      }
      RunResult r = run_program("/usr/bin/curl", args, root);
      ASSERT_EQ(r.status, 0) << r.err;
      std::map<std::string, int> statuses;
      int whole = 0;
      size_t at = 0;
      for (size_t nl; (nl = r.out.find('\n', at)) != std::string::npos; at = nl + 1) {
        const std::string line = r.out.substr(at, nl - at);
        const std::string code = line.substr(0, line.find(' '));
        ++statuses[code];
        if (code == "200") whole += root.read("/out" + std::to_string(round) + "/" + line.substr(4)) == body;
      }
      EXPECT_EQ(statuses, (std::map<std::string, int>{{"200", kLimit}, {"410", kClients - kLimit}}));
      EXPECT_EQ(whole, kLimit);
      EXPECT_EQ(store_value(root, "SELECT download_count FROM SHARELINK_EVENT WHERE pkey = '" + ssid + "'"),
                std::to_string(kLimit));
    }
  }
}

}  // namespace
