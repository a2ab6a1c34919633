// The registry field routines on arbitrary lines, delimiters, field numbers
// and output sizes, each checked against a plain reference:
// get_field against strtok_r on a copy of the line, count_fields and
// replace_field against straightforward rewrites of their rules, and every
// output against its bound (outputs are exact-size heap blocks, so ASan sees
// a single byte too many).
//
// FieldReader is held to get_field on the same inputs.
//
// Input: byte 0 the field number (signed), byte 1 the output size, byte 2
// how much of the line to pass, byte 3 how much of the delimiter to pass;
// then line NUL delimiter [NUL value].
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "fuzz_support.h"
#include "registry/fields.h"

namespace {

void check(bool ok) {
  if (!ok) abort();
}

// The n-th strtok_r token of text, or false.
bool strtok_reference(const std::string& text, const std::string& delim, int n, std::string* token) {
  std::vector<char> copy(text.begin(), text.end());
  copy.push_back('\0');
  char* save = nullptr;
  char* t = strtok_r(copy.data(), delim.c_str(), &save);
  for (int i = 1; i < n && t != nullptr; ++i) t = strtok_r(nullptr, delim.c_str(), &save);
  if (t == nullptr) return false;
  token->assign(t);
  return true;
}

// Occurrences of delim, stepping past each, in text + delim unless text
// already ends with it.
uint16_t count_reference(std::string text, const std::string& delim) {
  if (text.size() < delim.size() || text.compare(text.size() - delim.size(), delim.size(), delim) != 0) {
    text += delim;
  }
  uint16_t count = 0;
  for (size_t i = 0; i + delim.size() <= text.size();) {
    if (memcmp(text.data() + i, delim.data(), delim.size()) == 0) {
      ++count;
      i += delim.size();
    } else {
      ++i;
    }
  }
  return count;
}

// replace_field's rule: split on every delimiter (empty fields count),
// replace field n, join, drop the last delimiter. -1 when too few fields.
int replace_reference(std::string text, const std::string& delim, int n, const std::string& value,
                      std::string* result) {
  if (text.size() < delim.size() || text.compare(text.size() - delim.size(), delim.size(), delim) != 0) {
    text += delim;
  }
  std::vector<std::string> pieces;
  size_t from = 0;
  for (size_t i = 0; i + delim.size() <= text.size();) {
    if (memcmp(text.data() + i, delim.data(), delim.size()) == 0) {
      pieces.push_back(text.substr(from, i - from));
      i += delim.size();
      from = i;
    } else {
      ++i;
    }
  }
  if (static_cast<int>(pieces.size()) < n) return -1;
  pieces[static_cast<size_t>(n) - 1] = value;
  result->clear();
  for (const auto& p : pieces) result->append(p).append(delim);
  // A tail can follow the last match: ",," + ",,," scans as ",,," then ",,".
  result->append(text, from, std::string::npos);
  result->resize(result->size() - delim.size());
  return 1;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 4) return 0;
  const int n = static_cast<int8_t>(data[0]);
  const size_t out_size = data[1];
  const uint8_t line_cut = data[2];
  const uint8_t delim_cut = data[3];
  std::string line, delim, value;
  fuzz_split(data + 4, size - 4, &line, &delim);
  // fuzz_split ends the second text at its first NUL; a value follows that
  // second NUL in the raw input.
  const char* raw = reinterpret_cast<const char*>(data + 4);
  size_t raw_size = size - 4;
  const void* first = memchr(raw, '\0', raw_size);
  if (first != nullptr) {
    size_t off = static_cast<size_t>(static_cast<const char*>(first) - raw) + 1;
    const void* second = memchr(raw + off, '\0', raw_size - off);
    if (second != nullptr) {
      size_t voff = static_cast<size_t>(static_cast<const char*>(second) - raw) + 1;
      value.assign(raw + voff, strnlen(raw + voff, raw_size - voff));
    }
  }

  // The line as a caller holds it: NUL-terminated, its length possibly
  // shorter than the text (never longer than the buffer).
  const size_t line_len = line_cut == 0xff ? line.size() : (line.size() < line_cut ? line.size() : line_cut);
  const std::string seen_line = line.substr(0, line_len);
  const size_t delim_len = delim_cut == 0xff ? delim.size() : (delim.size() < delim_cut ? delim.size() : delim_cut);
  const std::string seen_delim = delim.substr(0, delim_len);

  // get_field
  {
    std::vector<char> out(out_size == 0 ? 1 : out_size, '\x5a');
    char* out_ptr = out_size == 0 ? nullptr : out.data();
    int r = get_field(out_ptr, out_size, n, line.c_str(), line_len, delim.c_str());
    if (line_len == 0 || n == 0) {
      check(r == 1);
      if (out_size > 0) check(out[0] == '\0');
    } else if (delim.empty() || n < 0 || out_size == 0) {
      check(r == -1);
    } else {
      std::string token;
      bool found = strtok_reference(seen_line, delim, n, &token);
      if (found && token.size() < out_size) {
        check(r == 1);
        check(memchr(out.data(), '\0', out_size) != nullptr);
        check(strlen(out.data()) <= out_size - 1);
        check(token == out.data());
      } else {
        check(r == -1);
        for (char c : out) check(c == '\x5a');  // untouched
      }
    }
  }

  // FieldReader gives what get_field gives, whatever order fields are asked in.
  if (!delim.empty()) {
    const char single[2] = {delim[0], '\0'};
    FieldReader reader(line.c_str(), line_len, delim[0]);
    for (int k : {n, n + 1, n + 3, 1, n, 0, n + 2}) {
      std::vector<char> got(out_size == 0 ? 1 : out_size, '\x5a');
      std::vector<char> want(out_size == 0 ? 1 : out_size, '\x5a');
      int r = reader.get(out_size ? got.data() : nullptr, out_size, k);
      int e = get_field(out_size ? want.data() : nullptr, out_size, k, line.c_str(), line_len, single);
      check(r == e && got == want);
    }
  }

  // count_fields
  {
    uint16_t count = 0xbeef;
    check(count_fields(&count, line.c_str(), line_len, delim.c_str(), delim_len) == 1);
    if (line_len == 0 || seen_delim.empty()) {
      check(count == 0);
    } else {
      check(count == count_reference(seen_line, seen_delim));
    }
  }

  // replace_field
  {
    std::vector<char> out(out_size == 0 ? 1 : out_size, '\x5a');
    char* out_ptr = out_size == 0 ? nullptr : out.data();
    int r = replace_field(out_ptr, out_size, value.c_str(), n, line.c_str(), line_len, delim.c_str(),
                          delim_len);
    bool untouched = true;
    for (char c : out) untouched = untouched && c == '\x5a';
    if (line_len == 0 || n == 0 || delim_len == 0 || value.empty()) {
      check(r == 1 && untouched);
    } else if (out_size == 0 || n < 0) {
      check(r == -1 && untouched);
    } else {
      std::string expected;
      int want = replace_reference(seen_line, seen_delim, n, value, &expected);
      if (want == -1) {
        check(r == -1 && untouched);
      } else if (expected.size() >= out_size) {
        check(r == kFieldTooLong && untouched);
      } else {
        check(r == 1);
        check(memchr(out.data(), '\0', out_size) != nullptr);
        check(expected == std::string(out.data(), expected.size()) && out[expected.size()] == '\0');
      }
    }
  }
  return 0;
}
