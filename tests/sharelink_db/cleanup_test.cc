// Link removal by key, the uncommitted expiry mode, and the orphan deletes.
#include "sharelink_db/cleanup.h"
#include "sharelink_db/event_rows.h"
#include "store_test_util.h"

namespace {
// Links a (expiring 100), b (200), c (0), d (300); files of a, b, x; recipients of a, x.
struct CleanupTest : StoreTest {
  void SetUp() override {
    StoreTest::SetUp(); make_store(root); std::vector<FixtureLink> links = {{"a"}, {"b"}, {"c"}, {"d"}};
    links[0].expire = 100, links[1].expire = 200, links[3].expire = 300; insert_links(root, links);
    insert_fids(root, {{"a", "1", "/a"}, {"b", "2", "/b"}, {"x", "3", "/x"}});
    insert_users(root, {{"a", "amy", "", ""}, {"x", "bob", "", ""}});
  }
  std::string keys() {
    std::string out;
    for (const char* t : {"EVENT", "FID", "USER"}) {
      out += store_value(root, std::string("SELECT ifnull(group_concat(pkey, ''), '') || ' ' FROM (SELECT pkey FROM "
                                           "SHARELINK_") + t + " ORDER BY pkey)");
    }
    return out;
  }
};
TEST_F(CleanupTest, DeletesLinksWithTheirFilesAndOrphans) {
  const char* list[] = {"b", "c", nullptr};
  EXPECT_EQ((Ints{0, -11}), (Ints{sf_delete_link(0, "a"), sf_delete_link(0, nullptr)}));
  EXPECT_EQ("bcd bx ax ", keys());
  EXPECT_EQ((Ints{0, -11}), (Ints{sf_delete_links(0, list), sf_delete_links(0, nullptr)}));
  EXPECT_EQ("d x ax ", keys());
  EXPECT_EQ((Ints{0, 0}), (Ints{sf_delete_orphan_fid(), sf_delete_orphan_user()})); EXPECT_EQ("d   ", keys());
  insert_links(root, {{"e"}}), insert_fids(root, {{"e", "9", "/e"}});
  EXPECT_EQ(0, sf_delete_event_without_fid()); EXPECT_EQ("e e  ", keys());
  store_exec(root, "DROP TABLE SHARELINK_USER;"); EXPECT_EQ(-27, sf_delete_orphan_user());
  make_store_unopenable();
  EXPECT_EQ((Ints{-20, -20}), (Ints{sf_delete_orphan_fid(), sf_delete_link(0, "e")}));
}
TEST_F(CleanupTest, ExpiryDeletesUpToAndWith) {  // 0 never expires
  EXPECT_EQ(0, sf_delete_expired(200));
  EXPECT_EQ("cd abx ax ", keys());
}
// Mode 7 never commits its delete; its connection stays open until the next store operation.
TEST_F(CleanupTest, ExpiryModeIsNeverCommitted) {
  const char* list[] = {"250", nullptr};
  const char* empty[] = {nullptr};
  EXPECT_EQ((Ints{-11, 1}), (Ints{sf_delete_link(7, "250"), sf_parked_connection_count()}));
  EXPECT_EQ("abcd abx ax ", keys());  // another connection still sees every link
  EXPECT_EQ((Ints{4, 0}), (Ints{sf_event_count(), sf_parked_connection_count()}));
  // Any other mode once the transaction has begun.
  EXPECT_EQ((Ints{-11, -11, 1}), (Ints{sf_delete_links(7, list), sf_delete_link(3, "a"), sf_parked_connection_count()}));
  sf_release_parked_connections(); EXPECT_EQ("abcd abx ax ", keys());
  EXPECT_EQ(-11, sf_delete_links(7, empty));
}
}  // namespace
