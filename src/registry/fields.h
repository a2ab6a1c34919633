// Field routines of the share registry's lines (and of other delimited
// texts, such as the comma-separated URL and id lists of the command line).
//
// The three routines count fields differently on purpose: get_field skips
// empty fields (adjacent delimiters count as one, a leading delimiter is
// ignored), while replace_field and count_fields count every delimiter.
// Lines read from the registry keep their newline, so the last field of a
// line carries it.
#ifndef SLT_REGISTRY_FIELDS_H_
#define SLT_REGISTRY_FIELDS_H_

#include <cstddef>
#include <cstdint>

// replace_field's result when the rewritten line does not fit in out.
constexpr int kFieldTooLong = -10;

// Copies the n-th non-empty field (from 1) of the first line_len bytes of
// `line` into out, with a terminator. `delimiter` is a set of delimiter
// characters. line_len 0 or n 0: out becomes empty, result 1. Otherwise 1 on
// success; -1 when the delimiter is missing, the line has fewer than n
// non-empty fields, or the field has out_size bytes or more (no truncation:
// out is then left as it was).
int get_field(char* out, size_t out_size, int n, const char* line, size_t line_len,
              const char* delimiter);

// Reads several fields of one line in one pass: each get() gives exactly
// what get_field with the same arguments would (same result, same out), but
// fields asked for in increasing order are found without scanning the line
// again. The line must outlive the reader.
class FieldReader {
 public:
  FieldReader(const char* line, size_t line_len, char delimiter);
  // get_field(out, out_size, n, line, line_len, {delimiter, 0}).
  int get(char* out, size_t out_size, int n);

 private:
  const char* line_;
  size_t line_len_;
  char delimiter_;
  const char* p_;    // just past the last field found
  const char* end_;  // the line's first NUL, or line + line_len
  int index_ = 0;    // number of that field
};

// Counts the items of `text` separated by `delimiter` into *out_count (a
// 16-bit count, so it wraps): the delimiter occurrences of the text with one
// delimiter appended unless it already ends with one. "a,b" and "a,b," count
// 2, ",," counts 2. text_len or delimiter_len 0 counts 0. Always 1.
int count_fields(uint16_t* out_count, const char* text, size_t text_len, const char* delimiter,
                 size_t delimiter_len);

// Writes into out (out_size bytes) a copy of `line` in which field n (from 1,
// every delimiter counts, empty fields included) is replaced by `value`; the
// last delimiter_len bytes of the result are cut off, so a line that ends
// with its newline loses it when the newline's field is the one replaced.
// Results: 1 with out written; 1 with nothing written when line_len, n or
// delimiter_len is 0 or value is empty; -1 (nothing written) when the line
// has fewer than n fields; kFieldTooLong (nothing written) when the result
// does not fit in out_size - 1 bytes.
int replace_field(char* out, size_t out_size, const char* value, int n, const char* line,
                  size_t line_len, const char* delimiter, size_t delimiter_len);

#endif  // SLT_REGISTRY_FIELDS_H_
