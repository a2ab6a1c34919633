// Mode 2 against a plain model of it: for every line, every item parsed again
// in turn over the same never-cleared outputs until one id matches. Random
// lists whose ids all have one length (looked up by value) and lists with
// ids of mixed lengths, items without an id and repeated items (walked item
// by item) must both give the model's registry and leave RunContext as the
// model leaves it. Items are read as get_field reads them, however long the
// list.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <random>
#include <string>

#include "platform/os.h"
#include "registry/edits.h"
#include "registry/fields.h"
#include "registry/refresh.h"
#include "registry/run_context.h"
#include "registry/share_url.h"
#include "support/appliance.h"

namespace {

struct Outcome {
  std::string registry;
  std::string host;  // the whole buffers, tails included
  std::string ssid;
};

Outcome model(const std::string& registry, const std::string& list) {
  char host[sizeof g_run_context.url_host] = {};
  char ssid[sizeof g_run_context.ssid] = {};
  uint16_t n = 0;
  count_fields(&n, list.c_str(), list.size(), ",", 1);
  Outcome o;
  for (size_t start = 0, end; start < registry.size(); start = end) {
    end = registry.find('\n', start) + 1;
    const std::string line = registry.substr(start, end - start);
    char id[256];
    EXPECT_EQ(1, get_field(id, sizeof id, 1, line.c_str(), line.size(), "\t"));
    for (uint16_t i = 1; i <= n; ++i) {
      char item[256];
      EXPECT_EQ(1, get_field(item, sizeof item, i, list.c_str(), list.size(), ","));
      parse_share_url(item, host, sizeof host, ssid, sizeof ssid);
      if (strcmp(id, ssid) == 0) break;
      if (i == n) o.registry += line;
    }
  }
  o.host.assign(host, sizeof host);
  o.ssid.assign(ssid, sizeof ssid);
  return o;
}

std::string line(const std::string& id) { return id + "\th\t-\t0\t/share/Public/a.txt\t-\t0\t-\tv\t-\n"; }
std::string url(const std::string& id) { return "http://h:1/share.cgi?ssid=" + id; }

class DeleteLinksTest : public ::testing::Test {
 protected:
  void SetUp() override {
    share_url_forget_port();
    memset(&g_run_context, 0, sizeof g_run_context);
    os.fsync = [](int) { return 0; };  // hundreds of rewrites; durability is not the point here
  }
  void TearDown() override {
    os_reset();
    free(g_run_context.edit_input);
    memset(&g_run_context, 0, sizeof g_run_context);
  }

  int run(const std::string& registry, const std::string& list, Outcome* o = nullptr) {
    root.remove(std::string(kShareRegistryPath) + ".del");
    root.write(kShareRegistryPath, registry);
    free(g_run_context.edit_input);
    memset(&g_run_context, 0, sizeof g_run_context);
    g_run_context.mode = 2;
    g_run_context.edit_input = strdup(list.c_str());
    g_run_context.edit_input_len = static_cast<int32_t>(list.size());
    int rc = delete_registry_links();
    if (o != nullptr) {
      o->registry = root.read(kShareRegistryPath);
      o->host.assign(g_run_context.url_host, sizeof g_run_context.url_host);
      o->ssid.assign(g_run_context.ssid, sizeof g_run_context.ssid);
    }
    return rc;
  }

  // An id of `len` letters from "ab" (len 0: 1 to 3 letters), so that ids
  // collide and share prefixes.
  std::string id(size_t len) {
    if (len == 0) len = 1 + rng() % 3;
    std::string s;
    for (size_t i = 0; i < len; ++i) s += "ab"[rng() % 2];
    return s;
  }
  std::string random_url(const std::string& ssid, bool with_ssid) {
    static const char* const kPrefixes[] = {"http://10.0.0.1:8080/share.cgi?", "https://nas/share.cgi?",
                                            "https://nas.example.com:8443/share.cgi?fid=3&",
                                            "http://host.example.com:80/share.cgi?"};
    std::string u = kPrefixes[rng() % 4];
    return with_ssid ? u + "ssid=" + ssid : u + "fid=" + ssid;
  }

  ApplianceRoot root;
  ScopedEnv env{{{"SHARELINK_ROOT", root.dir()}}};
  std::mt19937 rng{20261122};
};

TEST_F(DeleteLinksTest, RandomListsMatchTheModel) {
  for (size_t id_len : {3, 0}) {  // one length, then mixed lengths and items without an id
    for (int round = 0; round < 100; ++round) {
      std::string list, text;
      for (int i = 0, items = 1 + static_cast<int>(rng() % 6); i < items; ++i) {
        list += (i ? "," : "") + random_url(id(id_len), id_len != 0 || rng() % 5 != 0);
      }
      for (int i = 0, lines = 1 + static_cast<int>(rng() % 12); i < lines; ++i) text += line(id(id_len));
      Outcome want = model(text, list);
      Outcome got;
      ASSERT_EQ(1, run(text, list, &got)) << list;
      ASSERT_EQ(want.registry, got.registry) << list;
      ASSERT_EQ(want.host, got.host) << list;
      ASSERT_EQ(want.ssid, got.ssid) << list;
    }
  }
}

TEST_F(DeleteLinksTest, LongListsAndItemsThatCannotBeRead) {
  const std::string registry = line("K1") + line("K2") + line("K3");
  Outcome got;
  std::string list;
  for (int i = 0; i < 65534; ++i) list += url("Zz") + ",";
  EXPECT_EQ(1, run(registry, list + url("K2"), &got));  // item 65,535 is reached
  EXPECT_EQ(line("K1") + line("K3"), got.registry);
  // A longer id written first keeps its tail under a shorter one, so the
  // shorter id alone never matches its own line.
  EXPECT_EQ(1, run(line("ab") + line("abb"), url("abb") + "," + url("ab"), &got));
  EXPECT_EQ(line("ab"), got.registry);
  EXPECT_EQ(1, run(registry, url("K1") + "," + url("K2") + "," + url(std::string(220, 'x')) + "," + url("K3"), &got));
  EXPECT_EQ(line("K3"), got.registry);

  // Commas only: no item at all. An empty item does not count, so the last
  // counted item is missing (K1 matches before it is needed, K2 reaches it).
  // An item of 256 bytes cannot be read.
  for (const std::string& bad : {std::string(65535, ','), url("K3") + ",," + url("K1"),
                                 url("K1") + "," + url(std::string(250, 'x')) + "," + url("K3")}) {
    EXPECT_EQ(-1, run(registry, bad, &got)) << bad.substr(0, 80);
    EXPECT_EQ(registry, got.registry);
  }
  EXPECT_EQ("", root.read(std::string(kShareRegistryPath) + ".del"));
}

}  // namespace
