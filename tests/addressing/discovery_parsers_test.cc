// Parser corner cases; well-formed outputs and skipped entries run end to end (e2e/addressing_test).
#include <gtest/gtest.h>
#include <cerrno>
#include <cstring>
#include <string>
#include "addressing/discovery_parsers.h"
#include "addressing/host_address.h"

namespace {
HostAddressTable empty_table() {
  HostAddressTable t;
  memset(&t, 0, sizeof t);
  return t;
}
// Bad outputs leave their fields alone; good ones fill at most 16 entries and the bounded lists.
TEST(Parsers, KeepWithinBounds) {
  char out[8] = "keep";
  EXPECT_EQ(-ESRCH, cloud_client_answer("", 0, out, sizeof out));
  EXPECT_EQ(0, cloud_client_answer("1.2.3.4\n", 8, out, sizeof out));
  EXPECT_STREQ("1.2.3.4", out);  // cut at the limit, not at the line end
  HostAddressTable t = empty_table();
  EXPECT_EQ(-ESRCH, parse_ddns_config("", &t));
  EXPECT_EQ(-1, parse_ddns_config("[1,2]", &t));
  EXPECT_EQ(-1, parse_ddns_config("not json", &t));
  std::string names;
  for (int i = 0; i < 20; ++i) names += "h" + std::to_string(i) + " ";
  std::string text = R"({"a":{"enable":"1","hostname":")" + names + R"("},"b":{"enable":"1","hostname":")" +
                     std::string(2040, 'x') + R"("},"c":{"enable":"1","hostname":"late.example"}})";
  EXPECT_EQ(0, parse_ddns_config(text.c_str(), &t));
  EXPECT_STREQ("h15", t.ddns_list[15].hostname);
  EXPECT_STREQ("", t.ip_list[0].ip_addr);  // the entry after the last
  EXPECT_EQ(names, t.ddns_hn_list);
  for (const char* bad : {"\t\t  \t  \t  {\"data\":{\"e\":{\"IPv4\":[{\"ip\":\"10.0.0.1\"}]}}}", "{\"data\":{}}",
                          "{\"data\":[1]}"})
    EXPECT_EQ(-1, parse_interface_status(bad, &t, 0)) << bad;  // ten blanks are too many
  EXPECT_STREQ("", t.local_ip_list);
  text = R"({"data":{"eth0":{"IPv4":[{"ip":"10.0.0.1"},{"mask":"255.0.0.0"},{"ip":"10.0.0.2"}]},)"
         R"("eth1":null,"eth2":{"IPv4":[{"ip":"10.0.0.9"}]}}})";
  EXPECT_EQ(3, parse_interface_status(text.c_str(), &t, 0));
  EXPECT_STREQ("10.0.0.1,10.0.0.9", t.local_ip_list);
  // The entry without "ip" stays empty; the IPv4 pass stops at the null member.
  EXPECT_EQ("|10.0.0.2|", std::string(t.ip_list[1].ip_addr) + "|" + t.ip_list[2].ip_addr + "|" + t.ip_list[3].ip_addr);
  text = R"({"data":{"eth0":{"IPv4":[)";
  for (int i = 0; i < 40; ++i) text += (i ? R"(,{"ip":"10.0.0.)" : R"({"ip":"10.0.0.)") + std::to_string(i) + "\"}";
  t = empty_table();
  EXPECT_EQ(16, parse_interface_status((text + "]}}}").c_str(), &t, 1));
  EXPECT_STREQ("10.0.0.14", t.ip_list[15].ip_addr);
  EXPECT_EQ(255u, strlen(t.local_ip_list));
  DeviceStatus d;
  for (const char* bad : {"", "{", R"({"code":"0"})", "[0]"}) {
    parse_device_status(bad, &d);
    EXPECT_EQ("-1 -1", std::to_string(d.code) + " " + std::to_string(d.vlink_status)) << bad;
  }
}
// Every cut and every single damaged byte of good outputs: no overrun, no crash.
TEST(Parsers, SurviveDamagedOutput) {
  const char noise[] = "-{}[]\",:\\ 0a\x01\xff";
  for (const std::string sample :
       {R"({"a":{"enable":"1","ip4":"1.2.3.4","hostname":"x.example, y.example"}})",
        R"({"data":{"eth0":{"IPv4":[{"ip":"10.0.0.1"},{}],"IPv6":[{"ipv6_address":"fe80::1"}]}}})",
        R"({"code":0,"result":{"device_name":"b","region":"r","qid":"q","ddns_status":"Enable"}})"}) {
    for (size_t cut = 0; cut <= sample.size(); ++cut) {
      for (size_t k = 0; k < sizeof noise; ++k) {
        std::string text = k == 0 ? sample.substr(0, cut) : sample;
        if (k > 0 && cut < text.size()) text[cut] = noise[k];
        HostAddressTable t = empty_table();
        DeviceStatus d;
        parse_ddns_config(text.c_str(), &t);
        int n = parse_interface_status(text.c_str(), &t, 0);
        snprintf(t.host_ip, sizeof t.host_ip, "%s", text.c_str());
        remove_host_port(&t);
        parse_device_status(text.c_str(), &d);
        ASSERT_TRUE(n >= -1 && n <= kHostAddressEntries && strlen(t.ddns_hn_list) < sizeof t.ddns_hn_list &&
                    strlen(t.local_ip_list) < sizeof t.local_ip_list && strlen(d.qid) < sizeof d.qid &&
                    !host_address_document(t, d).empty()) << text;
      }
    }
  }
}
}  // namespace
