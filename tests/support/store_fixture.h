// Test stores: a share-link store made with the real schema inside an
// ApplianceRoot, rows put in quickly through SQLite directly (one prepared
// statement, one transaction: thousands of links in well under a second),
// and rows read back. Helpers throw std::runtime_error when SQLite fails.
//
// Link tests need slt_sharelink_db linked (the store library builds the
// schema).
#ifndef SLT_TESTS_SUPPORT_STORE_FIXTURE_H_
#define SLT_TESTS_SUPPORT_STORE_FIXTURE_H_

#include <string>
#include <utility>
#include <vector>

#include "support/appliance.h"

// One SHARELINK_EVENT row. Empty create_date / create_time take today / now.
struct FixtureLink {
  FixtureLink() = default;
  FixtureLink(std::string key) : pkey(std::move(key)) {}  // NOLINT: brace lists of keys
  FixtureLink(std::string key, std::string host_name)
      : pkey(std::move(key)), host(std::move(host_name)) {}

  std::string pkey, host = "nas.example";
  int ssl = 0;
  std::string sharefile = "/share/Public/file.txt", useraddr, filesize = "0";
  int createtic = 0, expire = 0;
  std::string creator = "admin", accesscode;
  int download_count = 0, download_limit = 0;
  std::string misc = "00000001", create_date, create_time, title, description;
  int type = 0;
  std::string link_name;
};

struct FixtureFid { std::string pkey, fid, sharefile; };
struct FixtureUser { std::string pkey, user, description, email; };

// A NULL column as store_rows() gives it.
extern const char kFixtureNull[];  // "<null>"

// The configured store path (the default "/etc/config/share_link.db" unless
// Korvix.conf names another) as a file-system path under the root.
std::string store_file(const ApplianceRoot& root);

// Makes the store's tables (EVENT, FID, USER) as start-up does for a new
// store. With `with_acx` also SHARELINK_ACX, and with `with_trigger` the
// size-limiting trigger.
void make_store(const ApplianceRoot& root, bool with_acx = false, bool with_trigger = false);
// A store of an older release: fewer columns, two old indexes, no trigger;
// link k1 (host h, ssl 1, /share/A, u@x, size 12, tic 5, expiry 7, creator bob, code c,
// counts 2 and 3, misc m, 2020-01-01 10:00:00) with file f1 and recipient amy,
// and the file f2 of a link that is gone.
void make_old_store(const ApplianceRoot& root);

void insert_links(const ApplianceRoot& root, const std::vector<FixtureLink>& links);
void insert_fids(const ApplianceRoot& root, const std::vector<FixtureFid>& fids);
void insert_users(const ApplianceRoot& root, const std::vector<FixtureUser>& users);

// `n` links "key00000", "key00001", ... of `creator`, created one second apart
// from 2024-01-01 00:00:00 UTC on (createtic, create_date and create_time
// agree), in one transaction.
void insert_numbered_links(const ApplianceRoot& root, int n, const std::string& creator = "admin");

// Runs a statement on the store file and returns its rows, each column as
// text (kFixtureNull for NULL).
std::vector<std::vector<std::string>> store_rows(const ApplianceRoot& root, const std::string& sql);
// The single value of a one-row, one-column query.
std::string store_value(const ApplianceRoot& root, const std::string& sql);
// Runs statements on the store file (for building odd stores in tests).
void store_exec(const ApplianceRoot& root, const std::string& sql);

#endif  // SLT_TESTS_SUPPORT_STORE_FIXTURE_H_
