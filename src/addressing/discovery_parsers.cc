#include "addressing/discovery_parsers.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "addressing/json_guard.h"

namespace {

// An element of an address array that lacks its key is fetched again at the
// same index (the scan never passes over it). Fetching is deterministic, so a
// few attempts settle it; after them the array's scan ends instead of looping.
constexpr int kRefetchLimit = 3;

int leading_int(const char* s) {
  long v = strtol(s, nullptr, 10);
  if (v > 0x7fffffffL) return 0x7fffffff;
  if (v < -0x7fffffffL - 1) return -0x7fffffff - 1;
  return static_cast<int>(v);
}

const char* string_member(json_object* obj, const char* key) {
  json_object* v = nullptr;
  if (!json_object_object_get_ex(obj, key, &v) || !json_object_is_type(v, json_type_string)) {
    return nullptr;
  }
  return json_object_get_string(v);
}

json_object* typed_member(json_object* obj, const char* key, json_type type) {
  json_object* v = nullptr;
  if (!json_object_object_get_ex(obj, key, &v) || !json_object_is_type(v, type)) return nullptr;
  return v;
}

void append_item(char* list, size_t size, const char* item) {
  size_t len = strlen(list);
  if (len + 1 < size) snprintf(list + len, size - len, "%s,", item);
}

// One address array of an interface, appended to the comma list.
void gather_addresses(json_object* iface, const char* array_key, const char* key, char* list,
                      size_t size) {
  json_object* array = typed_member(iface, array_key, json_type_array);
  if (array == nullptr) return;
  size_t n = json_object_array_length(array);
  int refetches = 0;
  for (size_t i = 0; i < n;) {
    json_object* element = json_object_array_get_idx(array, i);
    if (element == nullptr) break;
    const char* value = string_member(element, key);
    if (value == nullptr) {
      if (++refetches > kRefetchLimit) break;
      continue;
    }
    refetches = 0;
    char item[256];
    snprintf(item, sizeof item, "%s", value);
    append_item(list, size, item);
    ++i;
  }
}

int add_address_entries(json_object* iface, const char* array_key, const char* key, int version,
                        const char* name, HostAddressTable* t, int count) {
  json_object* array = typed_member(iface, array_key, json_type_array);
  if (array == nullptr) return count;
  size_t n = json_object_array_length(array);
  for (size_t i = 0; i < n; ++i) {
    if (count > kHostAddressEntries - 1) break;
    json_object* element = json_object_array_get_idx(array, i);
    if (element == nullptr || !json_object_is_type(element, json_type_object)) continue;
    AddressEntry& e = t->ip_list[count];
    memset(&e, 0, sizeof e);
    e.version = version;
    const char* value = string_member(element, key);
    snprintf(e.ip_addr, sizeof e.ip_addr, "%s", value != nullptr ? value : "");
    snprintf(e.ip_type, sizeof e.ip_type, "%s", "local_ip");
    snprintf(e.interface, 32, "%s", name);
    ++count;
  }
  return count;
}

bool looks_like_json_object(const char* text) {
  int i = 0;
  while (i < 9 && (text[i] == ' ' || text[i] == '\t')) ++i;
  return text[i] == '{';
}

}  // namespace

int cloud_client_answer(const char* text, size_t len, char* out, size_t limit) {
  if (text == nullptr || len == 0) return -ESRCH;
  if (out != nullptr && limit > 0) snprintf(out, limit, "%s", text);
  return 0;
}

int parse_ddns_config(const char* text, HostAddressTable* t) {
  if (text == nullptr || text[0] == '\0') return -ESRCH;
  JsonGuard root(json_tokener_parse(text));
  if (!root || !json_object_is_type(root.get(), json_type_object)) return -1;

  char ip4[64] = "";  // carried over to the next provider that has none
  int entries = 0;
  char* list = t->ddns_hn_list;
  const size_t list_size = sizeof t->ddns_hn_list;
  json_object_object_foreach(root.get(), provider, config) {
    if (config == nullptr || !json_object_is_type(config, json_type_object)) continue;
    const char* enable = string_member(config, "enable");
    if (enable == nullptr || enable[0] == '0') continue;
    const char* address = string_member(config, "ip4");
    if (address != nullptr && address[0] != '\0') snprintf(ip4, sizeof ip4, "%s", address);
    const char* hostname = string_member(config, "hostname");
    if (hostname == nullptr) continue;

    size_t list_len = strlen(list);
    size_t name_len = strlen(hostname);
    if (list_len == 0) {
      if (name_len > list_size) break;
      snprintf(list, list_size, "%s", hostname);
    } else {
      if (list_len + name_len + 1 > list_size) break;
      snprintf(list + list_len, list_size - list_len, ",%s", hostname);
    }

    std::string names(hostname);
    char* save = nullptr;
    for (char* name = strtok_r(&names[0], ", ", &save); name != nullptr;
         name = strtok_r(nullptr, ", ", &save)) {
      if (entries >= kHostAddressEntries) break;
      DdnsEntry& e = t->ddns_list[entries++];
      snprintf(e.hostname, sizeof e.hostname, "%s", name);
      snprintf(e.ip4, sizeof e.ip4, "%s", ip4);
      snprintf(e.provider, sizeof e.provider, "%s", provider);
    }
  }
  return 0;
}

void remove_host_port(HostAddressTable* t) {
  char* host = t->host_ip;
  char* last = strrchr(host, ':');
  t->host_port = last != nullptr ? leading_int(last + 1) : 0;
  if (last == nullptr) return;
  size_t colons = 0;
  for (const char* p = host; *p != '\0'; ++p) colons += *p == ':';
  if (colons == 1 || (last > host && last[-1] == ']')) {
    *last = '\0';
    return;
  }
  // A bare IPv6 address ends in its own last group, which is no port, unless
  // it carries one of our known addresses with something behind it.
  size_t len = strlen(host);
  bool cut = (t->local_ip[0] != '\0' && strstr(host, t->local_ip) != nullptr &&
              len != strlen(t->local_ip)) ||
             (t->external_ip[0] != '\0' && strstr(host, t->external_ip) != nullptr &&
              len != strlen(t->external_ip));
  if (cut) *last = '\0';
}

int parse_interface_status(const char* text, HostAddressTable* t, int count) {
  if (text == nullptr || text[0] == '\0' || !looks_like_json_object(text)) return -1;
  JsonGuard root(json_tokener_parse(text));
  if (!root) return -1;
  json_object* data = typed_member(root.get(), "data", json_type_object);
  if (data == nullptr || json_object_object_length(data) < 1) return -1;

  char v4[256] = "";
  char v6[511] = "";
  json_object_object_foreach(data, name, iface) {
    (void)name;
    if (iface == nullptr || !json_object_is_type(iface, json_type_object)) continue;
    gather_addresses(iface, "IPv4", "ip", v4, sizeof v4);
    gather_addresses(iface, "IPv6", "ipv6_address", v6, sizeof v6);
  }
  for (char* list : {v4, v6}) {
    size_t len = strlen(list);
    if (len > 0 && list[len - 1] == ',') list[len - 1] = '\0';
  }
  snprintf(t->local_ip_list, sizeof t->local_ip_list, "%s", v4);
  snprintf(t->local_ip, sizeof t->local_ip, "%.*s", static_cast<int>(strcspn(v4, ",")), v4);
  snprintf(t->local_ipv6_list, sizeof t->local_ipv6_list, "%s", v6);

  if (count < 0) count = 0;
  json_object_object_foreach(data, name2, iface2) {
    if (iface2 == nullptr) break;
    count = add_address_entries(iface2, "IPv4", "ip", 4, name2, t, count);
    count = add_address_entries(iface2, "IPv6", "ipv6_address", 6, name2, t, count);
  }
  return count;
}

void parse_device_status(const char* text, DeviceStatus* d) {
  memset(d, 0, sizeof *d);
  d->code = -1;
  d->ddns_status = -1;
  d->vlink_status = -1;
  if (text == nullptr || text[0] == '\0') return;
  JsonGuard root(json_tokener_parse(text));
  if (!root || !json_object_is_type(root.get(), json_type_object)) return;
  json_object* code = typed_member(root.get(), "code", json_type_int);
  if (code == nullptr) return;
  d->code = json_object_get_int(code);
  if (d->code != 0) return;
  d->ddns_status = 0;
  d->vlink_status = 0;
  json_object* result = typed_member(root.get(), "result", json_type_object);
  if (result == nullptr) return;
  const char* v = nullptr;
  if ((v = string_member(result, "device_name")) != nullptr) {
    snprintf(d->device_name, sizeof d->device_name, "%s", v);
  }
  if ((v = string_member(result, "region")) != nullptr) snprintf(d->region, sizeof d->region, "%s", v);
  if ((v = string_member(result, "qid")) != nullptr) snprintf(d->qid, sizeof d->qid, "%s", v);
  v = string_member(result, "ddns_status");
  d->ddns_status = v != nullptr && strcmp(v, "Enable") == 0 ? 1 : 0;
  v = string_member(result, "vlink_status");
  d->vlink_status = v != nullptr && strcmp(v, "Enable") == 0 ? 1 : 0;
}

std::string host_address_document(const HostAddressTable& t, const DeviceStatus& d) {
  JsonGuard doc(json_object_new_object());
  if (!doc) return std::string();
  json_object* o = doc.get();
  auto add_string = [](json_object* obj, const char* key, const char* value) {
    json_object_object_add(obj, key, json_object_new_string(value));
  };
  auto add_int = [](json_object* obj, const char* key, int value) {
    json_object_object_add(obj, key, json_object_new_int(value));
  };
  char first_ddns[sizeof t.ddns_hn_list];
  snprintf(first_ddns, sizeof first_ddns, "%.*s", static_cast<int>(strcspn(t.ddns_hn_list, ",")),
           t.ddns_hn_list);

  add_int(o, "status", 1);
  add_string(o, "myrelay_hn", t.myrelay_hn);
  add_string(o, "ddns_hn_list", t.ddns_hn_list);
  add_string(o, "ddns_hn", first_ddns);
  add_string(o, "external_ip", t.external_ip);
  add_string(o, "ext_ip_list", t.ext_ip_list);
  if (t.link_url[0] != '\0') add_string(o, "link_url", t.link_url);
  add_string(o, "local_ip", t.local_ip);
  add_string(o, "host_ip", t.host_ip);
  add_string(o, "local_ip_list", t.local_ip_list);
  add_int(o, "port", t.port);
  add_int(o, "sslPort", t.sslPort);
  add_int(o, "extPort", t.extPort);
  add_int(o, "extSslPort", t.extSslPort);
  add_int(o, "ipv6Enable", t.ipv6Enable);
  if (t.ipv6Enable == 1) add_string(o, "local_ipv6_list", t.local_ipv6_list);

  json_object* data = json_object_new_object();
  json_object_object_add(o, "data", data);
  add_string(data, "qid", d.qid);
  add_int(data, "code", d.code);
  add_string(data, "region", d.region);
  add_int(data, "mynimbo_ddns_status", d.ddns_status);
  add_string(data, "mynimbo_device_name", d.device_name);
  add_int(data, "mynimbo_link_status", d.vlink_status);

  json_object* ddns = json_object_new_array();
  json_object_object_add(data, "ddns_list", ddns);
  for (const DdnsEntry& e : t.ddns_list) {
    if (e.hostname[0] == '\0') break;
    json_object* item = json_object_new_object();
    add_string(item, "ip4", e.ip4);
    add_string(item, "hostname", e.hostname);
    add_string(item, "provider", e.provider);
    json_object_array_add(ddns, item);
  }
  json_object* ips = json_object_new_array();
  json_object_object_add(data, "ip_list", ips);
  for (const AddressEntry& e : t.ip_list) {
    if (e.ip_addr[0] == '\0') break;
    json_object* item = json_object_new_object();
    add_string(item, "ip_addr", e.ip_addr);
    add_string(item, "ip_type", e.ip_type);
    add_int(item, "version", e.version);
    add_string(item, "interface", e.interface);
    json_object_array_add(ips, item);
  }
  const char* text = json_object_to_json_string(o);
  return text != nullptr ? std::string(text) : std::string();
}
