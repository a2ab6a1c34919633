// Pages and answers of share.cgi: templates from data/share/ filled with
// escaped values, and the header block every answer carries.
#ifndef SLT_SHARE_PAGE_PAGE_H_
#define SLT_SHARE_PAGE_PAGE_H_

#include <ctime>
#include <map>
#include <string>
#include <vector>

struct ShareRequest;

// "/share.cgi?ssid=ID" of the request's link, and with its fid or path.
std::string share_base_url(const ShareRequest& req);
std::string share_self_url(const ShareRequest& req);

// &, <, >, " and ' as character references.
std::string html_escape(const std::string& text);

// Every byte but ALPHA / DIGIT / "-._~" as %XX (query values, filename*).
std::string url_encode(const std::string& text);

// A header value with CR, LF and other control bytes removed.
std::string header_safe(const std::string& text);

// "12.3 MB" style.
std::string human_size(unsigned long long bytes);

// "2026-11-23 00:35 UTC".
std::string human_time(time_t when);

// data/share/<name> with every "$KEY$" of vars replaced (values are put in
// as given: escape them first). "" when the template cannot be read.
std::string render_template(const char* name, const std::map<std::string, std::string>& vars);

// A whole page: layout.html around content.
std::string render_page(const std::string& title, const std::string& content);

struct Reply {
  int status = 200;
  std::vector<std::string> headers;  // "Name: value", already safe
  std::string body;
};

// The text of a status line's reason ("Not Found").
const char* status_reason(int status);

// Header lines every answer carries; `page` picks the page CSP, else the
// sandbox CSP of a file body.
std::string security_headers(bool page);

// Writes a page answer (HTML, no-store, page CSP) to standard output; the
// body is left out for HEAD. True when all was written.
bool send_page(const Reply& reply, bool head);

// The error page for 403, 404, 410 and 429 with one sentence.
Reply error_reply(int status, const std::string& sentence);

#endif  // SLT_SHARE_PAGE_PAGE_H_
