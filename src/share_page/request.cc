#include "share_page/request.h"

#include <arpa/inet.h>

#include <cstdlib>
#include <cstring>

#include "platform/cgi.h"
#include "platform/os.h"

namespace {

constexpr size_t kMaxBody = 8192;

const std::string* find(const CgiRequest& req, const char* name) {
  for (const auto& p : req.params) {
    if (p.first == name) return &p.second;
  }
  return nullptr;
}

std::string env_text(const char* name) {
  const char* v = cgi_env(name);
  return v != nullptr ? v : "";
}

Header env_header(const char* name) {
  Header h;
  const char* v = cgi_env(name);
  h.present = v != nullptr;
  if (v != nullptr) h.value = v;
  return h;
}

std::string read_body() {
  const char* type = cgi_env("CONTENT_TYPE");
  const char* len = cgi_env("CONTENT_LENGTH");
  if (type == nullptr || strncmp(type, "application/x-www-form-urlencoded", 33) != 0 ||
      len == nullptr) {
    return std::string();
  }
  long n = strtol(len, nullptr, 10);
  if (n <= 0) return std::string();
  size_t want = static_cast<size_t>(n) < kMaxBody ? static_cast<size_t>(n) : kMaxBody;
  std::string body(want, '\0');
  size_t got = 0;
  while (got < want) {
    ssize_t r = os.read(0, &body[got], want - got);
    if (r <= 0) break;
    got += static_cast<size_t>(r);
  }
  body.resize(got);
  return body;
}

}  // namespace

bool share_path_is_safe(const std::string& rel) {
  if (!rel.empty() && rel[0] == '/') return false;
  if (rel.find('\0') != std::string::npos || rel.find('\\') != std::string::npos) return false;
  for (size_t pos = 0; pos < rel.size();) {
    if (rel[pos] == '.') return false;
    size_t slash = rel.find('/', pos);
    if (slash == std::string::npos) break;
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
  r.head = r.method == "HEAD";
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
    if (const std::string* v = find(b, "form_token")) r.form_token = *v;
  }
  return r;
}

ShareRequest read_share_request() {
  const std::string method = env_text("REQUEST_METHOD");
  const std::string body = method == "POST" ? read_body() : std::string();
  ShareRequest r = parse_share_request(method.c_str(), cgi_env("QUERY_STRING"),
                                       cgi_env("HTTP_COOKIE"), body.data(), body.size());
  r.path_info = env_text("PATH_INFO");
  r.range = env_header("HTTP_RANGE");
  r.if_range = env_header("HTTP_IF_RANGE");
  r.if_none_match = env_header("HTTP_IF_NONE_MATCH");
  r.if_modified_since = env_header("HTTP_IF_MODIFIED_SINCE");
  r.origin = env_text("HTTP_ORIGIN");
  r.fetch_site = env_text("HTTP_SEC_FETCH_SITE");
  r.host = env_text("HTTP_HOST");
  r.https = env_text("HTTPS") == "on";
  r.client = client_key(cgi_env("REMOTE_ADDR"));
  r.ua = env_text("HTTP_USER_AGENT");
  r.now = os.time(nullptr);
  return r;
}

std::string client_key(const char* remote_addr) {
  if (remote_addr == nullptr) return "unknown";
  unsigned char a[16];
  char out[INET6_ADDRSTRLEN + 4];
  if (inet_pton(AF_INET, remote_addr, a) == 1) {
    inet_ntop(AF_INET, a, out, sizeof out);
    return out;
  }
  if (inet_pton(AF_INET6, remote_addr, a) == 1) {
    static const unsigned char mapped[12] = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xff, 0xff};
    if (memcmp(a, mapped, 12) == 0) {
      inet_ntop(AF_INET, a + 12, out, sizeof out);
      return out;
    }
    memset(a + 8, 0, 8);
    inet_ntop(AF_INET6, a, out, sizeof out);
    return std::string(out) + "/64";
  }
  return std::string(remote_addr).substr(0, 64);
}
