// A fresh appliance root in a temporary folder, stand-in programs in it, real programs run on it.
#ifndef SLT_TESTS_SUPPORT_APPLIANCE_H_
#define SLT_TESTS_SUPPORT_APPLIANCE_H_

#include <sys/types.h>

#include <ctime>
#include <map>
#include <string>
#include <vector>

// A temporary appliance root, removed with everything in it on destruction.
class ApplianceRoot {
 public:
  ApplianceRoot();
  ~ApplianceRoot();
  ApplianceRoot(const ApplianceRoot&) = delete;
  ApplianceRoot& operator=(const ApplianceRoot&) = delete;
  const std::string& dir() const { return dir_; }
  std::string path(const std::string& ap) const;  // the file-system path of appliance path ap
  void mkdirs(const std::string& ap) const;
  void write(const std::string& ap, const std::string& content, mode_t mode = 0644) const;
  void script(const std::string& ap, const std::string& body) const;  // "#!/bin/sh\n" + body, 0755
  std::string read(const std::string& ap) const;
  bool exists(const std::string& ap) const;
  void set_mtime(const std::string& ap, time_t when) const;
  void remove(const std::string& ap) const;
 private:
  std::string dir_;
};

// Sets variables (SHARELINK_ROOT...) in this process for one scope; clears the profile cache.
class ScopedEnv {
 public:
  explicit ScopedEnv(const std::map<std::string, std::string>& vars);
  ~ScopedEnv();
 private:
  std::map<std::string, std::pair<bool, std::string>> saved_;
};

struct RunResult {
  int status = -1;  // exit status, or 128 + signal
  std::string out;
  std::string err;
};

// Runs a program with SHARELINK_ROOT = root, extra variables ("\x01unset" removes one) and input.
RunResult run_program(const std::string& program, const std::vector<std::string>& args,
                      const ApplianceRoot& root, const std::map<std::string, std::string>& env = {},
                      const std::string& input = std::string());

std::string tool_binary();  // build/ShareLinkTool
std::string ctl_binary();   // build/sharelinkctl
std::string cgi_binary();   // build/sharelink.cgi
std::string source_path(const std::string& relative);
std::string read_file(const std::string& path);  // "" when it cannot be read

#endif  // SLT_TESTS_SUPPORT_APPLIANCE_H_
