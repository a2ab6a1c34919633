#include "share_page/request.h"

#include <cstdlib>
#include <cstring>

#include "platform/cgi.h"

namespace {

const std::string* find(const CgiRequest& req, const char* name) {
  for (const auto& p : req.params) {
    if (p.first == name) return &p.second;
  }
  return nullptr;
}

}  // namespace

bool share_path_is_safe(const std::string& rel) {
  if (!rel.empty() && rel[0] == '/') return false;
  if (rel.find('\0') != std::string::npos || rel.find('\\') != std::string::npos) return false;
  size_t pos = 0;
  while (pos <= rel.size()) {
    size_t slash = rel.find('/', pos);
    if (slash == std::string::npos) slash = rel.size();
    if (slash - pos == 2 && rel.compare(pos, 2, "..") == 0) return false;
    pos = slash + 1;
  }
  return true;
}

std::string cookie_value(const std::string& header, const std::string& name) {
  size_t pos = 0;
  while (pos < header.size()) {
    size_t end = header.find(';', pos);
    if (end == std::string::npos) end = header.size();
    size_t start = header.find_first_not_of(' ', pos);
    if (start < end) {
      size_t eq = header.find('=', start);
      if (eq != std::string::npos && eq < end && header.compare(start, eq - start, name) == 0 &&
          eq - start == name.size()) {
        return header.substr(eq + 1, end - eq - 1);
      }
    }
    pos = end + 1;
  }
  return std::string();
}

ShareRequest parse_share_request(const char* method, const char* query, const char* cookie_header,
                                 const char* body, size_t body_len) {
  ShareRequest r;
  r.method = method != nullptr ? method : "";
  r.query = query != nullptr ? query : "";
  r.cookies = cookie_header != nullptr ? cookie_header : "";
  CgiRequest q;
  cgi_parse_params(r.query.c_str(), r.query.size(), &q);
  if (const std::string* v = find(q, "ssid")) r.ssid = *v;
  if (const std::string* v = find(q, "fid")) r.fid = *v;
  if (const std::string* v = find(q, "path")) r.path = *v;
  if (const std::string* v = find(q, "dl")) r.dl = *v == "1";
  if (const std::string* v = find(q, "zip")) r.zip = *v == "1";
  if (const std::string* v = find(q, "inline")) r.inline_view = *v == "1";
  if (const std::string* v = find(q, "page")) {
    long n = strtol(v->c_str(), nullptr, 10);
    r.page = n > 0 && n < 1000000 ? static_cast<int>(n) : 0;
  }
  r.path_bad = !share_path_is_safe(r.path);
  if (body != nullptr && body_len > 0) {
    CgiRequest b;
    cgi_parse_params(body, body_len, &b);
    if (const std::string* v = find(b, "code")) {
      r.has_code = true;
      r.code = *v;
    }
  }
  return r;
}
