// lighttpd on 127.0.0.1 as a child of a test, with the test's configuration, and curl's answers read back.
#ifndef SLT_TESTS_SUPPORT_WEB_SERVER_H_
#define SLT_TESTS_SUPPORT_WEB_SERVER_H_

#include <sys/types.h>

#include <functional>
#include <map>
#include <string>

#include "support/appliance.h"

// The program's path on PATH (and the sbin folders), or "".
std::string find_program(const char* name);
int free_port();  // free a moment ago: the server start retries on a race

// lighttpd in the foreground (-D), stopped on destruction. `config(port)` gives the configuration, written to
// /web/lighttpd.conf of the root; logs go to /web/logs/. server.username stays unset: the server and its CGI
// children keep the test's identity, which owns the temporary root.
class WebServer {
 public:
  WebServer(const ApplianceRoot& root, const std::string& lighttpd,
            const std::function<std::string(int port)>& config);
  ~WebServer() { stop(); }
  WebServer(const WebServer&) = delete;
  WebServer& operator=(const WebServer&) = delete;
  bool running() const { return pid_ > 0; }
  int port() const { return port_; }
  std::string url(const std::string& target) const { return "http://127.0.0.1:" + std::to_string(port_) + target; }
 private:
  void start(const ApplianceRoot& root, const std::string& lighttpd);
  void stop();
  int port_ = -1;
  pid_t pid_ = -1;
};

struct Response {
  int status = 0;
  std::string head;                            // status line and header lines as received
  std::map<std::string, std::string> headers;  // lower-case names
  std::string body;
  bool has(const std::string& name) const { return headers.count(name) != 0; }
  std::string header(const std::string& name) const { return has(name) ? headers.at(name) : std::string(); }
};

// Reads curl -i output: the status, the header lines and the body.
Response parse_response(const std::string& raw);

#endif  // SLT_TESTS_SUPPORT_WEB_SERVER_H_
