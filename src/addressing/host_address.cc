#include "addressing/host_address.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <string>

#include "addressing/discovery_parsers.h"
#include "platform/exec.h"
#include "platform/facts.h"
#include "platform/fs.h"
#include "platform/io_buffer.h"
#include "platform/vexaddns.h"

HostAddressTable g_host_address_table;

namespace {

const char kCloudClient[] = "/usr/bin/nimbo_cli";
const char kNetworkManager[] = "/usr/sbin/nmcli";
const char kNetworkService[] = "/usr/sbin/nsh";
const char kDeviceTool[] = "/usr/local/bin/nimbo_device_tool";

// Runs a program and hands its captured standard output to `use`; a program
// that is missing or prints nothing gives `use` an empty text.
template <typename Use>
auto run_captured(const char* const argv[], Use use) -> decltype(use("", 0)) {
  HsIoGuard io;
  if (io.get() == nullptr) return use("", 0);
  _hs_secure_execv(argv[0], argv, io.get());
  size_t len = 0;
  const char* text = hs_io_read(io.get(), &len);
  return use(text != nullptr ? text : "", text != nullptr ? len : 0);
}

int parameter_in_range(const CgiRequest* request, const char* name, int low, int high, int def) {
  const char* value = CGI_Find_Parameter(request, name);
  if (value == nullptr || value[0] == '\0') return def;
  long v = strtol(value, nullptr, 10);
  return v >= low && v <= high ? static_cast<int>(v) : def;
}

// family 0 asks for IPv4, 1 for IPv6. 0, or -ESRCH with out untouched.
int query_external_ip(int family, int timeout, int retry, char* out, size_t limit) {
  if (timeout < 1) timeout = 5;
  if (retry < 0) retry = 0;
  char timeout_text[16];
  char retry_text[16];
  snprintf(timeout_text, sizeof timeout_text, "%d", timeout);
  snprintf(retry_text, sizeof retry_text, "%d", retry);
  // The client reads its cache period from the environment variable named by
  // the argument after "-c"; the name itself is passed.
  const char* argv[] = {kCloudClient, "get_external_ip", "-x", timeout_text, "-r", retry_text,
                        "-c", "KDX_NIMBO_CLI_CACHE_VALID_PERIOD", family == 1 ? "-6" : nullptr,
                        nullptr};
  return run_captured(argv, [&](const char* text, size_t len) {
    return cloud_client_answer(text, len, out, limit);
  });
}

void set_external_entry(HostAddressTable* t) {
  AddressEntry& e = t->ip_list[0];
  memset(&e, 0, sizeof e);
  e.version = 4;  // also for an IPv6 external address
  snprintf(e.ip_addr, sizeof e.ip_addr, "%s", t->external_ip);
  snprintf(e.ip_type, sizeof e.ip_type, "%s", "external_ip");
}

int discover_external(HostAddressTable* t, int timeout, int retry) {
  if (query_external_ip(0, timeout, retry, t->external_ip, sizeof t->external_ip) == 0) {
    snprintf(t->ext_ip_list, sizeof t->ext_ip_list, "%s", t->external_ip);
    set_external_entry(t);
    query_external_ip(1, timeout, retry, t->ext_ip_list, sizeof t->ext_ip_list);
    return 1;
  }
  t->external_ip[0] = '\0';
  if (query_external_ip(1, timeout, retry, t->external_ip, sizeof t->external_ip) == 0) {
    snprintf(t->ext_ip_list, sizeof t->ext_ip_list, "%s", t->external_ip);
    set_external_entry(t);
    return 1;
  }
  t->external_ip[0] = '\0';
  return 0;
}

void discover_relay_name(HostAddressTable* t) {
  char name[257] = "";
  char domain[257] = "";
  vexaddns_get_dname(name, sizeof name, domain, sizeof domain);
  name[sizeof name - 1] = '\0';
  domain[sizeof domain - 1] = '\0';
  if (vexaddns_enabled() != 0 && strlen(name) > 2) {
    snprintf(t->myrelay_hn, sizeof t->myrelay_hn, "%s.%s", name, domain);
  }
}

void discover_ddns(HostAddressTable* t) {
  const char* argv[] = {kNetworkManager, "config", "ddns", "getcfg", nullptr};
  int r = run_captured(argv, [&](const char* text, size_t len) {
    return len == 0 ? -ESRCH : parse_ddns_config(text, t);
  });
  if (r != 0) t->ddns_hn_list[0] = '\0';
}

int discover_interfaces(HostAddressTable* t, int count) {
  const char* argv[] = {kNetworkService, "NetworkService.api.get_available_interface_status_with_eth",
                        "number_option=0x1", nullptr};
  return run_captured(argv, [&](const char* text, size_t len) {
    return len == 0 ? -1 : parse_interface_status(text, t, count);
  });
}

void read_device_status(DeviceStatus* status) {
  if (!fs_exists(kDeviceTool)) {
    parse_device_status("", status);
    return;
  }
  const char* argv[] = {kDeviceTool, "get_device_status", nullptr};
  run_captured(argv, [&](const char* text, size_t) {
    parse_device_status(text, status);
    return 0;
  });
}

}  // namespace

int discover_host_addresses(const CgiRequest* request, HostAddressTable* out) {
  std::unique_ptr<HostAddressTable> table(new (std::nothrow) HostAddressTable());
  if (!table) return 0;
  HostAddressTable* t = table.get();
  try {
    int timeout = 5;
    int retry = 1;
    if (request != nullptr) {
      timeout = parameter_in_range(request, "timeout", 1, 60, 5);
      retry = parameter_in_range(request, "retry", 0, 5, 1);
    }
    discover_relay_name(t);
    int count = discover_external(t, timeout, retry);
    discover_ddns(t);

    HttpInfo info;
    CGI_Get_Http_Info(&info);
    snprintf(t->host_ip, sizeof t->host_ip, "%s", info.host);
    // Runs before the interfaces are read, so only external_ip can match here.
    remove_host_port(t);

    discover_interfaces(t, count);
    t->ipv6Enable = t->local_ipv6_list[0] != '\0' ? 1 : 0;
    if (t->local_ip[0] == '\0') snprintf(t->local_ip, sizeof t->local_ip, "%s", "127.0.0.1");
    t->port = Get_Web_Access_Port();
    t->sslPort = Get_Web_Access_SSL_Port();
    t->extPort = Get_Service_External_Port(0);
    t->extSslPort = Get_Service_External_Port(1);

    if (out != nullptr) {
      *out = *t;
      return 0;
    }
    DeviceStatus device;
    read_device_status(&device);
    std::string doc = host_address_document(*t, device);
    fputs(doc.c_str(), stdout);
    fputc('\n', stdout);
    fflush(stdout);
  } catch (const std::bad_alloc&) {
    // Discovery never fails as a whole; what was gathered is dropped.
  }
  return 0;
}

HostAddressTable& filled_host_address_table() {
  if (g_host_address_table.host_ip[0] == '\0') {
    discover_host_addresses(nullptr, &g_host_address_table);
  }
  return g_host_address_table;
}
