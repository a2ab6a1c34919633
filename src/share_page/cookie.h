// The access-code cookie: proof that this browser typed the right code.
//
// Value "EXPIRY.NONCE.MAC": MAC = HMAC-SHA256 with the appliance's secret over
// the link key, a hash of the link's current code, the expiry and the nonce.
// A changed code changes the hash, so every earlier cookie stops matching.
#ifndef SLT_SHARE_PAGE_COOKIE_H_
#define SLT_SHARE_PAGE_COOKIE_H_

#include <ctime>
#include <string>

constexpr long kCookieLifetime = 12 * 60 * 60;

// The cookie name for link pkey: "slt_share_" + 16 hex digits of its hash.
std::string share_cookie_name(const std::string& pkey);

// A fresh cookie value valid until now + kCookieLifetime.
std::string make_share_cookie(const std::string& secret, const std::string& pkey,
                              const std::string& code, time_t now);

// True when value was made by make_share_cookie for this link and code and
// has not expired. Compares in constant time.
bool share_cookie_valid(const std::string& secret, const std::string& pkey,
                        const std::string& code, const std::string& value, time_t now);

// Constant-time equality of two codes (compared through their hashes, so
// neither length nor content leaks through timing).
bool share_code_matches(const std::string& typed, const std::string& stored);

#endif  // SLT_SHARE_PAGE_COOKIE_H_
