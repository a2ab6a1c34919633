#include "platform/cgi.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

int hex_value(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

std::string url_decode(const char* s, size_t len) {
  std::string out;
  out.reserve(len);
  for (size_t i = 0; i < len; ++i) {
    char c = s[i];
    if (c == '+') {
      out += ' ';
    } else if (c == '%' && i + 2 < len && hex_value(s[i + 1]) >= 0 && hex_value(s[i + 2]) >= 0) {
      out += static_cast<char>(hex_value(s[i + 1]) * 16 + hex_value(s[i + 2]));
      i += 2;
    } else {
      out += c;
    }
  }
  return out;
}

}  // namespace

void cgi_parse_params(const char* text, size_t len, CgiRequest* req) {
  if (text == nullptr || req == nullptr) return;
  size_t start = 0;
  while (start <= len) {
    size_t end = start;
    while (end < len && text[end] != '&') ++end;
    if (end > start) {
      const char* item = text + start;
      size_t n = end - start;
      const char* eq = static_cast<const char*>(memchr(item, '=', n));
      if (eq == nullptr) {
        req->params.emplace_back(url_decode(item, n), std::string());
      } else {
        size_t klen = static_cast<size_t>(eq - item);
        req->params.emplace_back(url_decode(item, klen), url_decode(eq + 1, n - klen - 1));
      }
    }
    start = end + 1;
  }
}

CgiRequest cgi_read_request() {
  CgiRequest req;
  const char* qs = getenv("QUERY_STRING");
  if (qs != nullptr) cgi_parse_params(qs, strlen(qs), &req);
  const char* method = getenv("REQUEST_METHOD");
  const char* type = getenv("CONTENT_TYPE");
  const char* length = getenv("CONTENT_LENGTH");
  if (method != nullptr && strcmp(method, "POST") == 0 && type != nullptr &&
      strncmp(type, "application/x-www-form-urlencoded", 33) == 0 && length != nullptr) {
    long want = strtol(length, nullptr, 10);
    if (want > 0 && want <= (1L << 20)) {
      std::string body(static_cast<size_t>(want), '\0');
      size_t got = 0;
      while (got < body.size()) {
        ssize_t n = read(0, &body[got], body.size() - got);
        if (n <= 0) break;
        got += static_cast<size_t>(n);
      }
      cgi_parse_params(body.data(), got, &req);
    }
  }
  return req;
}

const char* CGI_Find_Parameter(const CgiRequest* req, const char* name) {
  if (req == nullptr || name == nullptr) return nullptr;
  for (const auto& p : req->params) {
    if (p.first == name) return p.second.c_str();
  }
  return nullptr;
}

int CGI_Get_Http_Info(HttpInfo* info) {
  if (info == nullptr) return 0;
  const char* host = getenv("HTTP_HOST");
  snprintf(info->host, sizeof info->host, "%s", host ? host : "");
  return 0;
}

const char* cgi_env(const char* name) { return name ? getenv(name) : nullptr; }
