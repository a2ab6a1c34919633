// The share page's lookup: found, no such key, or a store that cannot be read.
#include <fstream>
#include <functional>
#include "sharelink_db/link_lookup.h"
#include "store_test_util.h"

namespace {
const std::string kDb = "/etc/config/share_link.db";
std::string outcome(const std::string& key, LinkRow* row) {
  switch (sf_lookup_link(key, row)) {
    case LinkLookup::kFound: return "found";
    case LinkLookup::kNoSuchKey: return "none";
    case LinkLookup::kUnreadable: return "unreadable";
  }
  return "?";
}
TEST_F(StoreTest, LookupFindsALinkWithItsFiles) {
  make_store(root);
  FixtureLink k1("k1"); k1.sharefile = "/Public/a"; k1.creator = "bob"; k1.accesscode = "c0de";
  k1.expire = 2000000000; k1.download_count = 3; k1.download_limit = 5;
  insert_links(root, {k1, {"k2"}});
  insert_fids(root, {{"k1", "f2", "/Public/a/y"}, {"k2", "f9", "/x"}, {"k1", "f1", "/Public/a/x"}});
  store_exec(root, "UPDATE SHARELINK_EVENT SET expire = 4102444800, accesscode = NULL WHERE pkey = 'k2'");
  LinkRow row;
  ASSERT_EQ("found", outcome("k1", &row));
  EXPECT_EQ((Strings{"k1", "/Public/a", "bob", "c0de"}), (Strings{row.pkey, row.sharefile, row.creator, row.accesscode}));
  EXPECT_EQ((std::vector<long long>{2000000000, 3, 5}), (std::vector<long long>{row.expire, row.download_count, row.download_limit}));
  EXPECT_EQ((std::vector<std::pair<std::string, std::string>>{{"f2", "/Public/a/y"}, {"f1", "/Public/a/x"}}), row.fids);
  ASSERT_EQ("found", outcome("k2", &row));
  EXPECT_EQ(4102444800LL, row.expire); EXPECT_EQ("", row.accesscode); EXPECT_EQ(1u, row.fids.size());
  EXPECT_EQ("none", outcome("k3", &row)); EXPECT_EQ("", row.pkey); EXPECT_TRUE(row.fids.empty());
  EXPECT_EQ("none", outcome("k1' OR '1'='1", &row));
}
// No store file (none is made), a file that is no store, damaged pages, a missing table: never "none".
TEST_F(StoreTest, LookupTellsAStoreThatCannotBeRead) {
  auto damage_pages = [this] {
    make_store(root); insert_numbered_links(root, 3000);
    std::fstream f(root.path(kDb), std::ios::in | std::ios::out | std::ios::binary);
    f.seekg(0, std::ios::end); long pages = static_cast<long>(f.tellg()) / 4096;
    for (long p = 2; p < pages; ++p) { f.seekp(p * 4096 + 100); f.write(std::string(400, 'U').data(), 400); }
  };
  const struct { const char* what; std::function<void()> make; } cases[] = {
      {"missing", [] {}},
      {"empty file", [this] { root.write(kDb, ""); }},
      {"no database", [this] { root.write(kDb, std::string(8192, '#')); }},
      {"damaged pages", damage_pages},
      {"no file table", [this] { make_store(root); insert_links(root, {{"key00007"}}); store_exec(root, "DROP TABLE SHARELINK_FID"); }},
      {"no folder", [this] { make_store_unopenable(); }},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what); root.remove(kDb); configure(""); c.make();
    LinkRow row; row.pkey = "stale";
    EXPECT_EQ("unreadable", outcome("key00007", &row)); EXPECT_EQ("", row.pkey);
    if (std::string(c.what) == "missing") EXPECT_FALSE(root.exists(kDb));
  }
}
}  // namespace
