#include "share_page/cookie.h"

#include <fcntl.h>
#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/hmac.h>
#include <openssl/rand.h>
#include <openssl/sha.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>

#include "platform/fs.h"
#include "platform/fs_beneath.h"
#include "platform/os.h"
#include "share_page/access_db.h"

namespace {

constexpr size_t kSecretSize = 32;

std::string hex(const unsigned char* data, size_t len) {
  static const char digits[] = "0123456789abcdef";
  std::string out;
  for (size_t i = 0; i < len; ++i) {
    out += digits[data[i] >> 4];
    out += digits[data[i] & 15];
  }
  return out;
}

bool read_secret(const std::string& path, std::string* out) {
  UniqueFd fd(fs_open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW));
  if (fd.get() < 0) return false;
  unsigned char buf[kSecretSize + 1];
  ssize_t n = os.read(fd.get(), buf, sizeof buf);
  if (n != static_cast<ssize_t>(kSecretSize)) return false;
  out->assign(reinterpret_cast<char*>(buf), kSecretSize);
  return true;
}

std::string mac(const std::string& secret, const std::string& pkey, const std::string& code,
                const std::string& expiry, const std::string& nonce) {
  std::string msg = pkey + '\n' + sha256_hex(code) + '\n' + expiry + '\n' + nonce;
  unsigned char out[EVP_MAX_MD_SIZE];
  unsigned int len = 0;
  if (HMAC(EVP_sha256(), secret.data(), static_cast<int>(secret.size()),
           reinterpret_cast<const unsigned char*>(msg.data()), msg.size(), out, &len) == nullptr) {
    return std::string();
  }
  return hex(out, len);
}

}  // namespace

std::string sha256_hex(const std::string& data) {
  unsigned char d[SHA256_DIGEST_LENGTH];
  SHA256(reinterpret_cast<const unsigned char*>(data.data()), data.size(), d);
  return hex(d, sizeof d);
}

bool share_secret(std::string* out) {
  const std::string path = beside_store("share_link_secret");
  if (read_secret(path, out)) return true;
  // Written under a private name and linked into place: a racing first use
  // either wins the link or reads the winner's secret, never a partial one.
  unsigned char key[kSecretSize];
  if (RAND_bytes(key, sizeof key) != 1) return false;
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

std::string share_cookie_name(const std::string& pkey) {
  return "slt_share_" + sha256_hex(pkey).substr(0, 16);
}

std::string make_share_cookie(const std::string& secret, const std::string& pkey,
                              const std::string& code, time_t now) {
  unsigned char n[12];
  if (RAND_bytes(n, sizeof n) != 1) return std::string();
  std::string nonce = hex(n, sizeof n);
  std::string expiry = std::to_string(static_cast<long long>(now) + kCookieLifetime);
  return expiry + "." + nonce + "." + mac(secret, pkey, code, expiry, nonce);
}

bool share_cookie_valid(const std::string& secret, const std::string& pkey,
                        const std::string& code, const std::string& value, time_t now) {
  size_t a = value.find('.');
  size_t b = a == std::string::npos ? a : value.find('.', a + 1);
  if (b == std::string::npos || a == 0 || a > 19) return false;
  std::string expiry = value.substr(0, a);
  std::string nonce = value.substr(a + 1, b - a - 1);
  std::string given = value.substr(b + 1);
  if (expiry.find_first_not_of("0123456789") != std::string::npos) return false;
  if (strtoll(expiry.c_str(), nullptr, 10) <= static_cast<long long>(now)) return false;
  std::string want = mac(secret, pkey, code, expiry, nonce);
  return !want.empty() && given.size() == want.size() &&
         CRYPTO_memcmp(given.data(), want.data(), want.size()) == 0;
}

bool share_code_matches(const std::string& typed, const std::string& stored) {
  unsigned char a[SHA256_DIGEST_LENGTH];
  unsigned char b[SHA256_DIGEST_LENGTH];
  SHA256(reinterpret_cast<const unsigned char*>(typed.data()), typed.size(), a);
  SHA256(reinterpret_cast<const unsigned char*>(stored.data()), stored.size(), b);
  return CRYPTO_memcmp(a, b, sizeof a) == 0;
}
