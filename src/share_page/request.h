// A share.cgi request as parsed from the CGI environment: nothing here is
// trusted yet; the gate (gate.h) checks it.
#ifndef SLT_SHARE_PAGE_REQUEST_H_
#define SLT_SHARE_PAGE_REQUEST_H_

#include <cstddef>
#include <string>

struct ShareRequest {
  std::string method;    // "GET", "HEAD", "POST" or another (refused)
  std::string query;     // QUERY_STRING as received (for the form's action)
  std::string ssid;      // link id
  std::string fid;       // one file of a multi-file link
  std::string path;      // inside a shared folder, relative; "" for the link itself
  bool path_bad = false; // path holds "..", NUL, a backslash or is absolute
  bool dl = false;       // the file itself, not its page
  bool zip = false;      // reserved: the folder as one archive
  bool inline_view = false;  // inline=1: shown in the browser where that is safe
  int page = 0;          // listing page, from 0
  bool has_code = false; // a POST body with field "code"
  std::string code;      // never from the query string, never logged
  std::string cookies;   // HTTP_COOKIE as received
};

// Parses the query string, the cookie header and an urlencoded POST body
// (only its "code" field is read). Any input gives a request; nulls count
// as empty.
ShareRequest parse_share_request(const char* method, const char* query, const char* cookie_header,
                                 const char* body, size_t body_len);

// True when rel may name something inside a shared folder: relative, no ".."
// component, no NUL byte, no backslash. An empty rel is the folder itself.
bool share_path_is_safe(const std::string& rel);

// The value of cookie `name` in a Cookie header ("a=1; b=2"), "" when absent.
std::string cookie_value(const std::string& header, const std::string& name);

#endif  // SLT_SHARE_PAGE_REQUEST_H_
