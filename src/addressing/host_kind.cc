#include "addressing/host_kind.h"

#include <strings.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "addressing/host_address.h"
#include "addressing/host_kind_internal.h"

namespace {

constexpr size_t kHostBound = 512;

// Kinds of items 1..8 of local_ip_list (6, 10 and 11 are skipped by design).
constexpr int kLocalIpv4Kinds[8] = {4, 5, 7, 8, 9, 12, 13, 14};

int leading_int(const std::string& s) {
  long v = strtol(s.c_str(), nullptr, 10);
  if (v > 0x7fffffffL) return 0x7fffffff;
  if (v < -0x7fffffffL - 1) return -0x7fffffff - 1;
  return static_cast<int>(v);
}

// The non-empty pieces of s between delimiters.
std::vector<std::string> pieces(const char* s, char delimiter) {
  std::vector<std::string> out;
  const char* p = s;
  while (*p != '\0') {
    while (*p == delimiter) ++p;
    if (*p == '\0') break;
    const char* end = strchr(p, delimiter);
    size_t n = end != nullptr ? static_cast<size_t>(end - p) : strlen(p);
    out.emplace_back(p, n);
    p += n;
  }
  return out;
}

// 1-based index of the first item of a comma list equal to text (any case),
// 0 when none is.
int item_index(const char* list, const char* text) {
  std::vector<std::string> items = pieces(list, ',');
  for (size_t i = 0; i < items.size(); ++i) {
    if (strcasecmp(items[i].c_str(), text) == 0) return static_cast<int>(i) + 1;
  }
  return 0;
}

std::string item_at(const char* list, int index) {
  std::vector<std::string> items = pieces(list, ',');
  if (index < 1 || static_cast<size_t>(index) > items.size()) return std::string();
  return items[static_cast<size_t>(index) - 1];
}

bool same(const char* entry, const char* text) {
  return entry[0] != '\0' && strcasecmp(entry, text) == 0;
}

bool inside(const char* list, const char* text) {
  return list[0] != '\0' && strcasestr(list, text) != nullptr;
}

int local_ipv4_kind(const char* list, const char* text) {
  int i = item_index(list, text);
  return i >= 1 && i <= 8 ? kLocalIpv4Kinds[i - 1] : kHostRequest;
}

int local_ipv6_kind(const char* list, const char* text) {
  int i = item_index(list, text);
  return i >= 1 && i <= 6 ? kHostLocalV6First + i - 1 : kHostRequest;
}

struct Candidate {
  const char* value;
  int kind;
};

// The first of local_ip, external_ip and host_ip that holds an address with
// a colon in it, for matching texts that carry one.
const Candidate* colon_candidate(const HostAddressTable& t, Candidate* slots) {
  slots[0] = {t.local_ip, kHostLocal};
  slots[1] = {t.external_ip, kHostExternal};
  slots[2] = {t.host_ip, kHostRequest};
  for (int i = 0; i < 3; ++i) {
    if (slots[i].value[0] != '\0' && pieces(slots[i].value, ':').size() >= 2) return &slots[i];
  }
  return nullptr;
}

void copy_host(char* out, size_t size, const std::string& host) {
  size_t bound = std::min(size, kHostBound);
  if (bound > 0) snprintf(out, bound, "%s", host.c_str());
}

}  // namespace

int stored_kind_number(const char* text) {
  if (text == nullptr || text[0] != ':') return -1;
  std::vector<std::string> p = pieces(text, ':');
  if (p.empty()) return -1;
  int n = leading_int(p[0]);
  return n >= 1 && n <= 21 ? n : -1;
}

int classify_host_in(const HostAddressTable& t, const char* text) {
  if (text == nullptr) return kHostRequest;
  if (strncmp(text, "http:/", 6) == 0 || strncmp(text, "https:/", 7) == 0) return kHostLinkPrefix;
  int stored = stored_kind_number(text);
  if (stored > 0) return stored;

  std::vector<std::string> parts = pieces(text, ':');
  Candidate slots[3];
  bool matched_by_colon_rule = false;
  int colon_kind = kHostRequest;
  if (text[0] == '[') {
    if (t.local_ipv6_list[0] != '\0') return local_ipv6_kind(t.local_ipv6_list, text);
    if (parts.size() >= 2) {
      if (const Candidate* c = colon_candidate(t, slots)) {
        const char* hay = c->value[0] == '[' ? text : text + 1;
        if (strstr(hay, c->value) != nullptr) {
          matched_by_colon_rule = true;
          colon_kind = c->kind;
        }
      }
    }
  } else if (parts.size() >= 2) {
    if (const Candidate* c = colon_candidate(t, slots)) {
      const char* hay = c->value[0] == '[' ? c->value + 1 : c->value;
      if (strstr(hay, text) != nullptr) {
        matched_by_colon_rule = true;
        colon_kind = c->kind;
      }
    }
  }
  if (matched_by_colon_rule) return colon_kind;

  if (parts.empty()) return kHostCustom;
  const char* host = parts[0].c_str();
  if (same(t.external_ip, host)) return kHostExternal;
  if (same(t.myrelay_hn, host)) return kHostRelay;
  if (inside(t.ddns_hn_list, host)) return kHostDdns;
  if (same(t.local_ip, host)) return kHostLocal;
  if (inside(t.local_ip_list, host)) return local_ipv4_kind(t.local_ip_list, text);
  return kHostRequest;
}

int resolve_link_host_in(const HostAddressTable& t, char* out, const char* text, size_t size) {
  if (out == nullptr) return kHostRequest;
  bool has_text = text != nullptr && text[0] != '\0';
  if (!has_text) {
    if (out[0] == '\0') {
      if (size > 0) snprintf(out, size, "%s", t.host_ip);
      return kHostRequest;
    }
    if (same(t.external_ip, out)) return kHostExternal;
    if (same(t.myrelay_hn, out)) return kHostRelay;
    if (inside(t.ddns_hn_list, out)) return kHostDdns;
    if (same(t.local_ip, out)) return kHostLocal;
    if (inside(t.local_ipv6_list, out)) return local_ipv6_kind(t.local_ipv6_list, out);
    if (inside(t.local_ip_list, out)) return local_ipv4_kind(t.local_ip_list, out);
    if (same(t.host_ip, out)) {
      copy_host(out, size, t.host_ip);
      if (char* colon = strrchr(out, ':')) *colon = '\0';
      return kHostRequest;
    }
    return kHostCustom;
  }

  std::vector<std::string> parts = pieces(text, ':');
  int n = parts.empty() ? 0 : leading_int(parts[0]);
  size_t len = strlen(text);

  if (text[0] == '[' && len > 3) {
    // "[v6]:port": the request host stands for it when a port follows.
    size_t skip = parts[0].size() + 1;
    if (skip <= len && pieces(text + skip, ':').size() >= 2) copy_host(out, size, t.host_ip);
    return n;
  }
  switch (n) {
    case kHostCustom:
      if (parts.size() >= 3) {
        copy_host(out, size, parts[1] + ":" + parts[2]);
      } else if (parts.size() == 2) {
        copy_host(out, size, parts[1]);
      } else {
        copy_host(out, size, t.host_ip);
      }
      break;
    case kHostRequest:
    case kHostRequestBare:
      copy_host(out, size, t.host_ip);
      break;
    case kHostBare:
    case kHostLinkPrefix:
      copy_host(out, size, len > 4 ? text + 4 : "");
      break;
    case kHostExternal:
      copy_host(out, size, t.external_ip);
      break;
    case kHostRelay:
      copy_host(out, size, t.myrelay_hn);
      break;
    case kHostDdns:
      copy_host(out, size, len > 3 ? text + 3 : t.ddns_hn_list);
      break;
    case kHostLocal:
      copy_host(out, size, t.local_ip);
      break;
    case 5: case 7: case 8: case 9: case 12: case 13: case 14: {
      int index = static_cast<int>(std::find(kLocalIpv4Kinds, kLocalIpv4Kinds + 8, n) -
                                   kLocalIpv4Kinds) + 1;
      std::string item = item_at(t.local_ip_list, index);
      copy_host(out, size, item.empty() ? std::string(t.local_ip) : item);
      break;
    }
    case 15: case 16: case 17: case 18: case 19: case 20: {
      std::string item = item_at(t.local_ipv6_list, n - 14);
      copy_host(out, size, item.empty() ? std::string(t.local_ip) : item);
      break;
    }
    default:
      copy_host(out, size, t.host_ip);
      return kHostCustom;
  }
  return n;
}

int classify_host(const char* text) {
  if (text != nullptr &&
      (strncmp(text, "http:/", 6) == 0 || strncmp(text, "https:/", 7) == 0 ||
       stored_kind_number(text) > 0)) {
    return classify_host_in(g_host_address_table, text);
  }
  return classify_host_in(filled_host_address_table(), text);
}

int resolve_link_host(char* out, const char* text, size_t size) {
  if (out == nullptr) return kHostRequest;
  return resolve_link_host_in(filled_host_address_table(), out, text, size);
}
