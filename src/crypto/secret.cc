#include "crypto/secret.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "crypto/digest.h"
#include "diag/app_log.h"
#include "platform/fs.h"
#include "platform/fs_beneath.h"
#include "platform/os.h"
#include "sharelink_db/store.h"

namespace {

enum class SecretState { kGood, kMissing, kDamaged };

SecretState read_secret(const std::string& path, std::string* out, std::string* why) {
  UniqueFd fd(fs_open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
  if (fd.get() < 0) {
    if (errno == ENOENT) return SecretState::kMissing;
    *why = errno == ELOOP ? "a symbolic link" : strerror(errno);
    return SecretState::kDamaged;
  }
  struct stat st;
  if (fstat(fd.get(), &st) != 0 || !S_ISREG(st.st_mode)) {
    *why = "not a regular file";
    return SecretState::kDamaged;
  }
  unsigned char buf[kSecretSize + 1];
  ssize_t n = os.read(fd.get(), buf, sizeof buf);
  if (n != static_cast<ssize_t>(kSecretSize)) {
    *why = n < 0 ? strerror(errno) : std::to_string(n) + " bytes long";
    return SecretState::kDamaged;
  }
  out->assign(reinterpret_cast<char*>(buf), kSecretSize);
  return SecretState::kGood;
}

// Temporary names of killed writers: "<path>.new", and "<path>.<pid>" of
// earlier versions. Only the lock holder writes either, so every one found
// under the lock is a leftover.
void remove_leftovers(const std::string& path) {
  fs_unlink((path + ".new").c_str());
  const size_t slash = path.rfind('/');
  const std::string dir = path.substr(0, slash == std::string::npos ? 0 : slash);
  const std::string prefix = path.substr(slash + 1) + ".";
  DIR* d = fs_opendir(dir.empty() ? "/" : dir.c_str());
  if (d == nullptr) return;
  while (dirent* e = readdir(d)) {
    const char* tail = e->d_name + prefix.size();
    if (strncmp(e->d_name, prefix.c_str(), prefix.size()) == 0 && *tail != '\0' &&
        strspn(tail, "0123456789") == strlen(tail)) {
      fs_unlink((dir + "/" + e->d_name).c_str());
    }
  }
  closedir(d);
}

// Writes a fresh secret beside the old one and renames it into place.
bool make_secret(const std::string& path) {
  unsigned char key[kSecretSize];
  if (!random_bytes(key, sizeof key)) return false;
  const std::string tmp = path + ".new";
  {
    UniqueFd fd(fs_open(tmp.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, 0600));
    if (fd.get() < 0) return false;
    bool written = os.write(fd.get(), key, sizeof key) == static_cast<ssize_t>(sizeof key) &&
                   os.fsync(fd.get()) == 0;
    if (!written) {
      fs_unlink(tmp.c_str());
      return false;
    }
  }
  struct stat st;
  // A folder in the way cannot be renamed over; move it aside first.
  if (fs_lstat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode)) {
    fs_rename(path.c_str(), (path + ".damaged").c_str());
  }
  if (fs_rename(tmp.c_str(), path.c_str()) != 0) {
    fs_unlink(tmp.c_str());
    return false;
  }
  fs_sync_parent_dir(path.c_str());
  return true;
}

}  // namespace

bool appliance_secret(std::string* out) {
  const std::string path = sf_beside_store(kSecretFileName);
  std::string why;
  if (read_secret(path, out, &why) == SecretState::kGood) return true;
  // Read-only and readable by all: whichever user made it, the next can lock.
  UniqueFd lock(fs_open((path + ".lock").c_str(), O_RDONLY | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0644));
  if (lock.get() < 0 || os.flock(lock.get(), LOCK_EX) != 0) {
    APP_LOG("share.cgi: the appliance secret %s cannot be made: its lock cannot be taken\n",
            path.c_str());
    return false;
  }
  // Another run may have made or mended it while this one waited.
  const SecretState state = read_secret(path, out, &why);
  if (state == SecretState::kGood) return true;
  remove_leftovers(path);
  if (!make_secret(path) || read_secret(path, out, &why) != SecretState::kGood) {
    APP_LOG("share.cgi: the appliance secret %s could not be made\n", path.c_str());
    return false;
  }
  if (state == SecretState::kDamaged) {
    APP_LOG("share.cgi: the appliance secret %s was damaged (%s); replaced, so earlier cookies "
            "and tokens are void\n", path.c_str(), why.c_str());
  }
  return true;
}

std::string secret_health() {
  const std::string path = sf_beside_store(kSecretFileName);
  std::string secret, why;
  switch (read_secret(path, &secret, &why)) {
    case SecretState::kMissing: return "missing (made on first use)";
    case SecretState::kDamaged: return "damaged: " + why;
    case SecretState::kGood: break;
  }
  struct stat st;
  if (fs_stat(path.c_str(), &st) == 0 && (st.st_mode & 077) != 0) return "readable by others";
  return "ok";
}
