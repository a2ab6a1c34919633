// The appliance secret: 32 random bytes in "share_link_secret" beside the
// share-link store (mode 0600), made on first use. It keys the share page's
// cookies and the forms' tokens, and moves with a relocated store.
//
// A secret that is not exactly 32 readable bytes of a regular file (empty,
// cut short, a folder, a symbolic link, unreadable) is replaced, which voids
// every cookie and token made with the old one, and the application log
// says so. It is never used damaged.
#ifndef SLT_CRYPTO_SECRET_H_
#define SLT_CRYPTO_SECRET_H_

#include <cstddef>
#include <string>

constexpr char kSecretFileName[] = "share_link_secret";
constexpr size_t kSecretSize = 32;

// Fills out with the secret, making or replacing it as needed. False when
// there is no usable secret and none could be made: the caller refuses.
bool appliance_secret(std::string* out);

// "ok", "missing", or what is wrong with the secret file; never changes it.
std::string secret_health();

#endif  // SLT_CRYPTO_SECRET_H_
