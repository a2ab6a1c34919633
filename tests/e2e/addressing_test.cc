#include <gtest/gtest.h>
#include <cstdlib>
#include <map>
#include <string>
#include "support/appliance.h"
#include "support/store_fixture.h"

namespace {
// Only "1" and "yes" enable a provider; one without an address takes the one before it.
const char kDdnsConfig[] =
    R"({"dyn":{"enable":"1","ip4":"198.51.100.2","hostname":"home.dyn.example, alt.dyn.example"},)"
    R"("off":{"enable":"0","ip4":"9.9.9.9","hostname":"off.example"},"n":{"enable":1,"hostname":"n.example"},)"
    R"("h":{"enable":"1","hostname":7},"e":"x","second":{"enable":"yes","hostname":"two.nimbo-dyn.example"}})";
// Up to nine leading blanks; entries that are no objects are skipped; names cut at 31 bytes.
const char kInterfaces[] =
    "\t\t  \t  \t " R"({"data":{"eth0":{"IPv4":[{"ip":"192.168.1.10"},{"ip":"192.168.1.11"}],)"
    R"("IPv6":[{"ipv6_address":"fe80::1"},"skip"]},"a-very-long-interface-name-beyond-31":{"IPv4":[{"ip":"10.0.0.5"}]}}})";

const char kDeviceStatus[] =
    R"({"code":0,"result":{"device_name":"box","region":"eu","qid":"q-1",)"
    R"("ddns_status":"Enable","vlink_status":"enable"}})";  // only "Enable" counts

class Discover : public ::testing::Test {
 protected:
  Discover() {
    cloud_client("203.0.113.7", "2001:db8::7");
    printing("/usr/sbin/nmcli", kDdnsConfig);
    printing("/usr/sbin/nsh", kInterfaces);
    printing("/usr/local/bin/nimbo_device_tool", kDeviceStatus);
    root_.write("/etc/config/Korvix.conf", "[System]\nWeb Access Port = 8080\nExternal Web Port = 18080\n"
                                           "External SSL Port = 10443\n[Stunnel]\nPort = 443\n");
  }
  void printing(const std::string& program, const std::string& out) {  // a stand-in that prints out
    root_.write(program + ".out", out);
    root_.script(program, "cat \"$SHARELINK_ROOT" + program + ".out\"\n");
  }
  void cloud_client(const std::string& v4, const std::string& v6) {
    root_.script("/usr/bin/nimbo_cli", "echo \"$@\" >> \"$SHARELINK_ROOT/tmp/nimbo.args\"\n"
                 "case \"$*\" in *-6) printf '%s' '" + v6 + "';; *) printf '%s' '" + v4 + "';; esac\n");
  }
  static std::map<std::string, std::string> relay(const char* name, const char* enabled) {
    std::string asan = getenv("ASAN_OPTIONS") ? getenv("ASAN_OPTIONS") : "";
    return {{"LD_PRELOAD", SLT_TEST_VEXADDNS_LIB}, {"ASAN_OPTIONS", asan + ":verify_asan_link_order=0"},
            {"SLT_TEST_RELAY_NAME", name}, {"SLT_TEST_RELAY_DOMAIN", "vexarelay.example"},
            {"SLT_TEST_RELAY_ENABLED", enabled}};
  }
  RunResult discover(std::map<std::string, std::string> env = {}) {
    if (env.count("HTTP_HOST") == 0) env["HTTP_HOST"] = "\x01unset";
    return run_program(ctl_binary(), {"discover"}, root_, env);
  }
  ApplianceRoot root_;
};
TEST_F(Discover, PrintsTheWholeDocument) {
  std::map<std::string, std::string> env = relay("box", "1");
  env["HTTP_HOST"] = "example:8080";
  RunResult r = discover(env);
  ASSERT_EQ(0, r.status) << r.err;
  EXPECT_EQ(
      "{ \"status\": 1, \"myrelay_hn\": \"box.vexarelay.example\", "
      "\"ddns_hn_list\": \"home.dyn.example, alt.dyn.example,two.nimbo-dyn.example\", "
      "\"ddns_hn\": \"home.dyn.example\", \"external_ip\": \"203.0.113.7\", "
      "\"ext_ip_list\": \"2001:db8::7\", \"local_ip\": \"192.168.1.10\", "
      "\"host_ip\": \"example\", \"local_ip_list\": \"192.168.1.10,192.168.1.11,10.0.0.5\", "
      "\"port\": 8080, \"sslPort\": 443, \"extPort\": 18080, \"extSslPort\": 10443, "
      "\"ipv6Enable\": 1, \"local_ipv6_list\": \"fe80::1\", \"data\": { \"qid\": \"q-1\", "
      "\"code\": 0, \"region\": \"eu\", \"mynimbo_ddns_status\": 1, "
      "\"mynimbo_device_name\": \"box\", \"mynimbo_link_status\": 0, "
      "\"ddns_list\": [ { \"ip4\": \"198.51.100.2\", \"hostname\": \"home.dyn.example\", "
      "\"provider\": \"dyn\" }, { \"ip4\": \"198.51.100.2\", \"hostname\": \"alt.dyn.example\", "
      "\"provider\": \"dyn\" }, { \"ip4\": \"198.51.100.2\", "
      "\"hostname\": \"two.nimbo-dyn.example\", \"provider\": \"second\" } ], "
      "\"ip_list\": [ { \"ip_addr\": \"203.0.113.7\", \"ip_type\": \"external_ip\", "
      "\"version\": 4, \"interface\": \"\" }, { \"ip_addr\": \"192.168.1.10\", "
      "\"ip_type\": \"local_ip\", \"version\": 4, \"interface\": \"eth0\" }, "
      "{ \"ip_addr\": \"192.168.1.11\", \"ip_type\": \"local_ip\", \"version\": 4, "
      "\"interface\": \"eth0\" }, { \"ip_addr\": \"fe80::1\", \"ip_type\": \"local_ip\", "
      "\"version\": 6, \"interface\": \"eth0\" }, { \"ip_addr\": \"10.0.0.5\", "
      "\"ip_type\": \"local_ip\", \"version\": 4, \"interface\": \"a-very-long-interface-name-beyo\" } ] } }\n",
      r.out);
  EXPECT_EQ("get_external_ip -x 5 -r 1 -c KDX_NIMBO_CLI_CACHE_VALID_PERIOD\nget_external_ip -x 5 -r 1 -c "
            "KDX_NIMBO_CLI_CACHE_VALID_PERIOD -6\n", root_.read("/tmp/nimbo.args"));
}
// Relay name only with the service on and 3+ characters; missing sources leave their fields
// empty; the external address falls back to the IPv6 answer.
TEST_F(Discover, PartialAnswers) {
  for (const char* name : {"box", "bx"}) {
    EXPECT_NE(std::string::npos, discover(relay(name, name[2] ? "0" : "1")).out.find("\"myrelay_hn\": \"\","));
  }
  cloud_client("", "2001:db8::7");
  EXPECT_NE(std::string::npos, discover().out.find("\"external_ip\": \"2001:db8::7\", \"ext_ip_list\": \"2001:db8::7\""));
  root_.remove("/usr/bin/nimbo_cli");
  printing("/usr/sbin/nsh", R"({"data":{"eth0":{"IPv4":[],"IPv6":[]}}})");
  for (const char* gone : {"/usr/sbin/nmcli", "/usr/local/bin/nimbo_device_tool", "/etc/config/Korvix.conf"})
    root_.remove(gone);
  RunResult r = discover();
  ASSERT_EQ(0, r.status);
  EXPECT_EQ("", r.err);
  EXPECT_EQ("{ \"status\": 1, \"myrelay_hn\": \"\", \"ddns_hn_list\": \"\", \"ddns_hn\": \"\", \"external_ip\": \"\", "
            "\"ext_ip_list\": \"\", \"local_ip\": \"127.0.0.1\", \"host_ip\": \"\", \"local_ip_list\": \"\", "
            "\"port\": 8080, \"sslPort\": 443, \"extPort\": 8080, \"extSslPort\": 443, \"ipv6Enable\": 0, "
            "\"data\": { \"qid\": \"\", \"code\": -1, \"region\": \"\", \"mynimbo_ddns_status\": -1, "
            "\"mynimbo_device_name\": \"\", \"mynimbo_link_status\": -1, \"ddns_list\": [ ], \"ip_list\": [ ] } }\n",
            r.out);
}
// Host choice itself is covered by addressing/host_kind_test; here the command around it.
TEST_F(Discover, UrlPrintsTheLinkOfAStoredKey) {
  make_store(root_);
  FixtureLink link("K1", ":0:Nas.Example");
  link.ssl = 1;
  insert_links(root_, {link});
  auto url = [this](const char* key) {
    RunResult r = run_program(ctl_binary(), {"url", key}, root_, {{"HTTP_HOST", "nas:8080"}});
    return std::to_string(r.status) + " " + r.out + (r.err.find(key) != std::string::npos ? "(key on stderr)" : "");
  };
  EXPECT_EQ("0 https://nas.example:10443/share.cgi?ssid=K1\n", url("K1"));
  EXPECT_EQ("1 (key on stderr)", url("NOPE"));
  EXPECT_EQ(2, run_program(ctl_binary(), {"url"}, root_).status);
}
}  // namespace
