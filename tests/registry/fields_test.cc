// Parser corners of the registry's field and URL readers; whole-file behaviour is in e2e/registry_test.
#include "registry/fields.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "registry/share_url.h"
#include "support/appliance.h"

namespace {

unsigned g_seed = 12345;
unsigned next() { return (g_seed = g_seed * 1103515245u + 12345u) >> 16; }

// get_field scans in place and must agree with strtok_r on a copy, leaving the buffer as it was when
// it fails; FieldReader must give, field after field (now and then one asked again or lower), what
// get_field gives for each.
TEST(GetField, AgreesWithStrtokAndFieldReader) {
  char buf[8] = "keep";
  EXPECT_EQ(-1, get_field(buf, sizeof buf, 1, "a\tb", 3, nullptr));
  EXPECT_EQ(1, get_field(buf, sizeof buf, 3, "a,b;;c", 6, ",;"));  // the delimiter is a set
  EXPECT_STREQ("c", buf);
  for (int round = 0; round < 3000; ++round) {
    std::string line;
    for (unsigned len = next() % 14; len > 0; --len) line += "ab\t,\n"[next() % 5];
    const bool nul = next() % 8 == 0 && !line.empty();
    if (nul) line[next() % line.size()] = '\0';
    const char* delim = (round % 3 == 0) ? "\t," : "\t";
    size_t line_len = line.empty() ? 0 : next() % (line.size() + 1), size = 1 + next() % 4;
    int n = static_cast<int>(next() % 5), expected = 1;
    std::string expected_out, copy = line.substr(0, line_len);
    char* save = nullptr;
    char* tok = line_len == 0 || n == 0 ? nullptr : strtok_r(&copy[0], delim, &save);
    for (int i = 1; i < n && tok != nullptr; ++i) tok = strtok_r(nullptr, delim, &save);
    if (line_len != 0 && n != 0 && (tok == nullptr || strlen(tok) >= size)) expected = -1; else if (tok) expected_out = tok;
    char out[8] = "keep";
    const int got = get_field(out, size, n, line.c_str(), line_len, delim);
    if (!nul) {
      ASSERT_EQ(expected, got) << line << "|" << line_len << " " << n;
      EXPECT_EQ(expected == 1 ? expected_out : "keep", out) << line << "|" << line_len << " " << n;
    }
    FieldReader reader(line.c_str(), line_len, '\t');
    for (int ask = 0, k = -1; ask < 4; ++ask) {
      k = next() % 6 == 0 ? static_cast<int>(next() % 3) - 1 : k + 1 + static_cast<int>(next() % 3);
      size = 1 + next() % 4;
      char want[8] = "x", field[8] = "x";
      ASSERT_EQ(get_field(want, size, k, line.data(), line_len, "\t"), reader.get(field, size, k)) << round << " " << k;
      ASSERT_STREQ(want, field) << round << " " << k;
    }
  }
}

TEST(CountFields, CountsItemsWithOrWithoutTrailingDelimiter) {
  const std::string many(65536, ',');  // the count is 16 bits wide
  const struct { std::string text; size_t len; const char* delim; size_t delim_len; uint16_t count; } cases[] = {
      {"a,b", 3, ",", 1, 2}, {"a,b,", 4, ",", 1, 2}, {",,", 2, ",", 1, 2}, {"one", 3, ",", 1, 1},
      {",", 1, ",", 1, 1},   {"a,,b", 4, ",", 1, 3}, {"a,b", 0, ",", 1, 0}, {"a,b", 3, ",", 0, 0},
      {"a::b", 4, "::", 2, 2}, {many, many.size(), ",", 1, 0}};
  for (const auto& c : cases) {
    uint16_t n = 99;
    EXPECT_EQ(1, count_fields(&n, c.text.c_str(), c.len, c.delim, c.delim_len)) << c.text.substr(0, 8);
    EXPECT_EQ(c.count, n) << c.text.substr(0, 8) << " " << c.len;
  }
}

// replace_field counts empty fields (unlike get_field), drops the newline or trailing delimiter of
// the field it replaces, and writes nothing (the buffer keeps "#") when it cannot.
TEST(ReplaceField, Table) {
  const struct { const char* line; int n; const char* value; size_t size; const char* delim; int result; const char* out; } cases[] = {
      {"id\t\tthird\n", 2, "H", 64, "\t", 1, "id\tH\tthird\n"},
      {"id\t\tthird\n", 3, "T", 64, "\t", 1, "id\t\tT"},
      {"a\tb\t", 1, "X", 64, "\t", 1, "X\tb"},
      {"a\tb\t", 3, "X", 64, "\t", -1, "#"},
      {"a::b::c", 2, "new", 64, "::", 1, "a::new::c"},
      {"a\tb", 1, "", 64, "\t", 1, "#"},
      {"a\tb", 0, "v", 64, "\t", 1, "#"},
      {"", 1, "v", 64, "\t", 1, "#"},
      {"a\tb", 1, "12345", 8, "\t", 1, "12345\tb"},  // exactly size - 1 bytes fit
      {"a\tb", 1, "123456", 8, "\t", kFieldTooLong, "#"},
  };
  for (const auto& c : cases) {
    char buf[64] = "#";
    EXPECT_EQ(c.result, replace_field(buf, c.size, c.value, c.n, c.line, strlen(c.line), c.delim, strlen(c.delim)))
        << c.line << " " << c.n;
    EXPECT_STREQ(c.out, buf) << c.line << " " << c.n;
  }
}

// The URL parser's length limits (the hosts of ordinary URLs, the secure port's effect and the
// never-cleared outputs are pinned by e2e/registry_test's rewrites and writers_test's deletions).
TEST(ShareUrl, Limits) {
  ApplianceRoot root;
  ScopedEnv env{{{"SHARELINK_ROOT", root.dir()}}};
  share_url_forget_port();
  char host[513], ssid[96];
  const struct { std::string url; std::string host, ssid; } cases[] = {
      {"https", "", ""},
      // A host beyond the 511 bytes looked at: no separator, no host.
      {"http://" + std::string(2000, 'h') + ":1/?ssid=" + std::string(300, 'i'), "", std::string(95, 'i')},
      {"http://" + std::string(500, 'h') + ":1/?ssid=x", std::string(500, 'h'), "x"},
  };
  for (const auto& c : cases) {
    memset(host, 0, sizeof host);
    memset(ssid, 0, sizeof ssid);
    EXPECT_EQ(0, parse_share_url(c.url.c_str(), host, sizeof host, ssid, sizeof ssid)) << c.url.substr(0, 60);
    EXPECT_EQ(c.host, host) << c.url.substr(0, 60);
    EXPECT_EQ(c.ssid, ssid) << c.url.substr(0, 60);
  }
  EXPECT_EQ(-1, parse_share_url("", host, sizeof host, ssid, sizeof ssid));
  EXPECT_EQ(-1, parse_share_url(nullptr, host, sizeof host, ssid, sizeof ssid));
  EXPECT_STREQ("x", ssid);  // nothing written
}

}  // namespace
