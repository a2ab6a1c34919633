// Shared pieces of the fuzz targets: a private appliance root for the whole
// run, and helpers to turn fuzz bytes into texts.
#ifndef SLT_FUZZ_FUZZ_SUPPORT_H_
#define SLT_FUZZ_FUZZ_SUPPORT_H_

#include <cstddef>
#include <cstdint>
#include <string>

// Creates (once) a temporary appliance root, sets SHARELINK_ROOT to it and
// returns its folder. Everything a target writes stays inside it.
const std::string& fuzz_root();

// Writes data to appliance path `ap` under fuzz_root().
void fuzz_write_file(const char* ap, const uint8_t* data, size_t size);

// Splits the input at the first NUL byte into two texts (the second may be
// empty), so one input can carry e.g. a line and a delimiter.
void fuzz_split(const uint8_t* data, size_t size, std::string* first, std::string* second);

#endif  // SLT_FUZZ_FUZZ_SUPPORT_H_
