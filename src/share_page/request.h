// A share.cgi request as read from the CGI environment, once: nothing here
// is trusted yet; the gate (gate.h) checks it.
#ifndef SLT_SHARE_PAGE_REQUEST_H_
#define SLT_SHARE_PAGE_REQUEST_H_

#include <cstddef>
#include <ctime>
#include <string>

// A request header: absent, or present with its value.
struct Header {
  bool present = false;
  std::string value;
  const char* get() const { return present ? value.c_str() : nullptr; }
};

struct ShareRequest {
  std::string method;    // "GET", "HEAD", "POST" or another (refused)
  bool head = false;
  std::string query;     // QUERY_STRING as received (for the form's action)
  std::string path_info; // anything after /share.cgi in the URL: never served
  std::string ssid;      // link id
  std::string fid;       // one file of a multi-file link
  std::string path;      // inside a shared folder, relative; "" for the link itself
  bool path_bad = false; // path is absolute, holds a NUL, a backslash, or a
                         // component that is empty-dotted or hidden (".x")
  bool dl = false;       // the file itself, not its page
  bool zip = false;      // the folder (or the link's files) as one archive
  bool inline_view = false;  // inline=1: shown in the browser where that is safe
  int page = 0;          // listing page, from 0
  bool has_code = false; // a POST body with field "code"
  std::string code;      // never from the query string, never logged
  std::string form_token;// the code form's token, from the POST body
  std::string cookies;   // HTTP_COOKIE as received
  Header range, if_range, if_none_match, if_modified_since;
  std::string origin, fetch_site, host;  // for the same-site rule of POSTs
  bool https = false;
  std::string client;    // the client as throttling counts it (client_key)
  std::string ua;        // User-Agent
  time_t now = 0;
};

// Parses the query string, the cookie header and an urlencoded POST body
// (only its "code" and "form_token" fields are read). Any input gives a
// request; nulls count as empty.
ShareRequest parse_share_request(const char* method, const char* query, const char* cookie_header,
                                 const char* body, size_t body_len);

// The whole request of this process: the CGI variables, the headers and at
// most 8 KiB of an urlencoded POST body from standard input; `now` from the
// clock of the OS seam.
ShareRequest read_share_request();

// True when rel may name something inside a shared folder: relative, no
// NUL byte, no backslash, and no component that begins with "." (which
// covers "..", "." and every hidden name, the appliance's ".@" folders
// among them). An empty rel is the folder itself.
bool share_path_is_safe(const std::string& rel);

// The value of cookie `name` in a Cookie header ("a=1; b=2"), "" when absent.
std::string cookie_value(const std::string& header, const std::string& name);

// The client as throttling counts it: an IPv4 address, or the /64 prefix of
// an IPv6 address ("2001:db8:1:2::/64"); IPv4-mapped IPv6 is IPv4. Anything
// unparsable is kept as given (cut to 64 bytes).
std::string client_key(const char* remote_addr);

#endif  // SLT_SHARE_PAGE_REQUEST_H_
