// The share URL parser: the host and the share-link id of a link's URL, as
// composed by the addressing code ("https://host[:port]/share.cgi?...&ssid=ID").
//
// The outputs are written without a terminator into buffers the caller
// cleared once, and are never cleared here: a value shorter than the one
// written before keeps the earlier value's tail. Share-link ids all have the
// same length, which makes this harmless for ids.
#ifndef SLT_REGISTRY_SHARE_URL_H_
#define SLT_REGISTRY_SHARE_URL_H_

#include <cstddef>
#include <string>

// What one URL yields, before it is written anywhere.
struct ShareUrlParts {
  bool has_host = false;
  std::string host;
  bool has_ssid = false;
  std::string ssid;  // everything after the first "ssid=", to the end
};

// Takes `url` apart. For a URL containing "https" the text from its ninth
// byte (cut to 511 bytes) ends at the first "/" when the configured secure
// port ([Stunnel] Port, default "443") is "443", else at the first ":"; for
// any other URL the text from its eighth byte ends at the first ":". No
// separator: no host. -1 for a null or empty URL (parts untouched), else 0.
int split_share_url(const char* url, ShareUrlParts* parts);

// Writes the parts that were found over the start of out_host and out_ssid,
// at most size - 1 bytes each, without a terminator.
void apply_share_url(const ShareUrlParts& parts, char* out_host, size_t host_size, char* out_ssid,
                     size_t ssid_size);

// split_share_url, then apply_share_url. -1 for an empty URL (nothing
// written), else 0.
int parse_share_url(const char* url, char* out_host, size_t host_size, char* out_ssid,
                    size_t ssid_size);

// The secure port is read once per process; this forgets it (tests that
// change the configuration).
void share_url_forget_port();

#endif  // SLT_REGISTRY_SHARE_URL_H_
