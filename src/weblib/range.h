// The byte-range rules of file delivery, as a pure function of the request's
// range text and the file size, so they can be tested and fuzzed apart from
// any output.
//
// Only one range is served. The suffix form keeps its end at 0, so it is
// satisfiable only when it names the whole file (it then gives byte 0);
// numbers that overflow count as the largest value instead of wrapping.
#ifndef SLT_WEBLIB_RANGE_H_
#define SLT_WEBLIB_RANGE_H_

enum class RangeOutcome {
  kWhole,          // no range text: the whole file, 0..size-1
  kPartial,        // one satisfiable range: start..end (206)
  kMultiple,       // several ranges (a ","): refused (416)
  kUnsatisfiable,  // the range does not lie inside the file (416)
};

// Decides how to answer range text `text` (the value of HTTP_RANGE, or null
// when absent) for a file of `size` bytes.
// kWhole: start 0, end size - 1 (unsigned: an empty file gives the largest
// value). kPartial: start <= end < size. kMultiple and kUnsatisfiable:
// start 0 and end size - 1, the values of the refusal's Content-Range line.
RangeOutcome parse_byte_range(const char* text, unsigned long long size, unsigned long long* start,
                              unsigned long long* end);

// Reads an unsigned decimal number the way "%llu" does (leading white space,
// an optional sign, a minus negating modulo 2^64) but defined on overflow:
// too many digits give the largest value. Returns the number of characters
// consumed, 0 when no digit follows (then *value is unchanged).
int read_decimal_ull(const char* text, unsigned long long* value);

#endif  // SLT_WEBLIB_RANGE_H_
