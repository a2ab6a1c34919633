// Host kinds and link composition on arbitrary stored host texts, against a
// fixed, filled HostAddressTable (host_ip set, so no discovery program runs):
// classify_host stays within the kinds, resolve_link_host and
// compose_share_link never write past their outputs and always leave them
// terminated, and a link written in full carries its scheme and ends with
// "ssid=<id>" (and "&fid=<fid>") unless the stored host is a whole link.
//
// Input: byte 0 ssl, byte 1 forced kind, bytes 2-4 the sizes of the link,
// port and resolved host outputs; then host NUL ssid NUL fid.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "addressing/host_address.h"
#include "addressing/host_kind.h"
#include "addressing/share_link_url.h"
#include "fuzz_support.h"

namespace {

void check(bool ok) {
  if (!ok) abort();
}

template <size_t N>
void set(char (&field)[N], const char* value) {
  snprintf(field, N, "%s", value);
}

void fill_table(int forced_kind) {
  HostAddressTable& t = g_host_address_table;
  memset(&t, 0, sizeof t);
  set(t.external_ip, "203.0.113.7");
  set(t.ext_ip_list, "2001:db8::7");
  set(t.myrelay_hn, "box.vexarelay.example");
  set(t.ddns_hn_list, "home.dyn.example,alt.dyn.example");
  set(t.local_ip, "192.168.1.10");
  set(t.local_ip_list, "192.168.1.10,192.168.1.11,192.168.1.12,192.168.1.13,192.168.1.14,192.168.1.15,"
                       "192.168.1.16,192.168.1.17,192.168.1.18");
  set(t.local_ipv6_list, forced_kind % 2 ? "fe80::1,[fe80::2]" : "");
  set(t.host_ip, forced_kind % 3 ? "nas.local" : "[fe80::9]");
  t.port = 8080;
  t.sslPort = forced_kind % 5 ? 443 : 8443;
  t.extPort = 18080;
  t.extSslPort = 10443;
  t.forced_kind = forced_kind;
}

size_t size_from(uint8_t b) { return b == 0xff ? 4096 : b; }

bool ends_with(const std::string& s, const std::string& tail) {
  return s.size() >= tail.size() && s.compare(s.size() - tail.size(), tail.size(), tail) == 0;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 5) return 0;
  const int ssl = data[0] % 3;
  // Mostly no forced kind: that is what stored hosts go through.
  const int forced = data[1] < 200 ? 0 : data[1] % 23;
  const size_t url_size = size_from(data[2]);
  const size_t port_size = size_from(data[3]) % 16;
  const size_t out_size = size_from(data[4]);
  std::string host, rest;
  fuzz_split(data + 5, size - 5, &host, &rest);
  std::string ssid = rest, fid;
  {
    const char* raw = reinterpret_cast<const char*>(data + 5);
    const size_t n = size - 5;
    const void* first = memchr(raw, '\0', n);
    if (first != nullptr) {
      size_t off = static_cast<size_t>(static_cast<const char*>(first) - raw) + 1;
      const void* second = memchr(raw + off, '\0', n - off);
      if (second != nullptr) {
        size_t f = static_cast<size_t>(static_cast<const char*>(second) - raw) + 1;
        fid.assign(raw + f, strnlen(raw + f, n - f));
      }
    }
  }
  fill_table(forced);

  const int classified = classify_host(host.c_str());
  check(classified >= 0 && classified <= 21);

  // resolve_link_host: out starts as the host text when none is given.
  const bool no_text = host.size() > 0 && host[0] == '!';
  std::vector<char> out(out_size == 0 ? 1 : out_size, '\0');
  if (out_size > 0) snprintf(out.data(), out_size, "%s", no_text ? host.c_str() + 1 : "");
  const int resolved = resolve_link_host(out_size ? out.data() : nullptr, no_text ? nullptr : host.c_str(), out_size);
  check(resolved >= 0 && resolved <= 21);
  if (out_size > 0) check(memchr(out.data(), '\0', out_size) != nullptr);

  // compose_share_link into zeroed outputs.
  std::vector<char> url(url_size == 0 ? 1 : url_size, '\0');
  std::vector<char> port(port_size == 0 ? 1 : port_size, '\0');
  check(compose_share_link(ssl, host.c_str(), ssid.c_str(), fid.c_str(), url_size ? url.data() : nullptr,
                           url_size, port_size ? port.data() : nullptr, port_size) == 0);
  if (url_size > 0) check(memchr(url.data(), '\0', url_size) != nullptr);
  if (port_size > 0) check(memchr(port.data(), '\0', port_size) != nullptr);
  const std::string link(url.data());
  // A stored host that is a whole link prefix is printed as it stands.
  const bool whole_link =
      forced == kHostLinkPrefix ||
      (forced == 0 && (classified == kHostLinkPrefix || (host[0] == ':' && !no_text && resolved == kHostLinkPrefix)));
  if (url_size == 4096 && !whole_link && link.size() + 1 < url_size) {
    check(link.compare(0, ssl == 1 ? 8 : 7, ssl == 1 ? "https://" : "http://") == 0);
    check(ends_with(link, "/share.cgi?ssid=" + ssid + (fid.empty() ? "" : "&fid=" + fid)));
  }
  return 0;
}
