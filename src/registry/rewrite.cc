#include "registry/rewrite.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstring>

#include "diag/syslog_report.h"
#include "platform/fs.h"
#include "platform/os.h"
#include "registry/append.h"

namespace {

constexpr size_t kStreamBuffer = 1 << 16;

void report_flush_failure(const char* who, const char* step, const char* path) {
  int err = errno;
  char message[2048];
  snprintf(message, sizeof message, "[%s][%s]data=%s(%d:%s)", who, step, path, err, strerror(err));
  errno = err;
  log_syslog_error("VEXA", message);
}

}  // namespace

bool RegistryReader::open(const char* path) {
  close();
  f_ = fs_fopen(path, "r");
  if (f_ == nullptr) return false;
  setvbuf(f_, nullptr, _IOFBF, kStreamBuffer);
  return true;
}

bool RegistryReader::next(char* buf, int size) {
  return f_ != nullptr && fgets(buf, size, f_) != nullptr;
}

bool RegistryReader::failed() const { return f_ == nullptr || ferror(f_) != 0; }

void RegistryReader::close() {
  if (f_ != nullptr) os.fclose(f_);
  f_ = nullptr;
}

bool RegistryRewrite::open(const char* path, const char* mode) {
  close();
  path_ = path;
  failed_ = false;
  f_ = fs_fopen(path, mode);
  if (f_ == nullptr) return false;
  setvbuf(f_, nullptr, _IOFBF, kStreamBuffer);
  return true;
}

bool RegistryRewrite::append(const char* line, size_t len) {
  if (failed_ || f_ == nullptr || append_to_stream(f_, line, len) != 1) failed_ = true;
  return !failed_;
}

int RegistryRewrite::commit(const char* target, const char* who) {
  if (f_ == nullptr) return -1;
  if (failed_) {
    // Already reported by the failed append.
    discard();
    return -1;
  }
  bool ok = true;
  keep_owner_and_mode(target);
  if (fs_sync_stream(f_) != 0 || os.ferror(f_) != 0) {
    report_flush_failure(who, "fsync", path_.c_str());
    ok = false;
  }
  if (os.fclose(f_) != 0) {
    report_flush_failure(who, "fclose", path_.c_str());
    ok = false;
  }
  f_ = nullptr;
  if (ok && fs_rename(path_.c_str(), target) == 0) {
    fs_sync_parent_dir(target);
    return 1;
  }
  remove_file(path_.c_str());
  return -1;
}

void RegistryRewrite::keep_owner_and_mode(const char* target) {
  struct stat st;
  if (fs_stat(target, &st) != 0) return;
  // Not being allowed to give the file away leaves it ours; the mode still
  // follows.
  if (fs_chown(path_.c_str(), st.st_uid, st.st_gid) != 0) errno = 0;
  fs_chmod(path_.c_str(), st.st_mode & 07777);
}

void RegistryRewrite::close() {
  if (f_ != nullptr) os.fclose(f_);
  f_ = nullptr;
}

void RegistryRewrite::discard() {
  bool had = f_ != nullptr || !path_.empty();
  close();
  if (had) remove_file(path_.c_str());
  path_.clear();
}
