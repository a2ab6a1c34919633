// Readers of what the platform's programs print during discovery, each taking
// the captured text so that any text can be fed to them: the cloud client's
// address, the DDNS configuration, the interface list and the device status;
// also the port removal of the request host and the JSON document.
// None of them fails on malformed input beyond returning its failure code.
#ifndef SLT_ADDRESSING_DISCOVERY_PARSERS_H_
#define SLT_ADDRESSING_DISCOVERY_PARSERS_H_

#include <cstddef>
#include <string>

#include "addressing/host_address.h"

// Cloud client output: non-empty text is the address, copied whole into out
// (cut at limit) and 0 is returned; empty text gives -ESRCH, out untouched.
int cloud_client_answer(const char* text, size_t len, char* out, size_t limit);

// "/usr/sbin/nmcli config ddns getcfg" output: appends the enabled providers'
// host names to ddns_hn_list and files each name of them as a DDNS entry.
// 0 on success, -ESRCH for empty output, -1 when it is not a JSON object.
int parse_ddns_config(const char* text, HostAddressTable* table);

// Cuts the port off table->host_ip ("name:port", "[v6]:port", and "v6:port"
// only when it contains local_ip or external_ip) and sets host_port from the
// text after the last ":" (0 without one).
void remove_host_port(HostAddressTable* table);

// The network service's interface list: fills local_ip_list, local_ip and
// local_ipv6_list, and address entries from index `count` on (at most 16 in
// all). Returns the new entry count, or -1 (lists untouched) when the text is
// empty, not JSON or has no "data" object with a member.
int parse_interface_status(const char* text, HostAddressTable* table, int count);

// The cloud device tool's status; code and both statuses are -1 when the text
// is not a JSON object with an integer "code", statuses -1 for a non-zero code.
struct DeviceStatus {
  char device_name[256];
  char region[64];
  char qid[512];
  int code;
  int ddns_status;   // 1 when "Enable"
  int vlink_status;  // 1 when "Enable"
};
void parse_device_status(const char* text, DeviceStatus* status);

// The host-address JSON document (without the trailing newline).
std::string host_address_document(const HostAddressTable& table, const DeviceStatus& device);

#endif  // SLT_ADDRESSING_DISCOVERY_PARSERS_H_
