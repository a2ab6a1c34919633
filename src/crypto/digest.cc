#include "crypto/digest.h"

#include <openssl/crypto.h>
#include <openssl/sha.h>

#include <cerrno>
#include <cstring>

#include "platform/os.h"

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

std::string hex_of(const unsigned char* data, size_t len) {
  static const char digits[] = "0123456789abcdef";
  std::string out;
  out.reserve(len * 2);
  for (size_t i = 0; i < len; ++i) {
    out += digits[data[i] >> 4];
    out += digits[data[i] & 15];
  }
  return out;
}

std::string sha256_hex(const std::string& data) {
  unsigned char d[kSha256Size];
  sha256(data.data(), data.size(), nullptr, 0, d);
  return hex_of(d, sizeof d);
}

std::string hmac_sha256_hex(const std::string& key, const std::string& msg) {
  unsigned char k[SHA256_CBLOCK] = {};
  if (key.size() > sizeof k) {
    sha256(key.data(), key.size(), nullptr, 0, k);
  } else {
    memcpy(k, key.data(), key.size());
  }
  unsigned char pad[SHA256_CBLOCK];
  unsigned char inner[kSha256Size];
  unsigned char out[kSha256Size];
  for (size_t i = 0; i < sizeof k; ++i) pad[i] = k[i] ^ 0x36;
  sha256(pad, sizeof pad, msg.data(), msg.size(), inner);
  for (size_t i = 0; i < sizeof k; ++i) pad[i] = k[i] ^ 0x5c;
  sha256(pad, sizeof pad, inner, sizeof inner, out);
  OPENSSL_cleanse(k, sizeof k);
  OPENSSL_cleanse(pad, sizeof pad);
  return hex_of(out, sizeof out);
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

bool same_bytes(const std::string& a, const std::string& b) {
  return a.size() == b.size() && CRYPTO_memcmp(a.data(), b.data(), a.size()) == 0;
}

bool same_text_by_digest(const std::string& a, const std::string& b) {
  unsigned char da[kSha256Size];
  unsigned char db[kSha256Size];
  sha256(a.data(), a.size(), nullptr, 0, da);
  sha256(b.data(), b.size(), nullptr, 0, db);
  return CRYPTO_memcmp(da, db, sizeof da) == 0;
}
