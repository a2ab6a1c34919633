// share.cgi's time windows against a fixed clock: throttling, repeats, cookie expiry.
#include <gtest/gtest.h>

#include "share_page/access_db.h"
#include "share_page/cookie.h"
#include "share_page/share_main.h"
#include "support/appliance.h"

namespace {

TEST(Throttle, WindowsOfFifteenMinutesAndOneHour) {
  ApplianceRoot root;
  ScopedEnv env{{{"SHARELINK_ROOT", root.dir()}}};
  root.mkdirs("/etc/config");
  AccessDb db;
  ASSERT_TRUE(db.ok());
  const time_t t0 = 1000000;
  for (int i = 0; i < 4; ++i) db.record_failure(t0 + i, "c", "k");
  EXPECT_EQ(0, db.retry_after(t0 + 10, "c", "k"));
  db.record_failure(t0 + 4, "c", "k");
  struct Case { time_t at; const char *client, *ssid; long wait; };
  for (const Case& c : {Case{t0 + 10, "c", "k", 890},  // the oldest of five leaves the window at t0 + 900
                        Case{t0 + 899, "c", "k", 1}, Case{t0 + 901, "c", "k", 0},
                        Case{t0 + 10, "c", "other", 0},  // another link of the same client
                        Case{t0 + 10, "d", "k", 0}}) {   // another client
    EXPECT_EQ(c.wait, db.retry_after(c.at, c.client, c.ssid)) << c.at << c.client << c.ssid;
  }
  for (int i = 0; i < 15; ++i) db.record_failure(t0 + 1000 + i, "c", "x" + std::to_string(i));
  EXPECT_EQ(3600 - 1010, db.retry_after(t0 + 1010, "c", "fresh"));
  EXPECT_EQ(0, db.retry_after(t0 + 3601, "c", "fresh"));

  db.record_counted(t0, "v", "k", "fid:1");
  EXPECT_TRUE(db.counted_recently(t0 + 3599, "v", "k", "fid:1"));
  EXPECT_FALSE(db.counted_recently(t0 + 3601, "v", "k", "fid:1"));
  EXPECT_FALSE(db.counted_recently(t0 + 1, "v", "k", "fid:2"));
  EXPECT_FALSE(db.counted_recently(t0 + 1, "w", "k", "fid:1"));
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

TEST(ClientKey, IPv6CountsByItsSlash64) {
  for (auto [addr, key] : {std::pair<const char*, const char*>{"192.0.2.7", "192.0.2.7"},
                           {"2001:db8:1:2:aaaa:bbbb:cccc:dddd", "2001:db8:1:2::/64"},
                           {"2001:db8:1:2::1", "2001:db8:1:2::/64"},
                           {"::ffff:192.0.2.7", "192.0.2.7"}, {"junk", "junk"}}) {
    EXPECT_EQ(key, client_key(addr)) << addr;
  }
}

}  // namespace
