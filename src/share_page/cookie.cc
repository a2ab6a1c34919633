#include "share_page/cookie.h"

#include <fcntl.h>
#include <openssl/crypto.h>
#include <openssl/sha.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "platform/fs.h"
#include "platform/fs_beneath.h"
#include "platform/os.h"
#include "share_page/access_db.h"

namespace {

constexpr size_t kSecretSize = 32;

// SHA-256 through libcrypto's direct digest calls: the one-shot and EVP
// entry points load OpenSSL 3's provider machinery, about 2 MiB of a
// process whose whole budget is 8 MiB.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
void sha256(const void* a, size_t alen, const void* b, size_t blen, unsigned char* out) {
  SHA256_CTX c;
  SHA256_Init(&c);
  SHA256_Update(&c, a, alen);
  if (blen > 0) SHA256_Update(&c, b, blen);
  SHA256_Final(out, &c);
  OPENSSL_cleanse(&c, sizeof c);
}
#pragma GCC diagnostic pop

// HMAC-SHA256 (RFC 2104) over sha256() above; the key is shorter than a block.
void hmac_sha256(const std::string& key, const std::string& msg, unsigned char* out) {
  unsigned char k[SHA256_CBLOCK] = {};
  if (key.size() > sizeof k) {
    sha256(key.data(), key.size(), nullptr, 0, k);
  } else {
    memcpy(k, key.data(), key.size());
  }
  unsigned char pad[SHA256_CBLOCK];
  unsigned char inner[SHA256_DIGEST_LENGTH];
  for (size_t i = 0; i < sizeof k; ++i) pad[i] = k[i] ^ 0x36;
  sha256(pad, sizeof pad, msg.data(), msg.size(), inner);
  for (size_t i = 0; i < sizeof k; ++i) pad[i] = k[i] ^ 0x5c;
  sha256(pad, sizeof pad, inner, sizeof inner, out);
  OPENSSL_cleanse(k, sizeof k);
  OPENSSL_cleanse(pad, sizeof pad);
}

// The kernel's random bytes, without libcrypto's generator (its set-up costs
// as much as the providers).
bool random_bytes(unsigned char* out, size_t len) {
  size_t got = 0;
  while (got < len) {
    ssize_t n = os.getrandom(out + got, len - got, 0);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    got += static_cast<size_t>(n);
  }
  return true;
}

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
  unsigned char out[SHA256_DIGEST_LENGTH];
  hmac_sha256(secret, msg, out);
  return hex(out, sizeof out);
}

}  // namespace

std::string sha256_hex(const std::string& data) {
  unsigned char d[SHA256_DIGEST_LENGTH];
  sha256(data.data(), data.size(), nullptr, 0, d);
  return hex(d, sizeof d);
}

bool share_secret(std::string* out) {
  const std::string path = beside_store("share_link_secret");
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

std::string share_cookie_name(const std::string& pkey) {
  return "slt_share_" + sha256_hex(pkey).substr(0, 16);
}

std::string make_share_cookie(const std::string& secret, const std::string& pkey,
                              const std::string& code, time_t now) {
  unsigned char n[12];
  if (!random_bytes(n, sizeof n)) return std::string();
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
  sha256(typed.data(), typed.size(), nullptr, 0, a);
  sha256(stored.data(), stored.size(), nullptr, 0, b);
  return CRYPTO_memcmp(a, b, sizeof a) == 0;
}
