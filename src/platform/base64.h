// Standard base64 (RFC 4648 alphabet, "=" padding, no line breaks).
#ifndef SLT_PLATFORM_BASE64_H_
#define SLT_PLATFORM_BASE64_H_

#include <cstddef>

// Bytes needed for the encoding of n bytes, terminator included.
constexpr size_t base64_size(size_t n) { return (n + 2) / 3 * 4 + 1; }

// Encodes length bytes of data into out, which must hold base64_size(length)
// bytes; writes a terminator. Returns the encoded length.
int to64frombits(char* out, const unsigned char* data, int length);

#endif  // SLT_PLATFORM_BASE64_H_
