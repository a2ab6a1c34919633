// The mail template splitter and placeholder filling on arbitrary templates
// and header values. strstrip must cut a text exactly at its first two "$"
// (or leave it alone); a filled message must hold no line break that the
// template itself, the body or the company line did not bring, so that no
// header value can start a header line of its own; MAIL_SUBJECT must be one
// base64 encoded word.
//
// Input: template NUL to_name NUL to_address NUL from_name NUL from_address
// NUL subject NUL body.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <set>
#include <string>
#include <vector>

#include "fuzz_support.h"
#include "mail/mail_delivery.h"

namespace {

void check(bool ok) {
  if (!ok) abort();
}

size_t count_newlines(const std::string& s) {
  size_t n = 0;
  for (char c : s) n += c == '\n';
  return n;
}

// What fill_placeholder writes for `name`, captured.
std::string filled(const char* name, const MailHeader& h) {
  char* buf = nullptr;
  size_t len = 0;
  FILE* f = open_memstream(&buf, &len);
  check(f != nullptr);
  check(fill_placeholder(f, name, &h) == 0);
  fclose(f);
  std::string s(buf, len);
  free(buf);
  return s;
}

bool is_base64(const std::string& s) {
  for (char c : s) {
    if (!isalnum(static_cast<unsigned char>(c)) && c != '+' && c != '/' && c != '=') return false;
  }
  return s.size() % 4 == 0;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz_root();
  std::vector<std::string> parts;
  size_t from = 0;
  for (size_t i = 0; i <= size && parts.size() < 7; ++i) {
    if (i == size || data[i] == '\0') {
      parts.emplace_back(reinterpret_cast<const char*>(data) + from, i - from);
      from = i + 1;
    }
  }
  parts.resize(7);
  const std::string& tpl = parts[0];

  MailHeader h;
  memset(h.to_name, 0, sizeof h.to_name);
  memset(h.from_name, 0, sizeof h.from_name);
  memset(h.reply_hint, 0, sizeof h.reply_hint);
  snprintf(h.to_name, sizeof h.to_name, "%s", parts[1].c_str());
  snprintf(h.to_address, sizeof h.to_address, "%s", parts[2].c_str());
  snprintf(h.from_name, sizeof h.from_name, "%s", parts[3].c_str());
  snprintf(h.from_address, sizeof h.from_address, "%s", parts[4].c_str());
  snprintf(h.subject, sizeof h.subject, "%s", parts[5].c_str());
  h.content = parts[6];

  // Header values never carry a line break.
  for (const char* name : {"MAIL_TO", "MAIL_FROM", "MAIL_SUBJECT_TXT", "MAIL_SUBJECT"}) {
    const std::string v = filled(name, h);
    check(v.find('\n') == std::string::npos && v.find('\r') == std::string::npos);
  }
  const std::string word = filled("MAIL_SUBJECT", h);
  check(word.compare(0, 10, "=?UTF-8?B?") == 0 && word.size() >= 12 &&
        word.compare(word.size() - 2, 2, "?=") == 0);
  check(is_base64(word.substr(10, word.size() - 12)));
  check(filled("CONTENT", h) == h.content);
  const size_t company_breaks = count_newlines(filled("VEXA", h));

  // The template, line by line as the delivery reads it (at most 2,047
  // bytes at a time), each piece split at its "$" pairs.
  std::string out;
  size_t expected_breaks = 0;
  for (size_t pos = 0; pos < tpl.size();) {
    size_t nl = tpl.find('\n', pos);
    size_t n = (nl == std::string::npos ? tpl.size() : nl + 1) - pos;
    if (n > 2047) n = 2047;
    std::vector<char> line(tpl.begin() + static_cast<long>(pos), tpl.begin() + static_cast<long>(pos + n));
    line.push_back('\0');
    pos += n;
    char* text = line.data();
    for (;;) {
      const std::string before_split(text);
      char* rest = reinterpret_cast<char*>(0x1);
      char* name = strstrip(text, '$', &rest);
      if (name == nullptr) {
        check(rest == reinterpret_cast<char*>(0x1) && before_split == text);
        expected_breaks += count_newlines(text);
        out += text;
        break;
      }
      // text holds what came before the first "$", name what lay between.
      check(before_split == std::string(text) + "$" + name + "$" + rest);
      check(strchr(text, '$') == nullptr && strchr(name, '$') == nullptr);
      expected_breaks += count_newlines(text);
      out += text;
      const std::string value = filled(name, h);
      if (strcmp(name, "CONTENT") == 0) expected_breaks += count_newlines(h.content);
      else if (strcmp(name, "VEXA") == 0) expected_breaks += company_breaks;
      else check(count_newlines(value) == 0);
      static const std::set<std::string> kKnown = {"MAIL_TO", "MAIL_FROM", "MAIL_SUBJECT", "MAIL_SUBJECT_TXT",
                                                   "YEAR", "VEXA", "CONTENT"};
      if (kKnown.count(name) == 0) check(value.empty());
      out += value;
      text = rest;
    }
  }
  check(count_newlines(out) == expected_breaks);
  return 0;
}
