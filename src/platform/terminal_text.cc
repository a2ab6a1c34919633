#include "platform/terminal_text.h"

#include <cstdio>

namespace {

struct Range {
  uint32_t first, last;
};

// Category Cf (Unicode 15), with U+2065 and the unassigned tag U+E0000
// taken along, and the line and paragraph separators.
constexpr Range kHidden[] = {
    {0x00AD, 0x00AD},   {0x0600, 0x0605},   {0x061C, 0x061C},   {0x06DD, 0x06DD},
    {0x070F, 0x070F},   {0x0890, 0x0891},   {0x08E2, 0x08E2},   {0x180E, 0x180E},
    {0x200B, 0x200F},   {0x2028, 0x202E},   {0x2060, 0x206F},   {0xFEFF, 0xFEFF},
    {0xFFF9, 0xFFFB},   {0x110BD, 0x110BD}, {0x110CD, 0x110CD}, {0x13430, 0x1343F},
    {0x1BCA0, 0x1BCA3}, {0x1D173, 0x1D17A}, {0xE0000, 0xE007F},
};

void append_escape(std::string* out, const char* format, uint32_t value) {
  char esc[16];
  snprintf(esc, sizeof esc, format, static_cast<unsigned>(value));
  *out += esc;
}

}  // namespace

size_t utf8_sequence(const char* text, size_t len, uint32_t* cp) {
  if (len == 0) return 0;
  const unsigned char* s = reinterpret_cast<const unsigned char*>(text);
  if (s[0] < 0x80) {
    *cp = s[0];
    return 1;
  }
  size_t n;
  uint32_t value, min;
  if (s[0] >= 0xc2 && s[0] <= 0xdf) {
    n = 2, value = s[0] & 0x1f, min = 0x80;
  } else if (s[0] >= 0xe0 && s[0] <= 0xef) {
    n = 3, value = s[0] & 0x0f, min = 0x800;
  } else if (s[0] >= 0xf0 && s[0] <= 0xf4) {
    n = 4, value = s[0] & 0x07, min = 0x10000;
  } else {
    return 0;
  }
  if (len < n) return 0;
  for (size_t i = 1; i < n; ++i) {
    if ((s[i] & 0xc0) != 0x80) return 0;
    value = value << 6 | (s[i] & 0x3f);
  }
  if (value < min || value > 0x10ffff || (value >= 0xd800 && value <= 0xdfff)) return 0;
  *cp = value;
  return n;
}

bool is_hidden_control(uint32_t cp) {
  if (cp < 0x20 || (cp >= 0x7f && cp <= 0x9f)) return true;
  for (const Range& r : kHidden) {
    if (cp < r.first) return false;  // the table is sorted
    if (cp <= r.last) return true;
  }
  return false;
}

std::string terminal_safe(const std::string& text) {
  std::string out;
  out.reserve(text.size());
  for (size_t i = 0; i < text.size();) {
    uint32_t cp = 0;
    size_t n = utf8_sequence(text.data() + i, text.size() - i, &cp);
    if (n == 0) {  // not UTF-8: the byte as it is
      append_escape(&out, "\\x%02x", static_cast<unsigned char>(text[i]));
      i += 1;
      continue;
    }
    switch (cp) {
      case '\t': out += "\\t"; break;
      case '\n': out += "\\n"; break;
      case '\r': out += "\\r"; break;
      case '\\': out += "\\\\"; break;
      default:
        if (cp < 0x20 || cp == 0x7f) append_escape(&out, "\\x%02x", cp);
        else if (!is_hidden_control(cp)) out.append(text, i, n);
        else if (cp <= 0xffff) append_escape(&out, "\\u%04x", cp);
        else append_escape(&out, "\\U%08x", cp);
    }
    i += n;
  }
  return out;
}

std::string without_hidden_controls(const std::string& text) {
  std::string out;
  out.reserve(text.size());
  for (size_t i = 0; i < text.size();) {
    uint32_t cp = 0;
    size_t n = utf8_sequence(text.data() + i, text.size() - i, &cp);
    if (n == 0) {  // a byte of 0x80 or more: raw C1 goes, the others stay
      if (static_cast<unsigned char>(text[i]) > 0x9f) out += text[i];
      i += 1;
      continue;
    }
    if (!is_hidden_control(cp)) out.append(text, i, n);
    i += n;
  }
  return out;
}
