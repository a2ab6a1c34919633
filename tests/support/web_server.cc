#include "support/web_server.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cctype>
#include <cstdio>
#include <cstdlib>

std::string find_program(const char* name) {
  std::string path = std::string(getenv("PATH") ? getenv("PATH") : "") + ":/usr/sbin:/sbin:/usr/bin:/bin";
  for (size_t start = 0, colon; start <= path.size(); start = colon + 1) {
    colon = path.find(':', start);
    if (colon == std::string::npos) colon = path.size();
    std::string candidate = path.substr(start, colon - start) + "/" + name;
    if (colon > start && access(candidate.c_str(), X_OK) == 0) return candidate;
  }
  return "";
}

// Binds (port 0: any free port, returned) or connects (true when accepted) on loopback.
static int loopback(int port, bool connect_to) {
  int fd = socket(AF_INET, SOCK_STREAM, 0);
  if (fd < 0) return -1;
  sockaddr_in addr{};
  addr.sin_family = AF_INET;
  addr.sin_port = htons(static_cast<uint16_t>(port));
  addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t len = sizeof addr;
  sockaddr* a = reinterpret_cast<sockaddr*>(&addr);
  int result = connect_to ? (connect(fd, a, len) == 0 ? 1 : 0)
                          : (bind(fd, a, len) == 0 && getsockname(fd, a, &len) == 0 ? ntohs(addr.sin_port) : -1);
  close(fd);
  return result;
}

int free_port() { return loopback(0, false); }

WebServer::WebServer(const ApplianceRoot& root, const std::string& lighttpd,
                     const std::function<std::string(int port)>& config) {
  root.mkdirs("/web/htdocs"); root.mkdirs("/web/logs");
  for (int attempt = 0; attempt < 3 && pid_ < 0; ++attempt) {
    if ((port_ = free_port()) <= 0) continue;
    root.write("/web/lighttpd.conf", config(port_)); start(root, lighttpd);
  }
}

void WebServer::start(const ApplianceRoot& root, const std::string& lighttpd) {
  std::string conf = root.path("/web/lighttpd.conf"), log = root.path("/web/logs/console.log");
  pid_t pid = fork();
  if (pid < 0) return;
  if (pid == 0) {
    if (freopen(log.c_str(), "a", stdout) != nullptr) dup2(fileno(stdout), 2);
    execl(lighttpd.c_str(), "lighttpd", "-D", "-f", conf.c_str(), static_cast<char*>(nullptr)); _exit(127);
  }
  for (int i = 0; i < 200 && pid_ < 0; ++i) {
    if (waitpid(pid, nullptr, WNOHANG) == pid) return;  // it gave up (port taken?)
    if (loopback(port_, true) == 1) pid_ = pid;
    usleep(50 * 1000);
  }
  if (pid_ > 0) return;
  kill(pid, SIGKILL); waitpid(pid, nullptr, 0);
}

void WebServer::stop() {
  if (pid_ <= 0) return;
  kill(pid_, SIGTERM);
  bool gone = false;
  for (int i = 0; i < 100 && !(gone = waitpid(pid_, nullptr, WNOHANG) == pid_); ++i) usleep(50 * 1000);
  if (!gone) {
    kill(pid_, SIGKILL); waitpid(pid_, nullptr, 0);
  }
  pid_ = -1;
}

Response parse_response(const std::string& raw) {
  Response r;
  size_t end = raw.find("\r\n\r\n");
  if (end == std::string::npos) return r;
  r.head = raw.substr(0, end + 2);
  r.body = raw.substr(end + 4);
  if (r.head.compare(0, 5, "HTTP/") == 0) r.status = atoi(r.head.c_str() + r.head.find(' ') + 1);
  for (size_t pos = r.head.find("\r\n") + 2, eol; pos < r.head.size(); pos = eol + 2) {
    eol = r.head.find("\r\n", pos);
    std::string line = r.head.substr(pos, eol - pos);
    size_t colon = line.find(':');
    if (colon == std::string::npos) continue;
    std::string name = line.substr(0, colon);
    for (char& c : name) c = static_cast<char>(tolower(static_cast<unsigned char>(c)));
    size_t v = line.find_first_not_of(' ', colon + 1);
    r.headers[name] = v == std::string::npos ? "" : line.substr(v);
  }
  return r;
}
