#include "platform/exec.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "platform/os.h"
#include "platform/root.h"

extern char** environ;

namespace {

// Waits for pid, retrying on EINTR. Returns the raw status or -1.
int wait_child(pid_t pid) {
  int status = 0;
  for (;;) {
    pid_t r = os.waitpid(pid, &status, 0);
    if (r == pid) return status;
    if (r < 0 && errno == EINTR) continue;
    return -1;
  }
}

class FileActions {
 public:
  FileActions() { ok_ = posix_spawn_file_actions_init(&a_) == 0; }
  ~FileActions() {
    if (ok_) posix_spawn_file_actions_destroy(&a_);
  }
  bool ok() const { return ok_; }
  posix_spawn_file_actions_t* get() { return &a_; }

 private:
  posix_spawn_file_actions_t a_;
  bool ok_;
};

}  // namespace

int _hs_secure_execv(const char* path, const char* const argv[], HsIo* out) {
  if (path == nullptr || argv == nullptr || argv[0] == nullptr) return -1;
  std::string real = rooted_path(path);
  int fds[2];
  if (pipe2(fds, O_CLOEXEC) != 0) return -1;
  FileActions actions;
  if (!actions.ok() || posix_spawn_file_actions_adddup2(actions.get(), fds[1], 1) != 0) {
    close(fds[0]);
    close(fds[1]);
    return -1;
  }
  pid_t pid = 0;
  int rc = os.spawn(&pid, real.c_str(), actions.get(), nullptr, const_cast<char* const*>(argv),
                    environ);
  close(fds[1]);
  if (rc != 0) {
    close(fds[0]);
    return -1;
  }
  char buf[8192];
  for (;;) {
    ssize_t n = read(fds[0], buf, sizeof buf);
    if (n > 0) {
      if (out != nullptr) hs_io_write(out, buf, static_cast<size_t>(n));
      continue;
    }
    if (n < 0 && errno == EINTR) continue;
    break;
  }
  close(fds[0]);
  int status = wait_child(pid);
  if (status < 0) return -1;
  if (WIFEXITED(status)) return WEXITSTATUS(status);
  if (WIFSIGNALED(status)) return 128 + WTERMSIG(status);
  return -1;
}

int spawn_with_stdin_file(const char* path, const char* const argv[], const char* stdin_path) {
  if (path == nullptr || argv == nullptr || argv[0] == nullptr || stdin_path == nullptr) return -1;
  std::string real = rooted_path(path);
  std::string input = rooted_path(stdin_path);
  FileActions actions;
  if (!actions.ok()) return -1;
  if (posix_spawn_file_actions_addclose(actions.get(), 0) != 0 ||
      posix_spawn_file_actions_addopen(actions.get(), 0, input.c_str(), O_RDONLY, 0) != 0 ||
      posix_spawn_file_actions_addclosefrom_np(actions.get(), 3) != 0) {
    return -1;
  }
  pid_t pid = 0;
  int rc = os.spawn(&pid, real.c_str(), actions.get(), nullptr, const_cast<char* const*>(argv),
                    environ);
  if (rc != 0) {
    // posix_spawn reports a failed exec (or a failed open of the input) as an
    // error; the child it made has already ended with status 127 and been
    // reaped. The mail path reads that as a child that ended with status 1.
    if (rc == ENOENT || rc == EACCES || rc == ENOEXEC || rc == ENOTDIR) return 1 << 8;
    return -1;
  }
  return wait_child(pid);
}
