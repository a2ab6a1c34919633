// share.cgi's access file against a fixed clock: throttling tiers, repeats,
// the clock gone wrong, counts that commit with their records, damage.
#include <gtest/gtest.h>
#include <sqlite3.h>

#include "share_page/access_db.h"
#include "share_page/cookie.h"
#include "share_page/file_send.h"
#include "share_page/request.h"
#include "support/appliance.h"
#include "support/store_fixture.h"

namespace {

struct AccessTest : ::testing::Test {
  AccessTest() { root.mkdirs("/etc/config"); }
  long code_wait(AccessDb& db, time_t at, const char* client, const char* ssid) {
    long w = -1;
    EXPECT_TRUE(db.code_wait(at, client, ssid, &w));
    return w;
  }
  long rows(const std::string& table) {
    return stol(read_sql("SELECT COUNT(*) FROM " + table));
  }
  std::string read_sql(const std::string& sql) {
    sqlite3* db = nullptr;
    sqlite3_open(root.path("/etc/config/share_link_access.db").c_str(), &db);
    sqlite3_stmt* s = nullptr;
    std::string out = "?";
    if (sqlite3_prepare_v2(db, sql.c_str(), -1, &s, nullptr) == SQLITE_OK && sqlite3_step(s) == SQLITE_ROW) {
      out = reinterpret_cast<const char*>(sqlite3_column_text(s, 0));
    }
    sqlite3_finalize(s), sqlite3_close(db);
    return out;
  }
  ApplianceRoot root;
  ScopedEnv env{{{"SHARELINK_ROOT", root.dir()}}};
  const time_t t0 = 1000000;
};

TEST_F(AccessTest, CodeAndUnknownLinkTiersAreThrottledApart) {
  AccessDb db;
  ASSERT_TRUE(db.ok());
  for (int i = 0; i < 4; ++i) ASSERT_TRUE(db.record_failure(t0 + i, "c", "k", FailureKind::kCode));
  EXPECT_EQ(0, code_wait(db, t0 + 10, "c", "k"));
  ASSERT_TRUE(db.record_failure(t0 + 4, "c", "k", FailureKind::kCode));
  struct Case { time_t at; const char *client, *ssid; long wait; };
  for (const Case& c : {Case{t0 + 10, "c", "k", 890},  // the oldest of five leaves the window at t0 + 900
                        Case{t0 + 899, "c", "k", 1}, Case{t0 + 901, "c", "k", 0},
                        Case{t0 + 10, "c", "other", 0},  // another link of the same client
                        Case{t0 + 10, "d", "k", 0}}) {   // another client
    EXPECT_EQ(c.wait, code_wait(db, c.at, c.client, c.ssid)) << c.at << c.client << c.ssid;
  }
  for (int i = 0; i < 15; ++i) db.record_failure(t0 + 1000 + i, "c", "x" + std::to_string(i), FailureKind::kCode);
  EXPECT_EQ(3600 - 1010, code_wait(db, t0 + 1010, "c", "fresh"));
  EXPECT_EQ(0, code_wait(db, t0 + 3601, "c", "fresh"));
  // Forty unknown links throttle unknown links only.
  long wait = -1;
  for (int i = 0; i < 40; ++i) db.record_failure(t0 + i, "u", "guess" + std::to_string(i), FailureKind::kUnknownLink);
  EXPECT_EQ(0, code_wait(db, t0 + 50, "u", "k"));
  ASSERT_TRUE(db.unknown_wait(t0 + 50, "u", &wait)); EXPECT_EQ(3550, wait);
  ASSERT_TRUE(db.unknown_wait(t0 + 50, "c", &wait)); EXPECT_EQ(0, wait);
}

TEST_F(AccessTest, AFileOfAnEarlierVersionGainsTheFailureKind) {
  sqlite3* raw = nullptr;
  sqlite3_open(root.path("/etc/config/share_link_access.db").c_str(), &raw);
  sqlite3_exec(raw, "PRAGMA journal_mode=WAL; CREATE TABLE failure (t INTEGER, client TEXT, ssid TEXT);"
                    "INSERT INTO failure VALUES (1000000, 'c', 'k')", nullptr, nullptr, nullptr);
  sqlite3_close(raw);
  AccessDb db;
  ASSERT_TRUE(db.ok());
  for (int i = 0; i < 4; ++i) ASSERT_TRUE(db.record_failure(t0 + i, "c", "k", FailureKind::kCode));
  EXPECT_EQ(899, code_wait(db, t0 + 1, "c", "k"));  // the old row counts as a code
  EXPECT_EQ("delete", read_sql("PRAGMA journal_mode"));
}

// The clock: far ahead for one request it prunes nothing; gone back a day it
// never keeps a visitor waiting past the window.
TEST_F(AccessTest, TheClockIsNeverTrustedPastTheNewestRow) {
  {
    AccessDb db;
    for (int i = 0; i < 1000; ++i) db.audit(t0 + i, "k", "", "c", "ua", "view");
    for (int i = 0; i < 5; ++i) db.record_failure(t0 + 2000 + i, "c", "k", FailureKind::kCode);
    ASSERT_TRUE(db.prune(t0 + 2010));
    ASSERT_TRUE(db.prune(t0 + 100L * 86400));  // 100 days ahead
    db.audit(t0 + 100L * 86400, "k", "", "c", "ua", "view");
  }
  EXPECT_EQ(1001, rows("audit"));
  // A super-journal a killed count left behind goes with a prune; a live one stays.
  root.write("/etc/config/share_link_access.db-mjOLD", ""), root.write("/etc/config/share_link_access.db-mjNEW", "");
  root.set_mtime("/etc/config/share_link_access.db-mjOLD", t0 + 2010 - 86400 - 3600);
  root.set_mtime("/etc/config/share_link_access.db-mjNEW", t0 + 2010 - 86400);
  AccessDb db;
  const time_t back = t0 + 2010 - 86400;  // and a day back
  ASSERT_TRUE(db.prune(back));
  EXPECT_FALSE(root.exists("/etc/config/share_link_access.db-mjOLD"));
  EXPECT_TRUE(root.exists("/etc/config/share_link_access.db-mjNEW"));
  EXPECT_EQ(900, code_wait(db, back, "c", "k"));
  EXPECT_EQ(0, code_wait(db, back + 901, "c", "k"));
  // Pruning runs once a minute: rows older than the hour stay until then.
  ASSERT_TRUE(db.prune(back + 3700)); EXPECT_EQ(0, rows("failure"));
  const time_t x = back + 3701;
  db.record_failure(x, "c", "k", FailureKind::kCode);
  ASSERT_TRUE(db.prune(x + 3599)); EXPECT_EQ(1, rows("failure"));
  ASSERT_TRUE(db.prune(x + 3630)); EXPECT_EQ(1, rows("failure"));  // pruned 31 s ago
  ASSERT_TRUE(db.prune(x + 3660)); EXPECT_EQ(0, rows("failure"));
}

TEST_F(AccessTest, ACountCommitsWithItsVisitorAndAuditRowsOrNotAtAll) {
  make_store(root);
  FixtureLink limited("lim"), open("open");
  limited.download_limit = 1;
  insert_links(root, {limited, open});
  AccessDb db;
  CountedVisit v{t0, "lim", "v:1", "a:1", "", "c", "ua", "download"};
  EXPECT_EQ(CountOutcome::kCounted, db.count_download(v));
  v.visitor = "v:2", v.address_visitor = "a:2";
  EXPECT_EQ(CountOutcome::kLimitReached, db.count_download(v));
  bool yes = false;
  ASSERT_TRUE(db.counted_recently(t0 + 10, "v:1", "lim", "", &yes)); EXPECT_TRUE(yes);
  ASSERT_TRUE(db.counted_recently(t0 + 10, "a:1", "lim", "", &yes)); EXPECT_TRUE(yes);
  ASSERT_TRUE(db.counted_recently(t0 + 10, "a:2", "lim", "", &yes)); EXPECT_FALSE(yes);
  EXPECT_EQ("1", store_value(root, "SELECT download_count FROM SHARELINK_EVENT WHERE pkey='lim'"));
  // A step after the store's UPDATE fails (as a kill there would stop it):
  // the count does not land either.
  v.pkey = "open";
  sqlite3* raw = nullptr;
  sqlite3_open(root.path("/etc/config/share_link_access.db").c_str(), &raw);
  sqlite3_exec(raw, "CREATE TRIGGER cut BEFORE INSERT ON counted BEGIN SELECT RAISE(ABORT, 'cut'); END",
               nullptr, nullptr, nullptr);
  EXPECT_EQ(CountOutcome::kFailed, db.count_download(v));
  EXPECT_EQ("0", store_value(root, "SELECT download_count FROM SHARELINK_EVENT WHERE pkey='open'"));
  sqlite3_exec(raw, "DROP TRIGGER cut", nullptr, nullptr, nullptr), sqlite3_close(raw);
  EXPECT_EQ(CountOutcome::kCounted, db.count_download(v));
  // A store that is no database, or none at all: nothing counted, nothing
  // made, and the access file is not the one blamed.
  root.write("/etc/config/share_link.db", std::string(4096, 'x'));
  EXPECT_EQ(CountOutcome::kFailed, db.count_download(v));
  unlink(store_file(root).c_str());
  EXPECT_EQ(CountOutcome::kFailed, db.count_download(v));
  EXPECT_FALSE(root.exists("/etc/config/share_link.db"));
  EXPECT_EQ(4, rows("counted"));
  EXPECT_FALSE(root.exists("/etc/config/share_link_access.db.1"));
}

TEST(Cookie, BoundToKeyCodeSecretAndTime) {
  const time_t now = 2000000;
  const std::string s(32, 's'), c = make_share_cookie(s, "k", "code", now);
  const std::string fixed = "2043200.00112233445566778899aabb.";  // HMAC-SHA256 by Python's hmac below
  struct Case { std::string secret, key, code, value; time_t at; bool valid; };
  const Case cases[] = {
      {s, "k", "code", c, now, true},
      {s, "k", "code", c, now + kCookieLifetime - 1, true},
      {s, "k", "code", c, now + kCookieLifetime, false},
      {s, "k", "new", c, now, false},
      {s, "k2", "code", c, now, false},
      {std::string(32, 't'), "k", "code", c, now, false},
      {s, "k", "code", "9" + c, now, false},
      {s, "k", "code", c.substr(0, c.size() - 1), now, false},
      {s, "k", "code", "", now, false},
      {s, "k", "code", fixed + "5ec00acbcbdfeb8b10a82dcd5fc190466302cbd6a4831976055c29c6ad5298e7", now, true},
      {std::string(40, '\x01'), "key", "",
       fixed + "6a77fc79f1929c2b8c2f804ccb2a7f90a664b3971f50660b20f47c383f33b7cc", now, true},
  };
  for (const Case& x : cases) {
    EXPECT_EQ(x.valid, share_cookie_valid(x.secret, x.key, x.code, x.value, x.at)) << x.value;
  }
  EXPECT_NE(c, make_share_cookie(s, "k", "code", now));  // each login is its own visitor
  EXPECT_TRUE(share_code_matches("a b", "a b")); EXPECT_FALSE(share_code_matches("a b", "a b "));
}

TEST(ShareRequest, RangesIncludingSuffixesAndNothingLenient) {
  struct Case { const char* spec; unsigned long long size; RangeOutcome outcome; unsigned long long start, end; };
  const Case cases[] = {
      {"0-9", 10, RangeOutcome::kPartial, 0, 9},     {"5-100", 10, RangeOutcome::kPartial, 5, 9},
      {"5-", 10, RangeOutcome::kPartial, 5, 9},      {"-3", 10, RangeOutcome::kPartial, 7, 9},
      {"-30", 10, RangeOutcome::kPartial, 0, 9},     {"-0", 10, RangeOutcome::kUnsatisfiable, 0, 9},
      {"10-", 10, RangeOutcome::kUnsatisfiable, 0, 9}, {"5-4", 10, RangeOutcome::kUnsatisfiable, 0, 9},
      {"0-", 0, RangeOutcome::kUnsatisfiable, 0, ~0ULL}, {"1-2,4-5", 10, RangeOutcome::kMultiple, 0, 9},
      {"0--5", 10, RangeOutcome::kWhole, 0, 9},      {"+1-5", 10, RangeOutcome::kWhole, 0, 9},
      {" 1-5", 10, RangeOutcome::kWhole, 0, 9},      {"1-5x", 10, RangeOutcome::kWhole, 0, 9},
      {"99999999999999999999999-", 10, RangeOutcome::kUnsatisfiable, 0, 9},
  };
  for (const Case& c : cases) {
    unsigned long long start = 1, end = 1;
    EXPECT_EQ(c.outcome, parse_share_range(c.spec, c.size, &start, &end)) << c.spec;
    EXPECT_EQ(c.start, start) << c.spec; EXPECT_EQ(c.end, end) << c.spec;
  }
}

TEST(ShareRequest, PathsAndClients) {
  for (auto [addr, key] : {std::pair<const char*, const char*>{"192.0.2.7", "192.0.2.7"},
                           {"2001:db8:1:2:aaaa:bbbb:cccc:dddd", "2001:db8:1:2::/64"},
                           {"2001:db8:1:2::1", "2001:db8:1:2::/64"},
                           {"::ffff:192.0.2.7", "192.0.2.7"}, {"junk", "junk"}}) {
    EXPECT_EQ(key, client_key(addr)) << addr;
  }
  for (auto [rel, safe] : {std::pair<const char*, bool>{"a/b.txt", true}, {"", true}, {"a//b", true},
                           {"a/.hidden", false}, {".links/share_link.db", false}, {"a/.@kdx", false},
                           {"../x", false}, {"/etc", false}, {"a\\b", false}, {"x..y/z", true}}) {
    EXPECT_EQ(safe, share_path_is_safe(rel)) << rel;
  }
}

}  // namespace
