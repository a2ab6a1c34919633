// The discovery parsers on arbitrary program output: the cloud client's
// answer, the DDNS configuration, the request host's port removal, the
// interface list and the device status, one after the other into one table,
// then the address document made from it. Every text field of the table must
// stay terminated within its size (a field overrun inside the table is
// invisible to ASan), the entry count within 16, and the document must parse
// back as a JSON object.
#include <json-c/json.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "addressing/discovery_parsers.h"
#include "addressing/host_address.h"

namespace {

void check(bool ok) {
  if (!ok) abort();
}

template <size_t N>
void check_terminated(const char (&field)[N]) {
  check(memchr(field, '\0', N) != nullptr);
}

void check_table(const HostAddressTable& t) {
  check_terminated(t.external_ip);
  check_terminated(t.ext_ip_list);
  check_terminated(t.myrelay_hn);
  check_terminated(t.ddns_hn_list);
  check_terminated(t.local_ip);
  check_terminated(t.host_ip);
  check_terminated(t.local_ip_list);
  check_terminated(t.local_ipv6_list);
  check_terminated(t.link_url);
  for (const DdnsEntry& e : t.ddns_list) {
    check_terminated(e.hostname);
    check_terminated(e.ip4);
    check_terminated(e.provider);
  }
  for (const AddressEntry& e : t.ip_list) {
    check_terminated(e.ip_addr);
    check_terminated(e.ip_type);
    check_terminated(e.interface);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  // The programs' output reaches the parsers as a C text.
  const std::string text(reinterpret_cast<const char*>(data), strnlen(reinterpret_cast<const char*>(data), size));
  const uint8_t knob = size > 0 ? data[0] : 0;

  // Cloud client: the answer is the text, cut to the field.
  const size_t limit = knob % 64;
  std::vector<char> answer(limit == 0 ? 1 : limit, '\x5a');
  int rc = cloud_client_answer(text.c_str(), text.size(), limit ? answer.data() : nullptr, limit);
  check(rc == (text.empty() ? -ESRCH : 0));
  if (rc == 0 && limit > 0) {
    size_t n = text.size() < limit - 1 ? text.size() : limit - 1;
    check(memcmp(answer.data(), text.data(), n) == 0 && answer[n] == '\0');
  }

  std::unique_ptr<HostAddressTable> t(new HostAddressTable());
  memset(t.get(), 0, sizeof *t);
  rc = parse_ddns_config(text.c_str(), t.get());
  check(rc == 0 || rc == -1 || rc == -ESRCH);
  check_table(*t);

  snprintf(t->local_ip, sizeof t->local_ip, "%s", "192.168.1.10");
  snprintf(t->external_ip, sizeof t->external_ip, "%s", "2001:db8::7");
  snprintf(t->host_ip, sizeof t->host_ip, "%s", text.c_str());
  const size_t host_len = strlen(t->host_ip);
  remove_host_port(t.get());
  check_table(*t);
  check(strlen(t->host_ip) <= host_len);

  const int start = knob % (kHostAddressEntries + 1);
  int count = parse_interface_status(text.c_str(), t.get(), start);
  check(count == -1 || (count >= start && count <= kHostAddressEntries));
  check_table(*t);

  DeviceStatus status;
  memset(&status, 0, sizeof status);
  parse_device_status(text.c_str(), &status);
  check(memchr(status.device_name, '\0', sizeof status.device_name) != nullptr);
  check(memchr(status.region, '\0', sizeof status.region) != nullptr);
  check(memchr(status.qid, '\0', sizeof status.qid) != nullptr);

  const std::string doc = host_address_document(*t, status);
  json_object* parsed = json_tokener_parse(doc.c_str());
  check(parsed != nullptr && json_object_is_type(parsed, json_type_object));
  json_object_put(parsed);
  return 0;
}
