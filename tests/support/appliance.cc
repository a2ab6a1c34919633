#include "support/appliance.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
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
  std::string cur;
  size_t i = 0;
  while (i <= p.size()) {
    size_t slash = p.find('/', i);
    if (slash == std::string::npos) slash = p.size();
    cur = p.substr(0, slash);
    if (!cur.empty()) {
      if (mkdir(cur.c_str(), 0755) != 0 && errno != EEXIST) must(false, "mkdir " + cur);
    }
    i = slash + 1;
  }
}

std::string parent_of(const std::string& p) {
  size_t slash = p.rfind('/');
  return slash == std::string::npos ? "." : p.substr(0, slash);
}

}  // namespace

ApplianceRoot::ApplianceRoot() {
  const char* tmp = getenv("TMPDIR");
  std::string tmpl = std::string(tmp && tmp[0] ? tmp : "/tmp") + "/slt-root-XXXXXX";
  std::vector<char> buf(tmpl.begin(), tmpl.end());
  buf.push_back('\0');
  must(mkdtemp(buf.data()) != nullptr, "mkdtemp");
  dir_ = buf.data();
  for (const char* d : {"/etc/config", "/tmp", "/share", "/home/httpd/cgi-bin/html", "/sbin",
                        "/bin", "/usr/bin", "/usr/sbin", "/usr/local/bin"}) {
    mkdirs(d);
  }
}

ApplianceRoot::~ApplianceRoot() {
  if (dir_.size() > 5) {
    std::string cmd = "rm -rf '" + dir_ + "'";
    if (system(cmd.c_str()) != 0) {
      // Nothing more to do; the folder lies in the temporary area.
    }
  }
}

std::string ApplianceRoot::path(const std::string& ap) const { return dir_ + ap; }

void ApplianceRoot::mkdirs(const std::string& ap) const { mkdirs_real(path(ap)); }

void ApplianceRoot::write(const std::string& ap, const std::string& content, mode_t mode) const {
  mkdirs_real(parent_of(path(ap)));
  std::string p = path(ap);
  std::ofstream f(p, std::ios::binary | std::ios::trunc);
  must(static_cast<bool>(f), "open " + p);
  f << content;
  f.close();
  must(chmod(p.c_str(), mode) == 0, "chmod " + p);
}

void ApplianceRoot::script(const std::string& ap, const std::string& body) const {
  write(ap, "#!/bin/sh\n" + body, 0755);
}

std::string ApplianceRoot::read(const std::string& ap) const {
  std::ifstream f(path(ap), std::ios::binary);
  std::stringstream ss;
  ss << f.rdbuf();
  return ss.str();
}

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
    if (kv.second == "\x01unset") {
      unsetenv(kv.first.c_str());
    } else {
      setenv(kv.first.c_str(), kv.second.c_str(), 1);
    }
  }
  profile_cache_clear();
}

ScopedEnv::~ScopedEnv() {
  for (const auto& kv : saved_) {
    if (kv.second.first) {
      setenv(kv.first.c_str(), kv.second.second.c_str(), 1);
    } else {
      unsetenv(kv.first.c_str());
    }
  }
  profile_cache_clear();
}

RunResult run_program(const std::string& program, const std::vector<std::string>& args,
                      const ApplianceRoot& root, const std::map<std::string, std::string>& env,
                      const std::string& input) {
  int in_pipe[2], out_pipe[2], err_pipe[2];
  must(pipe(in_pipe) == 0 && pipe(out_pipe) == 0 && pipe(err_pipe) == 0, "pipe");
  std::vector<std::string> envs;
  for (char** e = environ; *e; ++e) {
    std::string kv(*e);
    std::string key = kv.substr(0, kv.find('='));
    if (key == "SHARELINK_ROOT" || env.count(key)) continue;
    envs.push_back(kv);
  }
  envs.push_back("SHARELINK_ROOT=" + root.dir());
  for (const auto& kv : env) {
    if (kv.second != "\x01unset") envs.push_back(kv.first + "=" + kv.second);
  }
  std::vector<char*> envp;
  for (auto& s : envs) envp.push_back(&s[0]);
  envp.push_back(nullptr);
  std::vector<std::string> argv_s;
  argv_s.push_back(program);
  for (const auto& a : args) argv_s.push_back(a);
  std::vector<char*> argv;
  for (auto& s : argv_s) argv.push_back(&s[0]);
  argv.push_back(nullptr);

  pid_t pid = fork();
  must(pid >= 0, "fork");
  if (pid == 0) {
    dup2(in_pipe[0], 0);
    dup2(out_pipe[1], 1);
    dup2(err_pipe[1], 2);
    for (int fd : {in_pipe[0], in_pipe[1], out_pipe[0], out_pipe[1], err_pipe[0], err_pipe[1]}) close(fd);
    if (chdir(root.dir().c_str()) != 0) _exit(126);
    execve(program.c_str(), argv.data(), envp.data());
    _exit(127);
  }
  close(in_pipe[0]);
  close(out_pipe[1]);
  close(err_pipe[1]);
  signal(SIGPIPE, SIG_IGN);
  size_t written = 0;
  if (input.empty()) {
    close(in_pipe[1]);
    in_pipe[1] = -1;
  }
  RunResult r;
  bool out_open = true, err_open = true;
  while (out_open || err_open || in_pipe[1] >= 0) {
    struct pollfd fds[3];
    int n = 0;
    if (out_open) fds[n++] = {out_pipe[0], POLLIN, 0};
    if (err_open) fds[n++] = {err_pipe[0], POLLIN, 0};
    if (in_pipe[1] >= 0) fds[n++] = {in_pipe[1], POLLOUT, 0};
    if (poll(fds, n, -1) < 0) {
      if (errno == EINTR) continue;
      break;
    }
    for (int i = 0; i < n; ++i) {
      if (fds[i].revents == 0) continue;
      if (fds[i].fd == in_pipe[1]) {
        ssize_t w = ::write(in_pipe[1], input.data() + written, input.size() - written);
        if (w > 0) written += static_cast<size_t>(w);
        if (w < 0 || written == input.size()) {
          close(in_pipe[1]);
          in_pipe[1] = -1;
        }
        continue;
      }
      char buf[65536];
      ssize_t got = ::read(fds[i].fd, buf, sizeof buf);
      if (got <= 0) {
        if (fds[i].fd == out_pipe[0]) out_open = false;
        else err_open = false;
        continue;
      }
      (fds[i].fd == out_pipe[0] ? r.out : r.err).append(buf, static_cast<size_t>(got));
    }
  }
  close(out_pipe[0]);
  close(err_pipe[0]);
  int status = 0;
  while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
  }
  if (WIFEXITED(status)) r.status = WEXITSTATUS(status);
  else if (WIFSIGNALED(status)) r.status = 128 + WTERMSIG(status);
  return r;
}

std::string tool_binary() { return std::string(SLT_BUILD_DIR) + "/ShareLinkTool"; }
std::string ctl_binary() { return std::string(SLT_BUILD_DIR) + "/sharelinkctl"; }
std::string cgi_binary() { return std::string(SLT_BUILD_DIR) + "/sharelink.cgi"; }
std::string source_path(const std::string& relative) {
  return std::string(SLT_SOURCE_DIR) + "/" + relative;
}
