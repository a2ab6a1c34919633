#include "share_page/cookie.h"

#include <cstdlib>

#include "crypto/digest.h"

namespace {

std::string mac(const std::string& secret, const std::string& pkey, const std::string& code,
                const std::string& expiry, const std::string& nonce) {
  return hmac_sha256_hex(secret, pkey + '\n' + sha256_hex(code) + '\n' + expiry + '\n' + nonce);
}

}  // namespace

std::string share_cookie_name(const std::string& pkey) {
  return "slt_share_" + sha256_hex(pkey).substr(0, 16);
}

std::string make_share_cookie(const std::string& secret, const std::string& pkey,
                              const std::string& code, time_t now) {
  unsigned char n[12];
  if (!random_bytes(n, sizeof n)) return std::string();
  std::string nonce = hex_of(n, sizeof n);
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
  if (expiry.find_first_not_of("0123456789") != std::string::npos) return false;
  if (strtoll(expiry.c_str(), nullptr, 10) <= static_cast<long long>(now)) return false;
  return same_bytes(value.substr(b + 1), mac(secret, pkey, code, expiry, nonce));
}

bool share_code_matches(const std::string& typed, const std::string& stored) {
  return same_text_by_digest(typed, stored);
}
