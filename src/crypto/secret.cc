#include "crypto/secret.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>

#include "crypto/digest.h"
#include "platform/fs.h"
#include "platform/fs_beneath.h"
#include "platform/os.h"
#include "sharelink_db/store.h"

namespace {

bool read_secret(const std::string& path, std::string* out) {
  UniqueFd fd(fs_open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW));
  if (fd.get() < 0) return false;
  unsigned char buf[kSecretSize + 1];
  ssize_t n = os.read(fd.get(), buf, sizeof buf);
  if (n != static_cast<ssize_t>(kSecretSize)) return false;
  out->assign(reinterpret_cast<char*>(buf), kSecretSize);
  return true;
}

}  // namespace

bool appliance_secret(std::string* out) {
  const std::string path = sf_beside_store(kSecretFileName);
  if (read_secret(path, out)) return true;
  // Written under a private name and linked into place: a racing first use
  // either wins the link or reads the winner's secret, never a partial one.
  unsigned char key[kSecretSize];
  if (!random_bytes(key, sizeof key)) return false;
  char tmp[300];
  snprintf(tmp, sizeof tmp, "%s.%ld", path.c_str(), static_cast<long>(getpid()));
  {
    UniqueFd fd(fs_open(tmp, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0600));
    if (fd.get() < 0) return false;
    bool written = os.write(fd.get(), key, sizeof key) == static_cast<ssize_t>(sizeof key) &&
                   os.fsync(fd.get()) == 0;
    if (!written) {
      fs_unlink(tmp);
      return false;
    }
  }
  fs_link(tmp, path.c_str());
  fs_unlink(tmp);
  return read_secret(path, out);
}
