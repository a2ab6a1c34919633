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
#include <cstring>

std::string find_program(const char* name) {
  std::string path = getenv("PATH") ? getenv("PATH") : "";
  path += ":/usr/sbin:/sbin:/usr/bin:/bin";
  size_t start = 0;
  while (start <= path.size()) {
    size_t colon = path.find(':', start);
    if (colon == std::string::npos) colon = path.size();
    std::string candidate = path.substr(start, colon - start) + "/" + name;
    if (colon > start && access(candidate.c_str(), X_OK) == 0) return candidate;
    start = colon + 1;
  }
  return "";
}

int free_port() {
  int fd = socket(AF_INET, SOCK_STREAM, 0);
  if (fd < 0) return -1;
  sockaddr_in addr{};
  addr.sin_family = AF_INET;
  addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t len = sizeof addr;
  int port = -1;
  if (bind(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr) == 0 &&
      getsockname(fd, reinterpret_cast<sockaddr*>(&addr), &len) == 0) {
    port = ntohs(addr.sin_port);
  }
  close(fd);
  return port;
}

static bool accepts_connections(int port) {
  int fd = socket(AF_INET, SOCK_STREAM, 0);
  if (fd < 0) return false;
  sockaddr_in addr{};
  addr.sin_family = AF_INET;
  addr.sin_port = htons(static_cast<uint16_t>(port));
  addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  bool ok = connect(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr) == 0;
  close(fd);
  return ok;
}

WebServer::WebServer(const ApplianceRoot& root, const std::string& lighttpd,
                     const std::function<std::string(int port)>& config) {
  root.mkdirs("/web/htdocs");
  root.mkdirs("/web/logs");
  for (int attempt = 0; attempt < 3 && pid_ < 0; ++attempt) {
    port_ = free_port();
    if (port_ <= 0) continue;
    root.write("/web/lighttpd.conf", config(port_));
    start(root, lighttpd);
  }
}

void WebServer::start(const ApplianceRoot& root, const std::string& lighttpd) {
  std::string conf = root.path("/web/lighttpd.conf");
  std::string log = root.path("/web/logs/console.log");
  pid_t pid = fork();
  if (pid < 0) return;
  if (pid == 0) {
    FILE* f = freopen(log.c_str(), "a", stdout);
    if (f != nullptr) dup2(fileno(stdout), 2);
    execl(lighttpd.c_str(), "lighttpd", "-D", "-f", conf.c_str(), static_cast<char*>(nullptr));
    _exit(127);
  }
  for (int i = 0; i < 200; ++i) {
    int status = 0;
    if (waitpid(pid, &status, WNOHANG) == pid) return;  // it gave up (port taken?)
    if (accepts_connections(port_)) {
      pid_ = pid;
      return;
    }
    usleep(50 * 1000);
  }
  kill(pid, SIGKILL);
  waitpid(pid, nullptr, 0);
}

void WebServer::stop() {
  if (pid_ <= 0) return;
  kill(pid_, SIGTERM);
  for (int i = 0; i < 100; ++i) {
    if (waitpid(pid_, nullptr, WNOHANG) == pid_) {
      pid_ = -1;
      return;
    }
    usleep(50 * 1000);
  }
  kill(pid_, SIGKILL);
  waitpid(pid_, nullptr, 0);
  pid_ = -1;
}

Response parse_response(const std::string& raw) {
  Response r;
  size_t end = raw.find("\r\n\r\n");
  if (end == std::string::npos) return r;
  r.head = raw.substr(0, end + 2);
  r.body = raw.substr(end + 4);
  if (r.head.compare(0, 5, "HTTP/") == 0) r.status = atoi(r.head.c_str() + r.head.find(' ') + 1);
  size_t pos = r.head.find("\r\n") + 2;
  while (pos < r.head.size()) {
    size_t eol = r.head.find("\r\n", pos);
    std::string line = r.head.substr(pos, eol - pos);
    size_t colon = line.find(':');
    if (colon != std::string::npos) {
      std::string name = line.substr(0, colon);
      for (char& c : name) c = static_cast<char>(tolower(static_cast<unsigned char>(c)));
      size_t v = line.find_first_not_of(' ', colon + 1);
      r.headers[name] = v == std::string::npos ? "" : line.substr(v);
    }
    pos = eol + 2;
  }
  return r;
}
