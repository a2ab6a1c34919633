// Test stores made with the real schema (slt_sharelink_db linked) in an ApplianceRoot, rows put
// in fast through SQLite and read back. Helpers throw std::runtime_error when SQLite fails.
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
  FixtureLink(std::string key, std::string host_name) : pkey(std::move(key)), host(std::move(host_name)) {}
  std::string pkey, host = "nas.example", sharefile = "/share/Public/file.txt", useraddr, filesize = "0";
  std::string creator = "admin", accesscode, misc = "00000001", create_date, create_time, title, description;
  std::string link_name;
  int ssl = 0, createtic = 0, expire = 0, download_count = 0, download_limit = 0, type = 0;
};
struct FixtureFid { std::string pkey, fid, sharefile; };
struct FixtureUser { std::string pkey, user, description, email; };
extern const char kFixtureNull[];  // a NULL column as store_rows() gives it: "<null>"
// The configured store path as a file-system path under the root.
std::string store_file(const ApplianceRoot& root);
// The tables of a new store (EVENT, FID, USER), `with_acx` SHARELINK_ACX, `with_trigger` the trigger.
void make_store(const ApplianceRoot& root, bool with_acx = false, bool with_trigger = false);
void insert_links(const ApplianceRoot& root, const std::vector<FixtureLink>& links);
void insert_fids(const ApplianceRoot& root, const std::vector<FixtureFid>& fids);
void insert_users(const ApplianceRoot& root, const std::vector<FixtureUser>& users);
// A statement's rows, each column as text (kFixtureNull for NULL).
std::vector<std::vector<std::string>> store_rows(const ApplianceRoot& root, const std::string& sql);
std::string store_value(const ApplianceRoot& root, const std::string& sql);  // of one row, one column
void store_exec(const ApplianceRoot& root, const std::string& sql);
#endif  // SLT_TESTS_SUPPORT_STORE_FIXTURE_H_
