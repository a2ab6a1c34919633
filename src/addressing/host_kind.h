// Host kinds: which known address of the HostAddressTable a host text stands
// for, and the stored host forms (":N", ":N:host", ":0:host:port", ":10:host",
// ":11:<link prefix>", ":21:host") that name one.
#ifndef SLT_ADDRESSING_HOST_KIND_H_
#define SLT_ADDRESSING_HOST_KIND_H_

#include <cstddef>

enum HostKind {
  kHostCustom = 0,        // custom host (":0:host[:port]"); also what cannot be placed
  kHostExternal = 1,      // external_ip
  kHostRelay = 2,         // myrelay_hn
  kHostDdns = 3,          // a name of ddns_hn_list
  kHostLocal = 4,         // local_ip, item 1 of local_ip_list
  kHostLocal2 = 5,        // items 2..8 of local_ip_list: 5, 7, 8, 9, 12, 13, 14
  kHostRequest = 6,       // host_ip; also whatever classify_host cannot place
  kHostLocal3 = 7,
  kHostLocal4 = 8,
  kHostLocal5 = 9,
  kHostBare = 10,         // custom host printed without port
  kHostLinkPrefix = 11,   // a complete link prefix used as the whole link
  kHostLocal6 = 12,
  kHostLocal7 = 13,
  kHostLocal8 = 14,
  kHostLocalV6First = 15, // items 1..6 of local_ipv6_list: 15..20
  kHostLocalV6Last = 20,
  kHostRequestBare = 21,  // the request host; stored, a custom host without port
};

// The kind of a host text. Runs discovery first when the table is not filled
// (except for "http:/", "https:/" and ":N" texts, which need no table).
int classify_host(const char* text);

// Turns a stored host text into the host to print (into out, at most 512
// bytes and size) and returns its kind; with no text, out itself is
// classified. Returns 6 without out.
int resolve_link_host(char* out, const char* text, size_t size);

#endif  // SLT_ADDRESSING_HOST_KIND_H_
