#include "registry/fields.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

namespace {

unsigned g_seed = 12345;
unsigned next() { return (g_seed = g_seed * 1103515245u + 12345u) >> 16; }

TEST(GetField, Table) {
  const std::string line = "id\thost\t\tx\t/share/a\tf6\t0\tf8\tv9\tlast\n";
  const struct {
    std::string line;
    size_t len;  // npos: the whole line
    int n;
    const char* delim;
    size_t size;
    int result;
    const char* out;  // what the buffer ("keep" before) holds after
  } cases[] = {
      {line, std::string::npos, 1, "\t", 256, 1, "id"},
      {line, std::string::npos, 3, "\t", 256, 1, "x"},  // the empty field does not count
      {line, std::string::npos, 4, "\t", 256, 1, "/share/a"},
      {line, std::string::npos, 9, "\t", 256, 1, "last\n"},
      {line, std::string::npos, 10, "\t", 256, -1, "keep"},
      {"\t\tfirst\tsecond", std::string::npos, 1, "\t", 256, 1, "first"},
      {"ab\tcd", 3, 2, "\t", 16, -1, "keep"},  // only len bytes are looked at
      {"ab\tcd", 1, 1, "\t", 16, 1, "a"},
      {"a\tb", std::string::npos, 0, "\t", 8, 1, ""},
      {"", std::string::npos, 3, "\t", 8, 1, ""},
      {"a\tb", std::string::npos, 1, nullptr, 8, -1, "keep"},
      {"\t\t", std::string::npos, 1, "\t", 8, -1, "keep"},
      {"12345678\tx", std::string::npos, 1, "\t", 8, -1, "keep"},  // refused, not cut
      {"1234567\tx", std::string::npos, 1, "\t", 8, 1, "1234567"},
      {"a,b;;c", std::string::npos, 3, ",;", 8, 1, "c"},  // the delimiter is a set
  };
  for (const auto& c : cases) {
    char buf[256] = "keep";
    size_t len = c.len == std::string::npos ? c.line.size() : c.len;
    EXPECT_EQ(c.result, get_field(buf, c.size, c.n, c.line.c_str(), len, c.delim)) << c.line << " " << c.n;
    EXPECT_STREQ(c.out, buf) << c.line << " " << c.n;
  }
}

// get_field scans in place; it must agree with strtok_r on a copy.
TEST(GetField, AgreesWithStrtokOnACopy) {
  const char alphabet[] = "ab\t,\n";
  for (int round = 0; round < 2000; ++round) {
    std::string line;
    for (unsigned len = next() % 12; len > 0; --len) line += alphabet[next() % 5];
    const char* delim = (round % 3 == 0) ? "\t," : "\t";
    size_t line_len = line.empty() ? 0 : next() % (line.size() + 1);
    int n = static_cast<int>(next() % 5);
    size_t size = 1 + next() % 4;
    std::string expected_out;
    int expected = 1;
    if (line_len != 0 && n != 0) {
      std::string copy = line.substr(0, line_len);
      char* save = nullptr;
      char* tok = strtok_r(&copy[0], delim, &save);
      for (int i = 1; i < n && tok != nullptr; ++i) tok = strtok_r(nullptr, delim, &save);
      if (tok == nullptr || strlen(tok) >= size) {
        expected = -1;
      } else {
        expected_out = tok;
      }
    }
    char out[8] = "";
    int got = get_field(out, size, n, line.c_str(), line_len, delim);
    ASSERT_EQ(expected, got) << "line '" << line << "' len " << line_len << " n " << n;
    if (got == 1) {
      EXPECT_EQ(expected_out, out);
    }
  }
}

// FieldReader must give, field after field, what get_field gives for each.
TEST(FieldReader, AgreesWithGetFieldFieldAfterField) {
  const char alphabet[] = "ab\t\t\n";
  for (int round = 0; round < 3000; ++round) {
    std::string line;
    for (unsigned len = next() % 14; len > 0; --len) line += alphabet[next() % 5];
    if (next() % 8 == 0 && !line.empty()) line[next() % line.size()] = '\0';
    size_t line_len = line.empty() ? 0 : next() % (line.size() + 1);
    FieldReader reader(line.c_str(), line_len, '\t');
    // Mostly increasing field numbers, now and then one asked again or lower.
    int n = -1;
    for (int ask = 0; ask < 4; ++ask) {
      n = next() % 6 == 0 ? static_cast<int>(next() % 3) - 1 : n + 1 + static_cast<int>(next() % 3);
      size_t size = 1 + next() % 4;
      char want[8] = "x", got[8] = "x";
      int expected = get_field(want, size, n, line.data(), line_len, "\t");
      ASSERT_EQ(expected, reader.get(got, size, n)) << "round " << round << " n " << n;
      ASSERT_STREQ(want, got) << "round " << round << " n " << n;
    }
  }
}

TEST(CountFields, CountsItemsWithOrWithoutTrailingDelimiter) {
  const std::string many(65536, ',');  // the count is 16 bits wide
  const struct {
    std::string text;
    size_t len;
    const char* delim;
    size_t delim_len;
    uint16_t count;
  } cases[] = {{"a,b", 3, ",", 1, 2}, {"a,b,", 4, ",", 1, 2}, {",,", 2, ",", 1, 2}, {"one", 3, ",", 1, 1},
               {",", 1, ",", 1, 1},   {"a,,b", 4, ",", 1, 3}, {"a,b", 0, ",", 1, 0}, {"a,b", 3, ",", 0, 0},
               {"a::b", 4, "::", 2, 2}, {many, many.size(), ",", 1, 0}};
  for (const auto& c : cases) {
    uint16_t n = 99;
    EXPECT_EQ(1, count_fields(&n, c.text.c_str(), c.len, c.delim, c.delim_len)) << c.text.substr(0, 8);
    EXPECT_EQ(c.count, n) << c.text.substr(0, 8) << " " << c.len;
  }
}

// replace_field counts empty fields (unlike get_field), drops the newline or
// trailing delimiter of the field it replaces, and writes nothing (the
// buffer keeps "#") when it cannot.
TEST(ReplaceField, Table) {
  const struct {
    const char* line;
    int n;
    const char* value;
    size_t size;
    const char* delim;
    int result;
    const char* out;
  } cases[] = {
      {"id\t\tthird\n", 2, "H", 64, "\t", 1, "id\tH\tthird\n"},
      {"id\t\tthird\n", 3, "T", 64, "\t", 1, "id\t\tT"},
      {"a\tb\t", 1, "X", 64, "\t", 1, "X\tb"},
      {"a\tb\t", 2, "X", 64, "\t", 1, "a\tX"},
      {"a\tb\t", 3, "X", 64, "\t", -1, "#"},
      {"a::b::c", 2, "new", 64, "::", 1, "a::new::c"},
      {"a\tb\tc\n", 4, "v", 64, "\t", -1, "#"},
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

}  // namespace
