// The store's unit tests: a fresh appliance root per test, and no real sleeps.
#ifndef SLT_TESTS_SHARELINK_DB_STORE_TEST_UTIL_H_
#define SLT_TESTS_SHARELINK_DB_STORE_TEST_UTIL_H_
#include <gtest/gtest.h>
#include <cstdio>
#include "platform/os.h"
#include "platform/profile.h"
#include "sharelink_db/records.h"
#include "sharelink_db/store.h"
#include "support/appliance.h"
#include "support/store_fixture.h"

using Rows = std::vector<std::vector<std::string>>;
using Strings = std::vector<std::string>;
using Ints = std::vector<int>;  // results of calls made in order, compared at once
inline int& sleep_calls() { static int calls = 0; return calls; }  // of os.usleep
template <size_t N>
void put(char (&field)[N], const char* text) {  // a record's text field
  snprintf(field, N, "%s", text);
}
// `n` links "key00000", ... created a second apart from 2024-01-01 00:00:00 UTC on; ssl 0, the
// other columns NULL.
inline void insert_numbered_links(const ApplianceRoot& root, int n) {
  store_exec(root, "WITH RECURSIVE n(i) AS (SELECT 0 UNION ALL SELECT i + 1 FROM n WHERE i < " + std::to_string(n - 1) +
                       ") INSERT INTO SHARELINK_EVENT (pkey, ssl, createtic, create_date, create_time) SELECT "
                       "printf('key%05d', i), 0, 1704067200 + i, date(1704067200 + i, 'unixepoch'), "
                       "time(1704067200 + i, 'unixepoch') FROM n;");
}
struct StoreTest : ::testing::Test {
  void SetUp() override { os_reset(), sleep_calls() = 0, os.usleep = [](useconds_t) { return ++sleep_calls(), 0; }; }
  void TearDown() override { sf_release_parked_connections(), os_reset(); }
  // Points the store at a path whose folder does not exist: every open fails.
  void make_store_unopenable() { configure("[Depot]\nShare_Link_Db = /nowhere/at/all/x.db\n"); }
  void configure(const std::string& text) { root.write("/etc/config/Korvix.conf", text), profile_cache_clear(); }
  static ShareLinkRecord empty_filter() { ShareLinkRecord f; return sf_filter_reset(&f), f; }
  ApplianceRoot root;
  ScopedEnv env{{{"SHARELINK_ROOT", root.dir()}}};
};
#endif  // SLT_TESTS_SHARELINK_DB_STORE_TEST_UTIL_H_
