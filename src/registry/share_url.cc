#include "registry/share_url.h"

#include <cstdio>
#include <cstring>

#include "platform/profile.h"

namespace {

bool g_port_known = false;
char g_port[10];

const char* secure_port() {
  if (!g_port_known) {
    GetProfileString("Stunnel", "Port", "443", g_port, sizeof g_port);
    g_port_known = true;
  }
  return g_port;
}

void overlay(char* out, size_t size, const std::string& value) {
  if (out == nullptr || size == 0) return;
  size_t n = value.size() < size - 1 ? value.size() : size - 1;
  memcpy(out, value.data(), n);
}

}  // namespace

int split_share_url(const char* url, ShareUrlParts* parts) {
  if (url == nullptr || url[0] == '\0' || parts == nullptr) return -1;
  *parts = ShareUrlParts();
  size_t url_len = strlen(url);
  char rest[512];
  char separator = ':';
  if (strstr(url, "https") != nullptr) {
    snprintf(rest, sizeof rest, "%s", url_len > 8 ? url + 8 : "");
    if (strcmp(secure_port(), "443") == 0) separator = '/';
  } else {
    snprintf(rest, sizeof rest, "%s", url_len > 7 ? url + 7 : "");
  }
  const char* end = strchr(rest, separator);
  if (end != nullptr) {
    parts->has_host = true;
    parts->host.assign(rest, static_cast<size_t>(end - rest));
  }
  const char* id = strstr(url, "ssid=");
  if (id != nullptr) {
    parts->has_ssid = true;
    parts->ssid.assign(id + 5);
  }
  return 0;
}

void apply_share_url(const ShareUrlParts& parts, char* out_host, size_t host_size, char* out_ssid,
                     size_t ssid_size) {
  if (parts.has_host) overlay(out_host, host_size, parts.host);
  if (parts.has_ssid) overlay(out_ssid, ssid_size, parts.ssid);
}

int parse_share_url(const char* url, char* out_host, size_t host_size, char* out_ssid,
                    size_t ssid_size) {
  ShareUrlParts parts;
  if (split_share_url(url, &parts) != 0) return -1;
  apply_share_url(parts, out_host, host_size, out_ssid, ssid_size);
  return 0;
}

void share_url_forget_port() { g_port_known = false; }
