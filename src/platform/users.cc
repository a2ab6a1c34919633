#include "platform/users.h"

#include <grp.h>
#include <pwd.h>
#include <unistd.h>

#include <cstdio>
#include <vector>

int user_home_dir(const char* name, char* out, size_t size) {
  if (name == nullptr || name[0] == '\0' || out == nullptr || size == 0) return -1;
  struct passwd pw;
  struct passwd* found = nullptr;
  std::vector<char> buf(16384);
  if (getpwnam_r(name, &pw, buf.data(), buf.size(), &found) != 0 || found == nullptr) return -1;
  snprintf(out, size, "%s", pw.pw_dir ? pw.pw_dir : "");
  return 0;
}

int user_uid(const char* name, long* uid) {
  if (name == nullptr || name[0] == '\0' || uid == nullptr) return -1;
  struct passwd pw;
  struct passwd* found = nullptr;
  std::vector<char> buf(16384);
  if (getpwnam_r(name, &pw, buf.data(), buf.size(), &found) != 0 || found == nullptr) return -1;
  *uid = static_cast<long>(pw.pw_uid);
  return 0;
}

SavedIdentity::SavedIdentity() : euid_(geteuid()), egid_(getegid()) {
  int n = getgroups(0, nullptr);
  if (n > 0) {
    groups_.resize(static_cast<size_t>(n));
    n = getgroups(n, groups_.data());
    groups_.resize(n > 0 ? static_cast<size_t>(n) : 0);
  }
}

SavedIdentity::~SavedIdentity() {
  // Only a raised process can change these; failures leave what we have.
  if (geteuid() == 0 && !groups_.empty()) (void)setgroups(groups_.size(), groups_.data());
  if (getegid() != egid_) (void)setegid(egid_);
  if (geteuid() != euid_) (void)seteuid(euid_);
}
