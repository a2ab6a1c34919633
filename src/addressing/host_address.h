// Host address discovery: every name and address under which the appliance
// can be reached (the external address seen by the cloud client, the vendor
// relay name, the configured DDNS names, the host of the current request, the
// interfaces' addresses) and the web ports, gathered into one process-wide
// HostAddressTable from the platform's programs and configuration.
//
// The table counts as filled while host_ip is non-empty. Without a request
// host (no HTTP_HOST) it stays empty and each user runs discovery again.
#ifndef SLT_ADDRESSING_HOST_ADDRESS_H_
#define SLT_ADDRESSING_HOST_ADDRESS_H_

#include <cstdint>

#include "platform/cgi.h"

constexpr int kHostAddressEntries = 16;

struct DdnsEntry {
  char hostname[128];
  char ip4[64];
  char provider[128];  // the DDNS configuration member the name came from
};

struct AddressEntry {
  int32_t version;  // 4 or 6 (the external address is always filed as 4)
  char ip_addr[128];
  char ip_type[64];  // "external_ip" or "local_ip"
  char interface[128];
};

struct HostAddressTable {
  char external_ip[257];      // IPv4 from the cloud client; its IPv6 when there is no IPv4
  char ext_ip_list[512];      // external IPv6; a copy of external_ip without one
  char myrelay_hn[257];       // "<name>.<domain>" of the vendor relay DDNS
  char ddns_hn_list[2048];    // configured DDNS host names joined by ","
  char local_ip[257];         // first local IPv4; "127.0.0.1" when none
  char host_ip[257];          // host of the current request, port removed
  char local_ip_list[257];    // local IPv4 addresses joined by ","
  char local_ipv6_list[1024]; // local IPv6 addresses joined by ","
  char link_url[257];         // a ready link prefix; discovery leaves it empty
  int32_t port;
  int32_t sslPort;
  int32_t extPort;
  int32_t extSslPort;
  int32_t host_port;    // the port that stood in host_ip, 0 when none
  int32_t ipv6Enable;   // 1 when local_ipv6_list is non-empty
  int32_t forced_kind;  // a HostKind that overrides host choice; discovery sets 0
  DdnsEntry ddns_list[kHostAddressEntries];
  AddressEntry ip_list[kHostAddressEntries];
};

// The process-wide table, zero-filled at start.
extern HostAddressTable g_host_address_table;

// Discovers the addresses afresh. request (may be null) supplies "timeout"
// and "retry" for the cloud client. With out, the whole table is copied
// there; without it, the host-address JSON document is printed on standard
// output. A source that fails leaves its fields empty. Always 0.
int discover_host_addresses(const CgiRequest* request, HostAddressTable* out);

// The process-wide table, discovered first when its host_ip is empty.
HostAddressTable& filled_host_address_table();

#endif  // SLT_ADDRESSING_HOST_ADDRESS_H_
