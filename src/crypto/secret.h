// The appliance secret: 32 random bytes in "share_link_secret" beside the
// share-link store (mode 0600), made on first use. It keys the share page's
// cookies and the forms' tokens, and moves with a relocated store.
#ifndef SLT_CRYPTO_SECRET_H_
#define SLT_CRYPTO_SECRET_H_

#include <string>

constexpr char kSecretFileName[] = "share_link_secret";
constexpr size_t kSecretSize = 32;

// Fills out with the secret, making it when there is none. False when it can
// be neither read nor made.
bool appliance_secret(std::string* out);

#endif  // SLT_CRYPTO_SECRET_H_
