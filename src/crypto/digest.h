// SHA-256, HMAC-SHA256, the kernel's random bytes and constant-time
// comparison: what cookies, form tokens and validators are made of.
//
// Digests use libcrypto's direct SHA-256 calls: the one-shot and EVP entry
// points load OpenSSL 3's provider machinery, about 2 MiB of a CGI process
// whose whole budget is 8 MiB.
#ifndef SLT_CRYPTO_DIGEST_H_
#define SLT_CRYPTO_DIGEST_H_

#include <cstddef>
#include <string>

constexpr size_t kSha256Size = 32;

// The raw digest of a then b (b may be empty) into out[kSha256Size].
void sha256(const void* a, size_t alen, const void* b, size_t blen, unsigned char* out);

// Lower-case hex SHA-256 of data.
std::string sha256_hex(const std::string& data);

// Lower-case hex HMAC-SHA256 (RFC 2104) of msg under key.
std::string hmac_sha256_hex(const std::string& key, const std::string& msg);

// Lower-case hex of len bytes.
std::string hex_of(const unsigned char* data, size_t len);

// Fills out with len bytes from the kernel (os.getrandom). False when it
// could not (out is then not to be used).
bool random_bytes(unsigned char* out, size_t len);

// True when a and b are equal, in time that depends only on their lengths.
bool same_bytes(const std::string& a, const std::string& b);

// True when the two texts are equal, compared through their digests, so that
// neither their lengths nor their contents leak through timing.
bool same_text_by_digest(const std::string& a, const std::string& b);

#endif  // SLT_CRYPTO_DIGEST_H_
