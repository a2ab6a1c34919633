#include "support/appliance.h"

#include <poll.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include "platform/profile.h"

extern char** environ;

namespace {

void must(bool ok, const std::string& what) {
  if (!ok) throw std::runtime_error(what + ": " + strerror(errno));
}

void mkdirs_real(const std::string& p) {
  for (size_t slash = p.find('/', 1); ; slash = p.find('/', slash + 1)) {
    std::string cur = p.substr(0, slash);
    must(mkdir(cur.c_str(), 0755) == 0 || errno == EEXIST, "mkdir " + cur);
    if (slash == std::string::npos) return;
  }
}

std::vector<char*> c_strings(std::vector<std::string>& v) {
  std::vector<char*> out;
  for (auto& s : v) out.push_back(&s[0]);
  out.push_back(nullptr);
  return out;
}

}  // namespace

ApplianceRoot::ApplianceRoot() {
  const char* tmp = getenv("TMPDIR");
  std::string tmpl = std::string(tmp && tmp[0] ? tmp : "/tmp") + "/slt-root-XXXXXX";
  must(mkdtemp(&tmpl[0]) != nullptr, "mkdtemp");
  dir_ = tmpl;
  for (const char* d : {"/etc/config", "/tmp", "/share", "/home/httpd/cgi-bin/html", "/sbin", "/bin",
                        "/usr/bin", "/usr/sbin", "/usr/local/bin"}) {
    mkdirs(d);
  }
}

ApplianceRoot::~ApplianceRoot() {
  if (dir_.size() > 5 && system(("rm -rf '" + dir_ + "'").c_str()) != 0) return;
}

std::string ApplianceRoot::path(const std::string& ap) const { return dir_ + ap; }
void ApplianceRoot::mkdirs(const std::string& ap) const { mkdirs_real(path(ap)); }

void ApplianceRoot::write(const std::string& ap, const std::string& content, mode_t mode) const {
  std::string p = path(ap);
  mkdirs_real(p.substr(0, p.rfind('/')));
  std::ofstream f(p, std::ios::binary | std::ios::trunc);
  must(static_cast<bool>(f << content), "write " + p);
  f.close();
  must(chmod(p.c_str(), mode) == 0, "chmod " + p);
}

void ApplianceRoot::script(const std::string& ap, const std::string& body) const {
  write(ap, "#!/bin/sh\n" + body, 0755);
}

std::string ApplianceRoot::read(const std::string& ap) const { return read_file(path(ap)); }

bool ApplianceRoot::exists(const std::string& ap) const {
  struct stat st;
  return lstat(path(ap).c_str(), &st) == 0;
}

void ApplianceRoot::set_mtime(const std::string& ap, time_t when) const {
  struct timeval tv[2] = {{when, 0}, {when, 0}};
  must(utimes(path(ap).c_str(), tv) == 0, "utimes " + ap);
}

void ApplianceRoot::remove(const std::string& ap) const { unlink(path(ap).c_str()); }

ScopedEnv::ScopedEnv(const std::map<std::string, std::string>& vars) {
  for (const auto& kv : vars) {
    const char* old = getenv(kv.first.c_str());
    saved_[kv.first] = {old != nullptr, old ? old : ""};
    if (kv.second == "\x01unset") unsetenv(kv.first.c_str());
    else setenv(kv.first.c_str(), kv.second.c_str(), 1);
  }
  profile_cache_clear();
}

ScopedEnv::~ScopedEnv() {
  for (const auto& kv : saved_) {
    if (kv.second.first) setenv(kv.first.c_str(), kv.second.second.c_str(), 1);
    else unsetenv(kv.first.c_str());
  }
  profile_cache_clear();
}

RunResult run_program(const std::string& program, const std::vector<std::string>& args,
                      const ApplianceRoot& root, const std::map<std::string, std::string>& env,
                      const std::string& input) {
  std::vector<std::string> envs;
  for (char** e = environ; *e; ++e) {
    std::string kv(*e);
    std::string key = kv.substr(0, kv.find('='));
    if (key != "SHARELINK_ROOT" && env.count(key) == 0) envs.push_back(kv);
  }
  envs.push_back("SHARELINK_ROOT=" + root.dir());
  for (const auto& kv : env) {
    if (kv.second != "\x01unset") envs.push_back(kv.first + "=" + kv.second);
  }
  std::vector<std::string> argv_s{program};
  argv_s.insert(argv_s.end(), args.begin(), args.end());
  std::vector<char*> envp = c_strings(envs), argv = c_strings(argv_s);

  int in[2], out[2], err[2];
  must(pipe(in) == 0 && pipe(out) == 0 && pipe(err) == 0, "pipe");
  pid_t pid = fork();
  must(pid >= 0, "fork");
  if (pid == 0) {
    dup2(in[0], 0);
    dup2(out[1], 1);
    dup2(err[1], 2);
    for (int fd : {in[0], in[1], out[0], out[1], err[0], err[1]}) close(fd);
    if (chdir(root.dir().c_str()) != 0) _exit(126);
    execve(program.c_str(), argv.data(), envp.data());
    _exit(127);
  }
  close(in[0]);
  close(out[1]);
  close(err[1]);
  signal(SIGPIPE, SIG_IGN);
  int to_child = in[1];
  if (input.empty()) {
    close(to_child);
    to_child = -1;
  }
  RunResult r;
  size_t written = 0;
  int from[2] = {out[0], err[0]};
  std::string* into[2] = {&r.out, &r.err};
  while (from[0] >= 0 || from[1] >= 0 || to_child >= 0) {
    struct pollfd fds[3] = {{from[0], POLLIN, 0}, {from[1], POLLIN, 0}, {to_child, POLLOUT, 0}};
    if (poll(fds, 3, -1) < 0) {
      if (errno == EINTR) continue;
      break;
    }
    if (fds[2].revents != 0) {
      ssize_t w = ::write(to_child, input.data() + written, input.size() - written);
      if (w > 0) written += static_cast<size_t>(w);
      if (w < 0 || written == input.size()) {
        close(to_child);
        to_child = -1;
      }
    }
    for (int i = 0; i < 2; ++i) {
      if (fds[i].revents == 0) continue;
      char buf[65536];
      ssize_t got = ::read(from[i], buf, sizeof buf);
      if (got > 0) {
        into[i]->append(buf, static_cast<size_t>(got));
      } else {
        close(from[i]);
        from[i] = -1;
      }
    }
  }
  int status = 0;
  while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
  }
  r.status = WIFEXITED(status) ? WEXITSTATUS(status) : WIFSIGNALED(status) ? 128 + WTERMSIG(status) : -1;
  return r;
}

std::string tool_binary() { return std::string(SLT_BUILD_DIR) + "/ShareLinkTool"; }
std::string ctl_binary() { return std::string(SLT_BUILD_DIR) + "/sharelinkctl"; }
std::string cgi_binary() { return std::string(SLT_BUILD_DIR) + "/sharelink.cgi"; }
std::string source_path(const std::string& relative) { return std::string(SLT_SOURCE_DIR) + "/" + relative; }

std::string read_file(const std::string& path) {
  std::ifstream f(path, std::ios::binary);
  std::stringstream ss;
  ss << f.rdbuf();
  return ss.str();
}
