#include "support/appliance.h"
#include <fcntl.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include "platform/profile.h"

extern char** environ;

namespace {
void must(bool ok, const std::string& what) { if (!ok) throw std::runtime_error(what + ": " + strerror(errno)); }
void mkdirs_real(const std::string& p) {
  std::error_code ec;
  std::filesystem::create_directories(p, ec);
  must(!ec || std::filesystem::is_directory(p), "mkdir " + p);
}
std::vector<char*> c_strings(std::vector<std::string>& v) {
  std::vector<char*> out;
  for (auto& s : v) out.push_back(&s[0]);
  out.push_back(nullptr);
  return out;
}
// Standard input as a memory file: a child that leaves early cannot block its writer.
int memory_file(const std::string& content) {
  int made = memfd_create("slt-run", MFD_CLOEXEC);
  int fd = fcntl(made, F_DUPFD_CLOEXEC, 3);  // above 0-2, which the child's streams take
  close(made);
  must(fd >= 0 && ::write(fd, content.data(), content.size()) == static_cast<ssize_t>(content.size()),
       "memory file");
  lseek(fd, 0, SEEK_SET);
  return fd;
}
std::string drain(int fd) {  // opened anew through /proc: to the end
  std::string s = read_file("/proc/self/fd/" + std::to_string(fd));
  close(fd);
  return s;
}
}  // namespace
ApplianceRoot::ApplianceRoot() {
  const char* tmp = getenv("TMPDIR");
  dir_ = std::string(tmp && tmp[0] ? tmp : "/tmp") + "/slt-root-XXXXXX";
  must(mkdtemp(&dir_[0]) != nullptr, "mkdtemp");
  for (const char* d : {"/etc/config", "/tmp", "/share", "/home/httpd/cgi-bin/html", "/sbin", "/bin",
                        "/usr/bin", "/usr/sbin", "/usr/local/bin"})
    mkdirs(d);
}
ApplianceRoot::~ApplianceRoot() { std::error_code ec; std::filesystem::remove_all(dir_, ec); }
std::string ApplianceRoot::path(const std::string& ap) const { return dir_ + ap; }
void ApplianceRoot::mkdirs(const std::string& ap) const { mkdirs_real(path(ap)); }
void ApplianceRoot::write(const std::string& ap, const std::string& content, mode_t mode) const {
  std::string p = path(ap);
  mkdirs_real(p.substr(0, p.rfind('/')));
  std::ofstream f(p, std::ios::binary | std::ios::trunc);
  f << content;
  f.close();
  must(!f.fail() && chmod(p.c_str(), mode) == 0, "write " + p);
}
void ApplianceRoot::script(const std::string& ap, const std::string& body) const {
  write(ap, "#!/bin/sh\n" + body, 0755);
}
std::string ApplianceRoot::read(const std::string& ap) const { return read_file(path(ap)); }
bool ApplianceRoot::exists(const std::string& ap) const { struct stat st; return lstat(path(ap).c_str(), &st) == 0; }
void ApplianceRoot::set_mtime(const std::string& ap, time_t when) const {
  struct timeval tv[2] = {{when, 0}, {when, 0}};
  must(utimes(path(ap).c_str(), tv) == 0, "utimes " + ap);
}
void ApplianceRoot::remove(const std::string& ap) const { unlink(path(ap).c_str()); }

ScopedEnv::ScopedEnv(const std::map<std::string, std::string>& vars) {
  for (const auto& kv : vars) {
    const char* old = getenv(kv.first.c_str());
    saved_[kv.first] = {old != nullptr, old ? old : ""};
    kv.second == "\x01unset" ? unsetenv(kv.first.c_str()) : setenv(kv.first.c_str(), kv.second.c_str(), 1);
  }
  profile_cache_clear();
}
ScopedEnv::~ScopedEnv() {
  for (const auto& kv : saved_)
    kv.second.first ? setenv(kv.first.c_str(), kv.second.second.c_str(), 1) : unsetenv(kv.first.c_str());
  profile_cache_clear();
}
RunResult run_program(const std::string& program, const std::vector<std::string>& args,
                      const ApplianceRoot& root, const std::map<std::string, std::string>& env,
                      const std::string& input) {
  std::vector<std::string> envs;
  for (char** e = environ; *e; ++e) {
    std::string kv(*e), key = kv.substr(0, kv.find('='));
    if (key != "SHARELINK_ROOT" && env.count(key) == 0) envs.push_back(kv);
  }
  envs.push_back("SHARELINK_ROOT=" + root.dir());
  for (const auto& kv : env)
    if (kv.second != "\x01unset") envs.push_back(kv.first + "=" + kv.second);
  std::vector<std::string> argv_s{program};
  argv_s.insert(argv_s.end(), args.begin(), args.end());
  std::vector<char*> envp = c_strings(envs), argv = c_strings(argv_s);
  int in = memory_file(input), out[2], err[2];
  must(pipe2(out, O_CLOEXEC) == 0 && pipe2(err, O_CLOEXEC) == 0, "pipe");
  fcntl(err[1], F_SETPIPE_SZ, 1 << 20);  // standard error waits there while standard output is read
  pid_t pid = fork();
  must(pid >= 0, "fork");
  if (pid == 0) {  // dup2 clears close-on-exec on 0-2
    dup2(in, 0), dup2(out[1], 1), dup2(err[1], 2);
    if (chdir(root.dir().c_str()) != 0) _exit(126);
    execve(program.c_str(), argv.data(), envp.data());
    _exit(127);
  }
  close(in), close(out[1]), close(err[1]);
  signal(SIGPIPE, SIG_IGN);
  std::string text = drain(out[0]), errors = drain(err[0]);
  int status = 0;
  while (waitpid(pid, &status, 0) < 0 && errno == EINTR) continue;
  int code = WIFEXITED(status) ? WEXITSTATUS(status) : WIFSIGNALED(status) ? 128 + WTERMSIG(status) : -1;
  return RunResult{code, text, errors};
}
std::string tool_binary() { return std::string(SLT_BUILD_DIR) + "/ShareLinkTool"; }
std::string ctl_binary() { return std::string(SLT_BUILD_DIR) + "/sharelinkctl"; }
std::string cgi_binary() { return std::string(SLT_BUILD_DIR) + "/sharelink.cgi"; }
std::string source_path(const std::string& relative) { return std::string(SLT_SOURCE_DIR) + "/" + relative; }

std::string read_file(const std::string& path) {
  std::stringstream ss;
  ss << std::ifstream(path, std::ios::binary).rdbuf();
  return ss.str();
}
