#include "registry/fields.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

namespace {

int get(std::string* out, size_t size, int n, const std::string& line, const char* delim = "\t") {
  std::string buf(size, '#');
  int r = get_field(&buf[0], size, n, line.c_str(), line.size(), delim);
  *out = buf.substr(0, strnlen(buf.c_str(), size));
  return r;
}

int replace(std::string* out, size_t size, const char* value, int n, const std::string& line,
            const char* delim = "\t") {
  std::string buf(size, '\0');
  buf[0] = '#';
  int r = replace_field(&buf[0], size, value, n, line.c_str(), line.size(), delim, strlen(delim));
  *out = buf.c_str();
  return r;
}

TEST(GetField, ReadsNonEmptyFieldsAndKeepsTheNewline) {
  std::string out;
  const std::string line = "id\thost\t\tx\t/share/a\tf6\t0\tf8\tv9\tlast\n";
  EXPECT_EQ(1, get(&out, 256, 1, line));
  EXPECT_EQ("id", out);
  // The empty field between the two tabs does not count.
  EXPECT_EQ(1, get(&out, 256, 3, line));
  EXPECT_EQ("x", out);
  EXPECT_EQ(1, get(&out, 256, 4, line));
  EXPECT_EQ("/share/a", out);
  EXPECT_EQ(1, get(&out, 256, 9, line));
  EXPECT_EQ("last\n", out);
  EXPECT_EQ(-1, get(&out, 256, 10, line));
  // A leading delimiter is skipped.
  EXPECT_EQ(1, get(&out, 256, 1, "\t\tfirst\tsecond"));
  EXPECT_EQ("first", out);
  // Only line_len bytes are looked at.
  char buf[16] = "#";
  EXPECT_EQ(-1, get_field(buf, sizeof buf, 2, "ab\tcd", 3, "\t"));
  EXPECT_EQ(1, get_field(buf, sizeof buf, 1, "ab\tcd", 1, "\t"));
  EXPECT_STREQ("a", buf);
}

TEST(GetField, EmptyRequestsMissingDelimiterAndBounds) {
  std::string out;
  EXPECT_EQ(1, get(&out, 8, 0, "a\tb"));
  EXPECT_EQ("", out);
  EXPECT_EQ(1, get(&out, 8, 3, ""));
  EXPECT_EQ("", out);
  char buf[8] = "keep";
  EXPECT_EQ(-1, get_field(buf, sizeof buf, 1, "a\tb", 3, nullptr));
  EXPECT_EQ(-1, get_field(buf, sizeof buf, 1, "\t\t", 2, "\t"));
  // A field of out_size bytes is refused, not cut; one byte less fits.
  EXPECT_EQ(-1, get_field(buf, sizeof buf, 1, "12345678\tx", 10, "\t"));
  EXPECT_STREQ("keep", buf);
  EXPECT_EQ(1, get_field(buf, sizeof buf, 1, "1234567\tx", 9, "\t"));
  EXPECT_STREQ("1234567", buf);
  // The delimiter is a set of characters.
  EXPECT_EQ(1, get(&out, 8, 3, "a,b;;c", ",;"));
  EXPECT_EQ("c", out);
}

// get_field scans in place; it must agree with strtok_r on a copy.
TEST(GetField, AgreesWithStrtokOnACopy) {
  const char alphabet[] = "ab\t,\n";
  unsigned seed = 12345;
  auto next = [&seed]() { return (seed = seed * 1103515245u + 12345u) >> 16; };
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

TEST(CountFields, CountsItemsWithOrWithoutTrailingDelimiter) {
  uint16_t n = 99;
  const char* cases[][2] = {{"a,b", "2"}, {"a,b,", "2"}, {",,", "2"}, {"one", "1"}, {",", "1"},
                            {"a,,b", "3"}};
  for (auto& c : cases) {
    EXPECT_EQ(1, count_fields(&n, c[0], strlen(c[0]), ",", 1)) << c[0];
    EXPECT_EQ(atoi(c[1]), n) << c[0];
  }
  EXPECT_EQ(1, count_fields(&n, "a,b", 0, ",", 1));
  EXPECT_EQ(0, n);
  n = 5;
  EXPECT_EQ(1, count_fields(&n, "a,b", 3, ",", 0));
  EXPECT_EQ(0, n);
  EXPECT_EQ(1, count_fields(&n, "a::b", 4, "::", 2));
  EXPECT_EQ(2, n);
  // The count is 16 bits wide.
  std::string many(65536, ',');
  EXPECT_EQ(1, count_fields(&n, many.c_str(), many.size(), ",", 1));
  EXPECT_EQ(0, n);
}

TEST(ReplaceField, CountsEmptyFieldsUnlikeGetField) {
  std::string out;
  const std::string line = "id\t\tthird\n";
  EXPECT_EQ(1, replace(&out, 64, "H", 2, line));
  EXPECT_EQ("id\tH\tthird\n", out);
  std::string got;
  get(&got, 64, 2, line);
  EXPECT_EQ("third\n", got);
  // The field that carries the newline loses it when replaced.
  EXPECT_EQ(1, replace(&out, 64, "T", 3, line));
  EXPECT_EQ("id\t\tT", out);
  // A line that already ends with the delimiter loses that one.
  EXPECT_EQ(1, replace(&out, 64, "X", 1, "a\tb\t"));
  EXPECT_EQ("X\tb", out);
  EXPECT_EQ(1, replace(&out, 64, "X", 2, "a\tb\t"));
  EXPECT_EQ("a\tX", out);
  EXPECT_EQ(-1, replace(&out, 64, "X", 3, "a\tb\t"));
  EXPECT_EQ(1, replace(&out, 64, "new", 2, "a::b::c", "::"));
  EXPECT_EQ("a::new::c", out);
}

TEST(ReplaceField, WritesNothingWhenItCannot) {
  std::string out;
  EXPECT_EQ(-1, replace(&out, 64, "v", 4, "a\tb\tc\n"));
  EXPECT_EQ("#", out);
  EXPECT_EQ(1, replace(&out, 64, "", 1, "a\tb"));
  EXPECT_EQ("#", out);
  EXPECT_EQ(1, replace(&out, 64, "v", 0, "a\tb"));
  EXPECT_EQ("#", out);
  EXPECT_EQ(1, replace(&out, 64, "v", 1, ""));
  EXPECT_EQ("#", out);
  // Exactly out_size - 1 bytes fit; one more is refused whole.
  EXPECT_EQ(1, replace(&out, 8, "12345", 1, "a\tb"));
  EXPECT_EQ("12345\tb", out);
  EXPECT_EQ(kFieldTooLong, replace(&out, 8, "123456", 1, "a\tb"));
  EXPECT_EQ("#", out);
}

}  // namespace
