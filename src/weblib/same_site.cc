#include "weblib/same_site.h"

#include <strings.h>

#include <cstring>

#include "platform/cgi.h"

bool same_site_request(const char* origin, const char* sec_fetch_site, const char* host, bool https) {
  if (sec_fetch_site != nullptr && strcmp(sec_fetch_site, "same-origin") != 0 &&
      strcmp(sec_fetch_site, "none") != 0) {
    return false;
  }
  if (origin == nullptr) return true;
  // A page sent with "Referrer-Policy: no-referrer" posts its forms with
  // "Origin: null"; the browser's Sec-Fetch-Site still names the site.
  if (strcmp(origin, "null") == 0) return sec_fetch_site != nullptr && strcmp(sec_fetch_site, "same-origin") == 0;
  if (host == nullptr || host[0] == '\0') return false;
  const char* scheme = https ? "https://" : "http://";
  const size_t n = strlen(scheme);
  return strncmp(origin, scheme, n) == 0 && strcasecmp(origin + n, host) == 0;
}

bool same_site_cgi_request() {
  const char* https = cgi_env("HTTPS");
  return same_site_request(cgi_env("HTTP_ORIGIN"), cgi_env("HTTP_SEC_FETCH_SITE"), cgi_env("HTTP_HOST"),
                           https != nullptr && strcasecmp(https, "on") == 0);
}
