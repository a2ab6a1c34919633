#include "weblib/download_name.h"

#include <curl/curl.h>

#include <cstring>
#include <memory>

#include "platform/terminal_text.h"

bool is_ie_user_agent(const char* user_agent) {
  if (user_agent == nullptr) return false;
  return strstr(user_agent, "MSIE") != nullptr || strstr(user_agent, "Trident") != nullptr ||
         strstr(user_agent, "Edge") != nullptr;
}

size_t CGI_Handle_IE_Filename(const char* name, char* out, size_t size) {
  if (out == nullptr || size == 0) return 0;
  out[0] = '\0';
  if (name == nullptr) return 0;
  static const char kHex[] = "0123456789abcdef";
  std::string first;
  for (const char* p = name; *p != '\0'; ++p) {
    switch (*p) {
      case ';': first += "%3B"; break;
      case '#': first += "%23"; break;
      case '-': first += "%2D"; break;
      default: first += *p; break;
    }
  }
  std::string second;
  for (unsigned char c : first) {
    if (c >= 128) {
      second += '%';
      second += kHex[c >> 4];
      second += kHex[c & 15];
    } else {
      second += static_cast<char>(c);
    }
  }
  size_t n = second.size() < size - 1 ? second.size() : size - 1;
  memcpy(out, second.data(), n);
  out[n] = '\0';
  return n;
}

bool url_escape_name(const char* text, std::string* out) {
  out->clear();
  if (text == nullptr) return false;
  std::unique_ptr<CURL, void (*)(CURL*)> handle(curl_easy_init(), curl_easy_cleanup);
  if (!handle) return false;
  // Bidi and other hidden controls would make the saved name read otherwise
  // than it is ("photo<U+202E>gpj.exe" shows as "photoexe.jpg").
  const std::string shown = without_hidden_controls(text);
  if (shown.size() > 0x7fffffff) return false;
  std::unique_ptr<char, void (*)(void*)> escaped(
      curl_easy_escape(handle.get(), shown.c_str(), static_cast<int>(shown.size())), curl_free);
  if (!escaped) return false;
  out->assign(escaped.get());
  return true;
}
