#include "addressing/share_link_url.h"

#include <cctype>
#include <cstdio>
#include <cstring>
#include <new>

#include "addressing/host_address.h"
#include "addressing/host_kind.h"
#include "addressing/host_kind_internal.h"

const char* const kRelayDomainSuffixes[kRelayDomainSuffixCount] = {
    ".vexarelay.example", ".vexalink.example", ".vexaddns.example", ".nimbo-dyn.example",
    ".nimbo.example",
};

namespace {

constexpr size_t kHostBufferSize = 512;

bool ends_with_relay_domain(const char* host) {
  size_t len = strlen(host);
  for (const char* suffix : kRelayDomainSuffixes) {
    size_t n = strlen(suffix);
    if (len >= n && strcmp(host + len - n, suffix) == 0) return true;
  }
  return false;
}

struct Composer {
  int ssl;
  const char* ssid;
  const char* fid;
  char* out_url;
  size_t url_size;
  char* out_port;
  size_t port_size;

  void print(const char* host, const char* port) const {
    format_share_url(out_url, url_size, ssl, host, port, ssid, fid);
  }
  void print_whole(const char* link) const {
    if (out_url != nullptr && url_size > 0) snprintf(out_url, url_size, "%s", link);
  }
  void set_port(const char* port) const {
    if (out_port != nullptr && port_size > 0) snprintf(out_port, port_size, "%s", port);
  }
};

// A caller that forces a kind takes the host text as it stands.
void compose_forced(const Composer& c, int kind, const char* host_text, const char* ext) {
  char buffer[kHostBufferSize];
  snprintf(buffer, sizeof buffer, "%s", host_text);
  switch (kind) {
    case kHostBare:
      c.print(buffer, nullptr);
      c.set_port(ext);
      return;
    case kHostLinkPrefix:
      c.print_whole(buffer);
      c.set_port(ext);
      return;
    case kHostRequest:
    case kHostRequestBare:
      if (buffer[0] != '\0') {
        c.print(buffer, nullptr);
        return;
      }
      break;
    default:
      break;
  }
  c.print(host_text, c.out_port);
}

void compose(const Composer& c, const char* host_text) {
  const HostAddressTable& current = g_host_address_table;
  char ext[8];
  snprintf(ext, sizeof ext, "%d", c.ssl == 1 ? current.extSslPort : current.extPort);
  if (host_text != nullptr && current.forced_kind >= 1) {
    compose_forced(c, current.forced_kind, host_text, ext);
    return;
  }
  if (host_text == nullptr && current.forced_kind != 0) return;

  char buffer[kHostBufferSize] = "";
  if (stored_kind_number(host_text) == kHostRequestBare && strlen(host_text) >= 4) {
    snprintf(buffer, sizeof buffer, "%s", host_text + 4);
    if (buffer[0] != '\0') {
      c.print(buffer, nullptr);
    } else {
      c.print(host_text, c.out_port);
    }
    return;
  }

  const HostAddressTable& t = filled_host_address_table();
  char ext_ssl_port[8], ssl_port[8], ext_port[8], port[8];
  snprintf(ext_ssl_port, sizeof ext_ssl_port, "%d", t.extSslPort);
  snprintf(ssl_port, sizeof ssl_port, "%d", t.sslPort);
  snprintf(ext_port, sizeof ext_port, "%d", t.extPort);
  snprintf(port, sizeof port, "%d", t.port);
  const char* external = c.ssl == 1 ? ext_ssl_port : ext_port;

  int kind;
  if (host_text != nullptr && host_text[0] != ':') {
    kind = classify_host_in(t, host_text);
    snprintf(buffer, sizeof buffer, "%s", host_text);
  } else {
    kind = resolve_link_host_in(t, buffer, host_text, sizeof buffer);
  }
  if (buffer[0] == '\0') {
    // Nothing came of the stored host: the request host, taken as it stands.
    snprintf(buffer, sizeof buffer, "%s", t.host_ip);
    kind = kHostCustom;
  }

  switch (kind) {
    case kHostExternal:
    case kHostRelay:
    case kHostDdns:
      c.print(buffer, external);
      c.set_port(external);
      return;
    case kHostLocal:
    case kHostLocal2:
    case kHostLocal3:
    case kHostLocal4:
    case kHostLocal5:
    case kHostLocal6:
    case kHostLocal7:
    case kHostLocal8:
      if (c.ssl == 1) {
        c.print(buffer, t.sslPort == 443 ? nullptr : ssl_port);
        c.set_port(ssl_port);
      } else {
        c.print(buffer, port);
        c.set_port(port);
      }
      return;
    case kHostRequest:
      c.print(buffer, strstr(buffer, ext_port) != nullptr ? nullptr : external);
      c.set_port(external);
      return;
    case kHostBare:
      c.print(buffer, nullptr);
      c.set_port(external);
      return;
    case kHostLinkPrefix:
      c.print_whole(buffer);
      c.set_port(external);
      return;
    default:
      for (char* p = buffer; *p != '\0'; ++p) {
        *p = static_cast<char>(tolower(static_cast<unsigned char>(*p)));
      }
      if (ends_with_relay_domain(buffer)) {
        c.print(buffer, external);
      } else {
        c.print(buffer, strstr(buffer, ext_port) != nullptr ? nullptr : external);
      }
      c.set_port(external);
      return;
  }
}

}  // namespace

void format_share_url(char* out, size_t size, int ssl, const char* host, const char* port,
                      const char* ssid, const char* fid) {
  if (out == nullptr || size == 0 || host == nullptr || ssid == nullptr) return;
  const char* scheme = ssl == 1 ? "https://" : "http://";
  bool has_port = port != nullptr && port[0] != '\0';
  bool has_fid = fid != nullptr && fid[0] != '\0';
  if (has_port && has_fid) {
    snprintf(out, size, "%s%s:%s%s%s%s&fid=%s", scheme, host, port, "/share.cgi?", "ssid=", ssid,
             fid);
  } else if (has_port) {
    snprintf(out, size, "%s%s:%s%s%s%s", scheme, host, port, "/share.cgi?", "ssid=", ssid);
  } else if (has_fid) {
    snprintf(out, size, "%s%s%s%s%s&fid=%s", scheme, host, "/share.cgi?", "ssid=", ssid, fid);
  } else {
    snprintf(out, size, "%s%s%s%s%s", scheme, host, "/share.cgi?", "ssid=", ssid);
  }
}

int compose_share_link(int ssl, const char* host_text, const char* ssid, const char* fid,
                       char* out_url, size_t url_size, char* out_port, size_t port_size) {
  Composer c{ssl, ssid, fid, out_url, url_size, out_port, port_size};
  try {
    compose(c, host_text);
  } catch (const std::bad_alloc&) {
    // The link stays as the caller zeroed it.
  }
  return 0;
}
