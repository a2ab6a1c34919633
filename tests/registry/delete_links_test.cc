// Mode 2 against a plain model of it: for every line, every item parsed again
// in turn over the same never-cleared outputs until one id matches. Random
// lists whose ids all have one length (looked up by value) and lists with
// ids of mixed lengths, items without an id and repeated items (walked item
// by item) must both give the model's registry and leave RunContext as the
// model leaves it.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <vector>

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

std::vector<std::string> lines_of(const std::string& text) {
  std::vector<std::string> lines;
  size_t start = 0;
  while (start < text.size()) {
    size_t nl = text.find('\n', start);
    size_t end = nl == std::string::npos ? text.size() : nl + 1;
    lines.push_back(text.substr(start, end - start));
    start = end;
  }
  return lines;
}

Outcome model(const std::string& registry, const std::string& list) {
  char host[sizeof g_run_context.url_host] = {};
  char ssid[sizeof g_run_context.ssid] = {};
  uint16_t n = 0;
  count_fields(&n, list.c_str(), list.size(), ",", 1);
  Outcome o;
  for (const std::string& line : lines_of(registry)) {
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

  Outcome run(const std::string& registry, const std::string& list) {
    root.remove(std::string(kShareRegistryPath) + ".del");
    root.write(kShareRegistryPath, registry);
    free(g_run_context.edit_input);
    memset(&g_run_context, 0, sizeof g_run_context);
    g_run_context.mode = 2;
    g_run_context.edit_input = strdup(list.c_str());
    g_run_context.edit_input_len = static_cast<int32_t>(list.size());
    EXPECT_EQ(1, delete_registry_links());
    Outcome o;
    o.registry = root.read(kShareRegistryPath);
    o.host.assign(g_run_context.url_host, sizeof g_run_context.url_host);
    o.ssid.assign(g_run_context.ssid, sizeof g_run_context.ssid);
    return o;
  }

  // An id of `len` letters from "ab" (len 0: 1 to 3 letters), so that ids
  // collide and share prefixes.
  std::string id(size_t len) {
    if (len == 0) len = 1 + rng() % 3;
    std::string s;
    for (size_t i = 0; i < len; ++i) s += "ab"[rng() % 2];
    return s;
  }
  std::string url(const std::string& ssid, bool with_ssid) {
    static const char* const kPrefixes[] = {"http://10.0.0.1:8080/share.cgi?", "https://nas/share.cgi?",
                                            "https://nas.example.com:8443/share.cgi?fid=3&",
                                            "http://host.example.com:80/share.cgi?"};
    std::string u = kPrefixes[rng() % 4];
    return with_ssid ? u + "ssid=" + ssid : u + "fid=" + ssid;
  }
  std::string registry(size_t id_len) {
    std::string text;
    int lines = 1 + static_cast<int>(rng() % 12);
    for (int i = 0; i < lines; ++i) text += id(id_len) + "\th\t-\t0\t/share/Public/a.txt\t-\t0\t-\tv\t-\n";
    return text;
  }

  ApplianceRoot root;
  ScopedEnv env{{{"SHARELINK_ROOT", root.dir()}}};
  std::mt19937 rng{20261122};
};

TEST_F(DeleteLinksTest, IdsOfOneLengthMatchTheModel) {
  for (int round = 0; round < 100; ++round) {
    std::string list;
    int items = 1 + static_cast<int>(rng() % 6);
    for (int i = 0; i < items; ++i) list += (i ? "," : "") + url(id(3), true);
    std::string text = registry(3);
    Outcome want = model(text, list);
    Outcome got = run(text, list);
    ASSERT_EQ(want.registry, got.registry) << list;
    ASSERT_EQ(want.host, got.host) << list;
    ASSERT_EQ(want.ssid, got.ssid) << list;
  }
}

TEST_F(DeleteLinksTest, MixedIdsMatchTheModel) {
  for (int round = 0; round < 100; ++round) {
    std::string list;
    int items = 1 + static_cast<int>(rng() % 6);
    for (int i = 0; i < items; ++i) list += (i ? "," : "") + url(id(0), rng() % 5 != 0);
    std::string text = registry(0);
    Outcome want = model(text, list);
    Outcome got = run(text, list);
    ASSERT_EQ(want.registry, got.registry) << list;
    ASSERT_EQ(want.host, got.host) << list;
    ASSERT_EQ(want.ssid, got.ssid) << list;
  }
}

// A longer id written first keeps its tail under a shorter one, so the
// shorter id alone never matches its own line.
TEST_F(DeleteLinksTest, AShortIdAfterALongOneKeepsTheLongOnesTail) {
  const std::string kept = "ab\th\t-\t0\t/share/Public/a.txt\t-\t0\t-\tv\t-\n";
  const std::string gone = "abb\th\t-\t0\t/share/Public/a.txt\t-\t0\t-\tv\t-\n";
  Outcome got = run(kept + gone, "http://h:1/share.cgi?ssid=abb,http://h:1/share.cgi?ssid=ab");
  EXPECT_EQ(kept, got.registry);
}

}  // namespace
