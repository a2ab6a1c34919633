// Share-link URLs: host choice by HostKind, ports, and the URL text
// "<scheme><host>[:<port>]/share.cgi?ssid=<id>[&fid=<fid>]".
#ifndef SLT_ADDRESSING_SHARE_LINK_URL_H_
#define SLT_ADDRESSING_SHARE_LINK_URL_H_

#include <cstddef>

// The vendor relay and DDNS domains; a host under one of them is always
// reached through the external port.
constexpr int kRelayDomainSuffixCount = 5;
extern const char* const kRelayDomainSuffixes[kRelayDomainSuffixCount];

// Writes the URL into out (bounded by size): "https://" when ssl is 1, else
// "http://"; port and fid are left out when null or empty. Writes nothing
// unless out, host and ssid are given (an empty host is allowed).
void format_share_url(char* out, size_t size, int ssl, const char* host, const char* port,
                      const char* ssid, const char* fid);

// Writes the link of ssid (and fid, when not empty) for the stored host text
// into out_url, and the port that belongs to the chosen host into out_port.
// Always 0.
int compose_share_link(int ssl, const char* host_text, const char* ssid, const char* fid,
                       char* out_url, size_t url_size, char* out_port, size_t port_size);

#endif  // SLT_ADDRESSING_SHARE_LINK_URL_H_
