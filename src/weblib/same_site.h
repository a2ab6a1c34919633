// Whether a request that would change state comes from the appliance's own
// pages. Browsers name the page a request comes from in Origin (on every
// cross-origin request and on same-origin POSTs) and in Sec-Fetch-Site; a
// form or image on any other site carries its own origin there, while
// programs other than browsers send neither.
#ifndef SLT_WEBLIB_SAME_SITE_H_
#define SLT_WEBLIB_SAME_SITE_H_

// True when neither header speaks against the request: `sec_fetch_site` is
// absent, "same-origin" or "none" (typed by the user), and `origin` is
// absent or names exactly the request's own scheme and host: "http://" (or
// "https://" when `https`) followed by `host` (HTTP_HOST, the port
// included when the client named one), the host's letters in any case.
// An origin of "null" passes only with "same-origin" in `sec_fetch_site`
// (what a page sent with "Referrer-Policy: no-referrer" posts). False for
// anything else, a missing host among them.
bool same_site_request(const char* origin, const char* sec_fetch_site, const char* host, bool https);

// same_site_request over this request's HTTP_ORIGIN, HTTP_SEC_FETCH_SITE,
// HTTP_HOST and HTTPS ("on" for https).
bool same_site_cgi_request();

#endif  // SLT_WEBLIB_SAME_SITE_H_
