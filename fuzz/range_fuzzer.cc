// The byte-range rules of file delivery on arbitrary range texts and file
// sizes: a partial answer lies inside the file, every refusal carries the
// whole file's bounds, a "," always refuses, and the number reader agrees
// with strtoull (overflow included).
//
// Input: bytes 0-7 the file size (little end first); then the range text.
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "weblib/range.h"

namespace {

void check(bool ok) {
  if (!ok) abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 8) return 0;
  unsigned long long file_size = 0;
  for (int i = 7; i >= 0; --i) file_size = (file_size << 8) | data[i];
  // Small sizes are the interesting ones most of the time.
  if (data[7] < 0xf0) file_size %= 1ull << (data[7] % 40);
  const std::string text(reinterpret_cast<const char*>(data + 8),
                         strnlen(reinterpret_cast<const char*>(data + 8), size - 8));

  unsigned long long start = 7, end = 7;
  RangeOutcome r = parse_byte_range(text.c_str(), file_size, &start, &end);
  if (text.find(',') != std::string::npos) check(r == RangeOutcome::kMultiple);
  switch (r) {
    case RangeOutcome::kPartial:
      check(start <= end && end < file_size);
      break;
    case RangeOutcome::kMultiple:
    case RangeOutcome::kUnsatisfiable:
      check(start == 0 && end == file_size - 1);
      break;
    case RangeOutcome::kWhole:
      abort();  // only for an absent range text
  }
  start = end = 7;
  check(parse_byte_range(nullptr, file_size, &start, &end) == RangeOutcome::kWhole);
  check(start == 0 && end == file_size - 1);

  unsigned long long value = 12345;
  int used = read_decimal_ull(text.c_str(), &value);
  char* stop = nullptr;
  errno = 0;
  unsigned long long expected = strtoull(text.c_str(), &stop, 10);
  if (stop == text.c_str()) {
    check(used == 0 && value == 12345);
  } else {
    check(used == stop - text.c_str());
    check(value == expected);
  }
  return 0;
}
