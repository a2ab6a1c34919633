#include "crypto/form_token.h"

#include "crypto/digest.h"

namespace {

// The label keeps a form token from ever equalling another HMAC made with
// the same secret (the share page's cookies).
std::string token_of_window(const std::string& secret, const std::string& user, long long window) {
  return hmac_sha256_hex(secret, "form-token\n" + user + "\n" + std::to_string(window));
}

}  // namespace

std::string make_form_token(const std::string& secret, const std::string& user, time_t now) {
  if (secret.empty() || user.empty()) return std::string();
  return token_of_window(secret, user, static_cast<long long>(now / kFormTokenWindow));
}

bool form_token_valid(const std::string& secret, const std::string& user,
                      const std::string& token, time_t now) {
  if (secret.empty() || user.empty()) return false;
  const long long window = static_cast<long long>(now / kFormTokenWindow);
  // Both compared, so the time taken does not tell which window matched.
  const bool current = same_bytes(token, token_of_window(secret, user, window));
  const bool previous = same_bytes(token, token_of_window(secret, user, window - 1));
  return current | previous;
}
