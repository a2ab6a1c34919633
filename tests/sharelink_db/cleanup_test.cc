// Link removal by key, the uncommitted expiry mode, and the orphan deletes.
#include "sharelink_db/cleanup.h"
#include "sharelink_db/event_rows.h"
#include "store_test_util.h"

namespace {

// Links a (expires 100), b (200), c (never), d (300); files of a, b and the
// gone x; recipients of a and x.
struct CleanupTest : StoreTest {
  void SetUp() override {
    StoreTest::SetUp(); make_store(root);
    std::vector<FixtureLink> links = {{"a"}, {"b"}, {"c"}, {"d"}};
    links[0].expire = 100, links[1].expire = 200, links[3].expire = 300; insert_links(root, links);
    insert_fids(root, {{"a", "1", "/a"}, {"b", "2", "/b"}, {"x", "3", "/x"}});
    insert_users(root, {{"a", "amy", "", ""}, {"x", "bob", "", ""}});
  }
  std::string keys(const char* table) {
    return store_value(root, std::string("SELECT ifnull(group_concat(pkey, ''), '') FROM (SELECT pkey FROM ") +
                                 table + " ORDER BY pkey)");
  }
};

TEST_F(CleanupTest, DeletesALinkWithItsFiles) {
  EXPECT_EQ(0, sf_delete_link(0, "a")); EXPECT_EQ("bcd", keys("SHARELINK_EVENT"));
  EXPECT_EQ("bx", keys("SHARELINK_FID"));
  const char* list[] = {"b", "c", nullptr};
  EXPECT_EQ(0, sf_delete_links(0, list)); EXPECT_EQ("d", keys("SHARELINK_EVENT"));
  EXPECT_EQ("x", keys("SHARELINK_FID")); EXPECT_EQ(-11, sf_delete_link(0, nullptr));
  EXPECT_EQ(-11, sf_delete_links(0, nullptr));
}

// Mode 7 runs its delete but never commits it; its connection stays open
// (with the write pending) until the process's next store operation.
TEST_F(CleanupTest, ExpiryModeIsNeverCommitted) {
  EXPECT_EQ(-11, sf_delete_link(7, "250")); EXPECT_EQ(1, sf_parked_connection_count());
  EXPECT_EQ("abcd", keys("SHARELINK_EVENT"));  // another connection still sees every link
  EXPECT_EQ(4, sf_event_count());
  EXPECT_EQ(0, sf_parked_connection_count());
  const char* list[] = {"250", nullptr};
  EXPECT_EQ(-11, sf_delete_links(7, list));
  EXPECT_EQ(-11, sf_delete_link(3, "a"));  // any other mode once the transaction has begun
  EXPECT_EQ(1, sf_parked_connection_count());
  sf_release_parked_connections(); EXPECT_EQ("abcd", keys("SHARELINK_EVENT"));
  const char* empty[] = {nullptr};
  EXPECT_EQ(-11, sf_delete_links(7, empty));
}

TEST_F(CleanupTest, OrphanAndExpiryDeletes) {
  EXPECT_EQ(0, sf_delete_expired(200));  // up to and with 200; 0 never expires
  EXPECT_EQ("cd", keys("SHARELINK_EVENT"));
  EXPECT_EQ(0, sf_delete_orphan_fid()); EXPECT_EQ("", keys("SHARELINK_FID"));
  EXPECT_EQ(0, sf_delete_orphan_user()); EXPECT_EQ("", keys("SHARELINK_USER"));
  insert_fids(root, {{"c", "9", "/c"}}); EXPECT_EQ(0, sf_delete_event_without_fid());
  EXPECT_EQ("c", keys("SHARELINK_EVENT")); store_exec(root, "DROP TABLE SHARELINK_USER;");
  EXPECT_EQ(-27, sf_delete_orphan_user()); make_store_unopenable();
  EXPECT_EQ(-20, sf_delete_orphan_fid()); EXPECT_EQ(-20, sf_delete_link(0, "c"));
}

}  // namespace
