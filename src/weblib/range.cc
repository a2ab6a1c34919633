#include "weblib/range.h"

#include <climits>
#include <cstring>

int read_decimal_ull(const char* text, unsigned long long* value) {
  if (text == nullptr) return 0;
  const char* p = text;
  while (*p == ' ' || *p == '\t' || *p == '\n' || *p == '\v' || *p == '\f' || *p == '\r') ++p;
  bool negative = false;
  if (*p == '+' || *p == '-') {
    negative = *p == '-';
    ++p;
  }
  if (*p < '0' || *p > '9') return 0;
  unsigned long long v = 0;
  bool overflow = false;
  for (; *p >= '0' && *p <= '9'; ++p) {
    unsigned digit = static_cast<unsigned>(*p - '0');
    if (v > (ULLONG_MAX - digit) / 10) overflow = true;
    if (!overflow) v = v * 10 + digit;
  }
  if (overflow) {
    v = ULLONG_MAX;
  } else if (negative) {
    v = 0ULL - v;
  }
  *value = v;
  return static_cast<int>(p - text);
}

RangeOutcome parse_byte_range(const char* text, unsigned long long size, unsigned long long* start,
                              unsigned long long* end) {
  const unsigned long long last = size - 1;
  *start = 0;
  *end = last;
  if (text == nullptr) return RangeOutcome::kWhole;
  if (strchr(text, ',') != nullptr) return RangeOutcome::kMultiple;

  unsigned long long first = 0;
  unsigned long long second = 0;
  // The range proper follows the unit ("bytes="); a bare value is taken whole.
  const char* eq = strchr(text, '=');
  const char* set = eq != nullptr ? eq + 1 : text;
  if (set[0] == '-') {
    unsigned long long suffix = 0;
    read_decimal_ull(set + 1, &suffix);
    first = size - suffix;
  } else {
    int used = read_decimal_ull(set, &first);
    if (used == 0 || set[used] != '-' || read_decimal_ull(set + used + 1, &second) == 0) {
      second = last;
    }
  }
  if (second > last) second = last;
  if (second < first || second >= size || first > last) return RangeOutcome::kUnsatisfiable;
  *start = first;
  *end = second;
  return RangeOutcome::kPartial;
}
