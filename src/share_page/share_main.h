// share.cgi: the recipient's side of a share link (CGI/1.1).
#ifndef SLT_SHARE_PAGE_SHARE_MAIN_H_
#define SLT_SHARE_PAGE_SHARE_MAIN_H_

#include <string>

// The client as throttling counts it: an IPv4 address, or the /64 prefix of
// an IPv6 address ("2001:db8:1:2::/64"); IPv4-mapped IPv6 is IPv4. Anything
// unparsable is kept as given (cut to 64 bytes).
std::string client_key(const char* remote_addr);

// Serves one request from the CGI environment. The exit status.
int share_cgi_main();

#endif  // SLT_SHARE_PAGE_SHARE_MAIN_H_
