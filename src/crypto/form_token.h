// Form tokens: proof that a request which changes state comes from a page
// the user's own session fetched, not from a form or image on some other
// site riding on the browser's saved credentials.
//
// A token is the hex HMAC-SHA256, under the appliance secret, of the user
// name and the hour it was made in; it holds for that hour and the next, so
// a page loaded just before the hour turns keeps working. Nothing is stored:
// any program holding the secret checks a token by making it again.
#ifndef SLT_CRYPTO_FORM_TOKEN_H_
#define SLT_CRYPTO_FORM_TOKEN_H_

#include <ctime>
#include <string>

constexpr time_t kFormTokenWindow = 3600;  // seconds of one window

// The token of `user` at `now` (64 lower-case hex digits); "" when the
// secret or the user is empty.
std::string make_form_token(const std::string& secret, const std::string& user, time_t now);

// True when `token` is the token of `user` in the window of `now` or the one
// before, compared in constant time; false for an empty secret or user.
bool form_token_valid(const std::string& secret, const std::string& user,
                      const std::string& token, time_t now);

#endif  // SLT_CRYPTO_FORM_TOKEN_H_
