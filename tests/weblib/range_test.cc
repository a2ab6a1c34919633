#include "weblib/range.h"

#include <gtest/gtest.h>

#include <climits>
#include <random>
#include <string>

namespace {

constexpr unsigned long long kMax = ULLONG_MAX;
constexpr RangeOutcome W = RangeOutcome::kWhole, P = RangeOutcome::kPartial, U = RangeOutcome::kUnsatisfiable,
                       M = RangeOutcome::kMultiple;

struct Case {
  const char* text;
  unsigned long long size;
  RangeOutcome outcome;
  unsigned long long start;
  unsigned long long end;
};

const Case kCases[] = {
    {nullptr, 10, W, 0, 9}, {"bytes=0-", 10, P, 0, 9},
    {"bytes=5-100", 10, P, 5, 9}, {"bytes=5-9", 10, P, 5, 9},
    {"bytes=0-0", 10, P, 0, 0}, {"bytes=9-", 10, P, 9, 9},
    // The suffix form keeps its end at 0: only the whole-file suffix is served.
    {"bytes=-3", 10, U, 0, 9}, {"bytes=-10", 10, P, 0, 0},
    {"bytes=-11", 10, U, 0, 9}, {"bytes=-", 10, U, 0, 9},
    {"-10", 10, P, 0, 0}, {"bytes=0-1,3-4", 10, M, 0, 9},
    {"bytes=,", 10, M, 0, 9}, {"bytes=7-3", 10, U, 0, 9},
    {"bytes=10-", 10, U, 0, 9}, {"bytes=10-20", 10, U, 0, 9},
    // Digits beyond 64 bits count as the largest value.
    {"bytes=99999999999999999999999999-", 10, U, 0, 9}, {"bytes=18446744073709551615-", 10, U, 0, 9},
    {"bytes=18446744073709551616-18446744073709551617", 10, U, 0, 9},
    {"bytes=2-99999999999999999999999999", 10, P, 2, 9}, {"bytes=-99999999999999999999999999", 10, U, 0, 9},
    // Missing numbers: the start stays 0, the end becomes the last byte.
    {"bytes=", 10, P, 0, 9}, {"", 10, P, 0, 9},
    {"garbage", 10, P, 0, 9}, {"bytes=x-5", 10, P, 0, 9},
    {"bytes=3-x", 10, P, 3, 9}, {"bytes=3", 10, P, 3, 9},
    {"bytes= 2- 4", 10, P, 2, 4}, {"bytes=+2-4", 10, P, 2, 4},
    {"bytes=5--3", 10, P, 5, 9}, {"bytes=2-4 junk", 10, P, 2, 4},
    // An empty file: its last byte is the largest value, and no range fits.
    {nullptr, 0, W, 0, kMax}, {"bytes=0-", 0, U, 0, kMax},
    {"bytes=0-0", 0, U, 0, kMax}, {"bytes=-0", 0, U, 0, kMax},
    {"bytes=", 0, U, 0, kMax},
    {"bytes=1099511627775-", 1099511627776ULL, P, 1099511627775ULL,
     1099511627775ULL},
    {"bytes=0-18446744073709551614", kMax, P, 0, kMax - 1},
};

TEST(ByteRange, Table) {
  for (const Case& c : kCases) {
    unsigned long long start = 77, end = 77;
    RangeOutcome got = parse_byte_range(c.text, c.size, &start, &end);
    std::string what = std::string(c.text ? c.text : "(null)") + " size " + std::to_string(c.size);
    EXPECT_EQ(c.outcome, got) << what;
    EXPECT_EQ(c.start, start) << what;
    EXPECT_EQ(c.end, end) << what;
  }
}

// Whatever the text, a served range lies inside the file and a refusal
// reports the whole file.
TEST(ByteRange, AnyTextGivesARangeInsideTheFile) {
  std::mt19937 gen(20250804);
  const char alphabet[] = "0123456789-=, b+x";
  const unsigned long long sizes[] = {0, 1, 2, 10, 8192, 1ULL << 40, kMax};
  for (int i = 0; i < 20000; ++i) {
    std::string text;
    size_t len = gen() % 24;
    for (size_t k = 0; k < len; ++k) text += alphabet[gen() % (sizeof alphabet - 1)];
    if (gen() % 3 == 0) text = "bytes=" + text;
    unsigned long long size = sizes[gen() % (sizeof sizes / sizeof sizes[0])];
    unsigned long long start = 0, end = 0;
    RangeOutcome o = parse_byte_range(text.c_str(), size, &start, &end);
    if (o == P) {
      ASSERT_LE(start, end) << text;
      ASSERT_LT(end, size) << text;
    } else {
      ASSERT_NE(W, o) << text;
      ASSERT_EQ(0u, start) << text;
      ASSERT_EQ(size - 1, end) << text;
    }
    ASSERT_EQ(text.find(',') != std::string::npos, o == M) << text;
  }
}

}  // namespace
