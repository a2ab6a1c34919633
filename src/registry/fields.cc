#include "registry/fields.h"

#include <cstring>
#include <string>

namespace {

// The delimiter as a character set, as strtok_r reads it.
struct DelimiterSet {
  explicit DelimiterSet(const char* d) : single(d[1] == '\0' ? d[0] : '\0') {
    if (single == '\0') {
      for (const unsigned char* p = reinterpret_cast<const unsigned char*>(d); *p; ++p) member[*p] = true;
    }
  }
  bool has(char c) const {
    return single != '\0' ? c == single : member[static_cast<unsigned char>(c)];
  }
  char single;
  bool member[256] = {};
};

bool ends_with(const std::string& s, const std::string& tail) {
  return s.size() >= tail.size() && s.compare(s.size() - tail.size(), tail.size(), tail) == 0;
}

}  // namespace

int get_field(char* out, size_t out_size, int n, const char* line, size_t line_len,
              const char* delimiter) {
  if (line_len == 0 || n == 0) {
    if (out != nullptr && out_size > 0) out[0] = '\0';
    return 1;
  }
  if (delimiter == nullptr || delimiter[0] == '\0') return -1;
  if (out == nullptr || out_size == 0 || line == nullptr || n < 0) return -1;

  // Tokens are the runs of non-delimiter bytes up to the first NUL, exactly
  // what strtok_r would hand out from a copy of the line.
  const DelimiterSet set(delimiter);
  const char* p = line;
  const char* end = line + strnlen(line, line_len);
  for (int index = 1;; ++index) {
    while (p < end && set.has(*p)) ++p;
    if (p == end) return -1;
    const char* token = p;
    if (set.single != '\0') {
      const void* hit = memchr(p, set.single, static_cast<size_t>(end - p));
      p = hit != nullptr ? static_cast<const char*>(hit) : end;
    } else {
      while (p < end && !set.has(*p)) ++p;
    }
    if (index == n) {
      size_t len = static_cast<size_t>(p - token);
      if (len >= out_size) return -1;
      memcpy(out, token, len);
      out[len] = '\0';
      return 1;
    }
  }
}

FieldReader::FieldReader(const char* line, size_t line_len, char delimiter)
    : line_(line),
      line_len_(line_len),
      delimiter_(delimiter),
      p_(line),
      end_(line != nullptr ? line + strnlen(line, line_len) : nullptr) {}

int FieldReader::get(char* out, size_t out_size, int n) {
  // What the reader cannot continue from goes to get_field itself.
  if (line_len_ == 0 || n <= index_ || delimiter_ == '\0' || out == nullptr || out_size == 0 ||
      line_ == nullptr) {
    const char delimiter[2] = {delimiter_, '\0'};
    return get_field(out, out_size, n, line_, line_len_, delimiter);
  }
  while (index_ < n) {
    while (p_ < end_ && *p_ == delimiter_) ++p_;
    if (p_ == end_) return -1;
    const char* token = p_;
    const void* hit = memchr(p_, delimiter_, static_cast<size_t>(end_ - p_));
    p_ = hit != nullptr ? static_cast<const char*>(hit) : end_;
    if (++index_ == n) {
      size_t len = static_cast<size_t>(p_ - token);
      if (len >= out_size) return -1;
      memcpy(out, token, len);
      out[len] = '\0';
      return 1;
    }
  }
  return -1;
}

int count_fields(uint16_t* out_count, const char* text, size_t text_len, const char* delimiter,
                 size_t delimiter_len) {
  if (out_count == nullptr) return 1;
  *out_count = 0;
  if (text == nullptr || delimiter == nullptr || text_len == 0 || delimiter_len == 0) return 1;
  std::string delim(delimiter, strnlen(delimiter, delimiter_len));
  if (delim.empty()) return 1;
  std::string s(text, strnlen(text, text_len));
  if (!ends_with(s, delim)) s += delim;
  uint16_t count = 0;
  for (size_t pos = s.find(delim); pos != std::string::npos; pos = s.find(delim, pos + delim.size())) {
    ++count;
  }
  *out_count = count;
  return 1;
}

int replace_field(char* out, size_t out_size, const char* value, int n, const char* line,
                  size_t line_len, const char* delimiter, size_t delimiter_len) {
  if (line_len == 0 || n == 0 || delimiter_len == 0 || value == nullptr || value[0] == '\0') return 1;
  if (out == nullptr || out_size == 0 || line == nullptr || delimiter == nullptr || n < 0) return -1;
  std::string delim(delimiter, strnlen(delimiter, delimiter_len));
  if (delim.empty()) return 1;
  std::string s(line, strnlen(line, line_len));
  if (!ends_with(s, delim)) s += delim;

  // Field n runs from just after the (n-1)-th delimiter to the n-th.
  size_t start = 0;
  size_t stop = s.find(delim);
  for (int k = 1; k < n && stop != std::string::npos; ++k) {
    start = stop + delim.size();
    stop = s.find(delim, start);
  }
  if (stop == std::string::npos) return -1;

  std::string result;
  result.reserve(s.size() + strlen(value));
  result.append(s, 0, start).append(value).append(s, stop, std::string::npos);
  result.resize(result.size() - delim.size());  // s ends with the delimiter, so result does too
  if (result.size() >= out_size) return kFieldTooLong;
  memcpy(out, result.data(), result.size());
  out[result.size()] = '\0';
  return 1;
}
