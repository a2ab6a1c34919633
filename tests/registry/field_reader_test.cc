// FieldReader must give, field after field, what get_field gives for each.
#include <gtest/gtest.h>

#include <string>

#include "registry/fields.h"

namespace {

TEST(FieldReader, AgreesWithGetFieldFieldAfterField) {
  const char alphabet[] = "ab\t\t\n";
  unsigned seed = 2026;
  auto next = [&seed]() { return (seed = seed * 1103515245u + 12345u) >> 16; };
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
      char want[8] = "x";
      char got[8] = "x";
      int expected = get_field(want, size, n, line.data(), line_len, "\t");
      ASSERT_EQ(expected, reader.get(got, size, n)) << "round " << round << " n " << n;
      ASSERT_STREQ(want, got) << "round " << round << " n " << n;
    }
  }
}

}  // namespace
