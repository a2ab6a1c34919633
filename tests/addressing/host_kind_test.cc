#include <gtest/gtest.h>
#include <cstring>
#include <string>
#include "addressing/host_address.h"
#include "addressing/host_kind.h"
#include "addressing/share_link_url.h"
#include "platform/cgi.h"
#include "support/appliance.h"

namespace {
template <size_t N>
void set(char (&field)[N], const char* value) { snprintf(field, N, "%s", value); }

class HostTable : public ::testing::Test {
 protected:
  HostTable() {
    HostAddressTable& t = g_host_address_table;
    memset(&t, 0, sizeof t);
    set(t.external_ip, "203.0.113.7"), set(t.myrelay_hn, "box.vexarelay.example");
    set(t.ddns_hn_list, "home.dyn.example,alt.dyn.example"), set(t.local_ip, "192.168.1.10");
    set(t.local_ip_list, "192.168.1.10,192.168.1.11,192.168.1.12,192.168.1.13,192.168.1.14,"
                         "192.168.1.15,192.168.1.16,192.168.1.17,192.168.1.18");
    set(t.local_ipv6_list, "fe80::1,fe80::2"), set(t.host_ip, "nas.local");
    t.port = 8080, t.sslPort = 443, t.extPort = 18080, t.extSslPort = 10443;
  }
  ~HostTable() override { memset(&g_host_address_table, 0, sizeof g_host_address_table); }
  static std::string link(int ssl, const char* host, const char* fid = nullptr, std::string* port = nullptr) {
    char url[536] = "", port_text[10] = "";
    compose_share_link(ssl, host, "S1", fid, url, sizeof url, port_text, sizeof port_text);
    if (port != nullptr) *port = port_text;
    return url;
  }
};
TEST_F(HostTable, ClassifiesEveryKind) {
  const struct { const char* text; int kind; } cases[] = {
      {"http://x/share.cgi", 11}, {"https:/x", 11}, {":5", 5}, {":21:box", 21}, {":0:box", 6}, {":22", 6},
      {":::", 0}, {"", 0}, {"203.0.113.7", 1}, {"BOX.vexarelay.example", 2}, {"alt.dyn.example", 3},
      {"dyn", 3}, {"192.168.1.10", 4}, {"192.168.1.10:8080", 4}, {"192.168.1.11", 5}, {"192.168.1.12", 7},
      {"192.168.1.13", 8}, {"192.168.1.14", 9}, {"192.168.1.15", 12}, {"192.168.1.16", 13},
      {"192.168.1.17", 14}, {"192.168.1.18", 6}, {"192.168.1.1", 6}, {"nas.local", 6},
      {"elsewhere.example", 6}, {"[fe80::1]", 6}};
  for (const auto& c : cases) EXPECT_EQ(c.kind, classify_host(c.text)) << c.text;
  set(g_host_address_table.local_ipv6_list, "fe80::1,[fe80::2]");
  EXPECT_EQ(16, classify_host("[FE80::2]"));
  set(g_host_address_table.local_ipv6_list, "");
  set(g_host_address_table.external_ip, "2001:db8::7");
  EXPECT_EQ(1, classify_host("[2001:db8::7]:443"));
  EXPECT_EQ(1, classify_host("db8::7"));
  EXPECT_EQ(6, classify_host("2001:db8::8"));
}
// A stored host text, or (text null) the output buffer itself, to "<host printed> <kind>".
TEST_F(HostTable, ResolvesStoredHostTexts) {
  auto resolved = [](const char* text, const char* start = "", size_t size = 512) {
    char out[512];
    set(out, start);
    int kind = resolve_link_host(out, text, size);
    return std::string(out) + " " + std::to_string(kind);
  };
  const std::pair<const char*, const char*> cases[] = {
      {":1", "203.0.113.7 1"}, {":3", "home.dyn.example,alt.dyn.example 3"}, {":5", "192.168.1.11 5"},
      {":14", "192.168.1.17 14"}, {":15", "fe80::1 15"}, {":20", "192.168.1.10 20"}, {":6", "nas.local 6"},
      {":21", "nas.local 21"}, {":0", "nas.local 0"}, {":10:Box.Example", "Box.Example 10"},
      {":0:h.example:81:x", "h.example:81 0"}, {":99", "nas.local 0"}, {"[fe80::1]:443", "nas.local 0"}};
  for (const auto& c : cases) EXPECT_EQ(c.second, resolved(c.first)) << c.first;
  // No text: the output itself is placed (unknown: custom), or the request host fills it.
  EXPECT_EQ("nas.local 6|fe80::2 16|unknown.example 0|203 1", resolved(nullptr, "") + "|" +
            resolved(nullptr, "fe80::2") + "|" + resolved(nullptr, "unknown.example") + "|" + resolved(":1", "", 4));
  EXPECT_EQ(6, resolve_link_host(nullptr, ":1", 10));
  set(g_host_address_table.local_ip_list, "");
  set(g_host_address_table.host_ip, "nas.local:8080");
  EXPECT_EQ("192.168.1.10 5|nas.local 6", resolved(":5") + "|" + resolved(nullptr, "nas.local:8080"));
}
// Link prefix by host kind (the table leaves out the "/share.cgi?ssid=S1" every link ends in).
TEST_F(HostTable, ChoosesPortsByHostKind) {
  const struct { int ssl; const char* host; const char* url; const char* port; } cases[] = {
      {1, "192.168.1.10", "https://192.168.1.10", "443"}, {0, "192.168.1.11", "http://192.168.1.11:8080", "8080"},
      {1, ":1", "https://203.0.113.7:10443", "10443"}, {1, ":10:box.example", "https://box.example", "10443"},
      {0, "home.dyn.example", "http://home.dyn.example:18080", "18080"}, {0, nullptr, "http://nas.local:18080", ""},
      {1, ":2", "https://box.vexarelay.example:10443", ""}, {0, "nas.local", "http://nas.local:18080", ""},
      {0, "nas.local:18080", "http://nas.local:18080", ""}, {0, ":21:Box.Example", "http://Box.Example", ""},
      {0, ":0:Box.Example", "http://box.example:18080", ""}, {0, ":0:N18080.example", "http://n18080.example", ""},
      {0, ":16", "http://fe80::2:18080", ""}};
  for (const auto& c : cases) {
    std::string port;
    EXPECT_EQ(c.url + std::string("/share.cgi?ssid=S1"), link(c.ssl, c.host, "", &port)) << c.url;
    if (c.port[0] != '\0') { EXPECT_EQ(c.port, port) << c.url; }
  }
  EXPECT_EQ("https://x.example/dl?ssid=Z", link(1, ":11:https://x.example/dl?ssid=Z"));
  EXPECT_EQ("https://x.example/dl", link(1, "https://x.example/dl"));
  EXPECT_EQ("http://192.168.1.10:8080/share.cgi?ssid=S1&fid=F9", link(0, ":4", "F9"));
  // Under a relay domain the external port stays even when the name ends in it.
  EXPECT_EQ("http://n18080" + std::string(kRelayDomainSuffixes[1]) + ":18080/share.cgi?ssid=S1",
            link(0, (":0:N18080" + std::string(kRelayDomainSuffixes[1])).c_str()));
  g_host_address_table.extSslPort = 443, g_host_address_table.extPort = 80, g_host_address_table.sslPort = 8443;
  EXPECT_EQ("https://203.0.113.7:443/share.cgi?ssid=S1", link(1, "203.0.113.7"));
  EXPECT_EQ("https://192.168.1.10:8443/share.cgi?ssid=S1", link(1, ":4"));
  char url[128], port[10];
  compose_share_link(0, "h", "S", nullptr, url, 12, nullptr, 0);
  EXPECT_STREQ("http://h:80", url);
  // A forced kind overrides the choice.
  auto forced = [&](int kind, const char* host, const char* start_port) {
    g_host_address_table.forced_kind = kind;
    set(url, "none");
    set(port, start_port);
    compose_share_link(0, host, "S1", nullptr, url, sizeof url, port, sizeof port);
    return std::string(url);
  };
  EXPECT_EQ("http://Box:1/share.cgi?ssid=S1 80", forced(10, "Box:1", "") + " " + port);
  EXPECT_EQ("https://whole", forced(11, "https://whole", ""));
  EXPECT_EQ("http://nas.example/share.cgi?ssid=S1", forced(6, "nas.example", "777"));
  EXPECT_EQ("http://h:777/share.cgi?ssid=S1", forced(4, "h", "777"));
  EXPECT_EQ("none", forced(4, nullptr, "777"));
}
// Timeout and retry of the cloud client come from the request, within range.
TEST(Discovery, TakesTimeoutAndRetryFromTheRequest) {
  ApplianceRoot root;
  ScopedEnv env{{{"SHARELINK_ROOT", root.dir()}}};
  root.script("/usr/bin/nimbo_cli", "echo \"$3 $5\" >> \"$SHARELINK_ROOT/tmp/args\"\n");
  HostAddressTable table;
  for (const char* query : {"timeout=30&retry=0", "timeout=60&retry=5", "timeout=61&retry=6", "timeout=&retry=x"}) {
    CgiRequest request;
    cgi_parse_params(query, strlen(query), &request), discover_host_addresses(&request, &table);
  }
  EXPECT_EQ("30 0\n30 0\n60 5\n60 5\n5 1\n5 1\n5 0\n5 0\n", root.read("/tmp/args"));
}
}  // namespace
