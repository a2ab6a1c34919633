// File, access and recipient rows, and the joined selects.
#include <cstring>

#include "sharelink_db/acx_rows.h"
#include "sharelink_db/event_rows.h"
#include "sharelink_db/fid_rows.h"
#include "sharelink_db/joined_rows.h"
#include "sharelink_db/user_rows.h"
#include "store_test_util.h"

namespace {

using Rows = std::vector<std::vector<std::string>>;

ShareLinkFidRecord fid(const char* pkey, const char* id, const char* path) {
  ShareLinkFidRecord r{};
  snprintf(r.pkey, sizeof r.pkey, "%s", pkey);
  snprintf(r.fid, sizeof r.fid, "%s", id);
  snprintf(r.sharefile, sizeof r.sharefile, "%s", path);
  return r;
}

ShareLinkUserRecord user(const char* pkey, const char* name, const char* description,
                         const char* email) {
  ShareLinkUserRecord r{};
  snprintf(r.pkey, sizeof r.pkey, "%s", pkey);
  snprintf(r.user, sizeof r.user, "%s", name);
  snprintf(r.description, sizeof r.description, "%s", description);
  snprintf(r.email, sizeof r.email, "%s", email);
  return r;
}

class CompanionTest : public StoreTest {
 protected:
  void SetUp() override {
    StoreTest::SetUp();
    make_store(root, true);
  }
};

TEST_F(CompanionTest, FileRows) {
  ShareLinkFidRecord rows[] = {fid("k1", "f1", "/share/A/one"), fid("k1", "f2", "/share/A/two"),
                               fid("k2", "f3", "/share/B/Three")};
  ASSERT_EQ(0, sf_fid_insert_many(rows, 3));
  EXPECT_EQ((Rows{{"k1", "f1", "/share/A/one"}, {"k1", "f2", "/share/A/two"}, {"k2", "f3", "/share/B/Three"}}),
            store_rows(root, "SELECT * FROM SHARELINK_FID ORDER BY fid"));
  ShareLinkFidRecord f{};
  snprintf(f.sharefile, sizeof f.sharefile, "/share/A");
  EXPECT_EQ(2, sf_fid_count_filter(&f));
  snprintf(f.sharefile, sizeof f.sharefile, "three");  // LIKE is case-sensitive
  EXPECT_EQ(0, sf_fid_count_filter(&f));

  ShareLinkFidRecord out[3];
  SfFidRows read{out, 3, 0, 0};
  ASSERT_EQ(0, sf_fid_select(sf_fill_fid_rows, 5, 1, 3, &read));
  ASSERT_EQ(2, read.count);
  EXPECT_STREQ("f2", out[0].fid);  // sharefile descending, from the second
  EXPECT_STREQ("/share/A/one", out[1].sharefile);
  EXPECT_EQ(-11, sf_fid_select(sf_fill_fid_rows, 6, 0, 0, &read));
  f = ShareLinkFidRecord{};
  snprintf(f.pkey, sizeof f.pkey, "k1");
  read = {out, 3, 0, 0};
  ASSERT_EQ(0, sf_fid_select_filter(sf_fill_fid_rows, &f, 3, 0, 0, &read));
  ASSERT_EQ(2, read.count);
  EXPECT_STREQ("f2", out[0].fid);

  // A failing row rolls back the whole batch.
  store_exec(root, "CREATE TRIGGER refuse BEFORE INSERT ON SHARELINK_FID WHEN NEW.fid = 'bad' "
                   "BEGIN SELECT RAISE(ABORT, 'no'); END;");
  ShareLinkFidRecord batch[] = {fid("k3", "ok", "/p"), fid("k3", "bad", "/p")};
  EXPECT_EQ(-23, sf_fid_insert_many(batch, 2));
  EXPECT_EQ(3, sf_fid_count());
  EXPECT_EQ(-11, sf_fid_insert_many(nullptr, 1));
}

TEST_F(CompanionTest, FileRowUpdatesAndDeletes) {
  insert_fids(root, {{"k1", "f1", "/a"}, {"k1", "f2", "/b"}, {"k2", "f3", "/c"}});
  ShareLinkFidRecord r = fid("", "", "");
  EXPECT_EQ(-11, sf_fid_update(&r));
  r = fid("", "f3", "/moved");
  ASSERT_EQ(0, sf_fid_update(&r));
  r = fid("k1", "f2", "/b2");
  ASSERT_EQ(0, sf_fid_update_by_keys(&r));
  r = fid("k1", "", "/x");
  EXPECT_EQ(-11, sf_fid_update_by_keys(&r));
  EXPECT_EQ((Rows{{"k1", "f1", "/a"}, {"k1", "f2", "/b2"}, {"k2", "f3", "/moved"}}),
            store_rows(root, "SELECT * FROM SHARELINK_FID ORDER BY fid"));

  EXPECT_EQ(-11, sf_fid_delete_by_field(3, "x"));
  EXPECT_EQ(-11, sf_fid_delete_by_field(0, nullptr));
  EXPECT_EQ(0, sf_fid_delete_by_field(2, "/moved"));
  r = fid("k1", "", "");
  EXPECT_EQ(0, sf_fid_delete_filter(&r));
  EXPECT_EQ(0, sf_fid_count());
  EXPECT_EQ(0, sf_fid_delete_all());
  EXPECT_EQ(0, sf_fid_drop());
  EXPECT_EQ(-21, sf_fid_drop());
  EXPECT_EQ(-22, sf_fid_delete_all());
}

TEST_F(CompanionTest, AccessRows) {
  ShareLinkAcxRecord a{};
  snprintf(a.pkey, sizeof a.pkey, "k1");
  snprintf(a.acx, sizeof a.acx, "rw");
  ASSERT_EQ(0, sf_acx_insert(&a));
  snprintf(a.pkey, sizeof a.pkey, "k2");
  ASSERT_EQ(0, sf_acx_insert(&a));
  ShareLinkAcxRecord f{};
  snprintf(f.acx, sizeof f.acx, "rw");
  EXPECT_EQ(2, sf_acx_count_filter(&f));
  EXPECT_EQ(0, sf_acx_select(nullptr, 3, 0, 0, nullptr));
  EXPECT_EQ(-11, sf_acx_select(nullptr, 4, 0, 0, nullptr));
  // No pkey: the rows are chosen by acx.
  snprintf(f.acx, sizeof f.acx, "ro");
  ShareLinkAcxRecord no_key{};
  EXPECT_EQ(-11, sf_acx_update(&no_key));
  ShareLinkAcxRecord u{};
  snprintf(u.pkey, sizeof u.pkey, "k2");
  snprintf(u.acx, sizeof u.acx, "ro");
  ASSERT_EQ(0, sf_acx_update(&u));
  ShareLinkAcxRecord out[2];
  SfAcxRows read{out, 2, 0, 0};
  ASSERT_EQ(0, sf_acx_select_filter(sf_fill_acx_rows, &f, 0, 0, 0, &read));
  ASSERT_EQ(1, read.count);
  EXPECT_STREQ("k2", out[0].pkey);
  memset(a.acx, 'x', sizeof a.acx);
  EXPECT_EQ(-10, sf_acx_insert(&a));
  EXPECT_EQ(-11, sf_acx_delete_by_field(2, "k1"));
  EXPECT_EQ(0, sf_acx_delete_by_field(0, "k1"));
  EXPECT_EQ(1, sf_acx_count());
  EXPECT_EQ(0, sf_acx_delete_filter(&f));
  EXPECT_EQ(0, sf_acx_count());
}

TEST_F(CompanionTest, RecipientRowsKeepTheirSortTexts) {
  insert_users(root, {{"k1", "amy", "d1", "amy@x.example"}, {"k1", "bob", "d2", "bob@y.example"},
                      {"k2", "cat", "d3", "cat@x.example"}});
  ShareLinkUserRecord f = user("", "", "", "x.example");
  EXPECT_EQ(2, sf_user_count_filter(&f));
  for (int sort = 0; sort <= 7; ++sort) EXPECT_EQ(0, sf_user_select(nullptr, sort, 0, 0, nullptr));
  EXPECT_EQ(-11, sf_user_select(nullptr, 8, 0, 0, nullptr));
  // The filtered select: "desctiption" fails, "ORDER BY email" meets the paging text.
  EXPECT_EQ(-24, sf_user_select_filter(nullptr, &f, 4, 0, 0, nullptr));
  EXPECT_EQ(-24, sf_user_select_filter(nullptr, &f, 5, 0, 0, nullptr));
  // Codes 0-3 and 6-7 select, each in its order; email LIKE is a substring match.
  struct Case {
    int sort, end;
    const char* users;
  };
  for (const Case& c : {Case{0, 0, "amycat"}, Case{1, 0, "catamy"}, Case{2, 0, "amycat"},
                        Case{3, 0, "catamy"}, Case{6, 5, "amycat"}, Case{7, 0, "catamy"},
                        Case{6, 1, "amy"}}) {
    ShareLinkUserRecord out[3];
    SfUserRows read{out, 3, 0, 0};
    ASSERT_EQ(0, sf_user_select_filter(sf_fill_user_rows, &f, c.sort, 0, c.end, &read)) << c.sort;
    std::string users;
    for (int i = 0; i < read.count; ++i) users += out[i].user;
    EXPECT_EQ(c.users, users) << c.sort;
  }
  EXPECT_EQ(-11, sf_user_select_filter(nullptr, &f, 8, 0, 0, nullptr));
  EXPECT_EQ(-11, sf_user_select_filter(nullptr, &f, -1, 0, 0, nullptr));
}

TEST_F(CompanionTest, RecipientUpdatesAndDeletes) {
  insert_users(root, {{"k1", "amy", "d1", "a@x"}, {"k2", "amy", "d2", "b@x"}});
  ShareLinkUserRecord r = user("", "amy", "", "new@x");
  ASSERT_EQ(0, sf_user_update(&r));  // by user: both rows
  EXPECT_EQ("2", store_value(root, "SELECT COUNT(*) FROM SHARELINK_USER WHERE email = 'new@x'"));
  r = user("k1", "amy", "only", "");
  ASSERT_EQ(0, sf_user_update_by_keys(&r));
  EXPECT_EQ((Rows{{"k1", "only"}, {"k2", "d2"}}),
            store_rows(root, "SELECT pkey, description FROM SHARELINK_USER ORDER BY pkey"));
  r = user("k1", "amy", "", "");
  EXPECT_EQ(-28, sf_user_update_by_keys(&r));  // nothing to set
  r = user("k1", "", "x", "");
  EXPECT_EQ(-11, sf_user_update_by_keys(&r));
  EXPECT_EQ(-11, sf_user_delete_by_field(4, "x"));
  EXPECT_EQ(0, sf_user_delete_by_field(2, "only"));
  EXPECT_EQ(1, sf_user_count());
  memset(r.user, 'u', sizeof r.user);
  EXPECT_EQ(-10, sf_user_insert(&r));
  EXPECT_EQ(-10, sf_user_count_filter(&r));
}

TEST_F(CompanionTest, JoinedSelectsBringTheLinkAlong) {
  std::vector<FixtureLink> links = {{"k1"}, {"k2"}, {"k3"}};
  links[0].filesize = "10";
  links[1].filesize = "20";
  insert_links(root, links);
  insert_fids(root, {{"k1", "f1", "/a"}, {"k1", "f2", "/b"}, {"k2", "f3", "/c"}, {"gone", "f4", "/d"}});
  insert_users(root, {{"k1", "amy", "", "amy@x"}, {"k2", "bob", "", "bob@x"}});

  ShareLinkFidJoinRecord fj[4];
  SfFidJoinRows fread{fj, 4, 0, 0};
  ShareLinkFidRecord ff{};
  ASSERT_EQ(0, sf_fid_join_select(sf_fill_fid_join_rows, &ff, 3, 0, 0, &fread));
  ASSERT_EQ(4, fread.count);
  EXPECT_STREQ("f4", fj[0].fid.fid);
  EXPECT_STREQ("----", fj[0].event.pkey);  // link gone: NULL link columns
  EXPECT_STREQ("k1", fj[3].event.pkey);
  EXPECT_EQ(-11, sf_fid_join_select(nullptr, &ff, 6, 0, 0, nullptr));

  ShareLinkUserJoinRecord uj[2];
  SfUserJoinRows uread{uj, 2, 0, 0};
  ShareLinkUserRecord uf{};
  ASSERT_EQ(0, sf_user_join_select(sf_fill_user_join_rows, &uf, 11, 0, 0, &uread));
  ASSERT_EQ(2, uread.count);
  EXPECT_STREQ("bob", uj[0].user.user);  // filesize descending
  EXPECT_STREQ("20", uj[0].event.filesize);
  EXPECT_EQ(-24, sf_user_join_select(nullptr, &uf, 12, 0, 0, nullptr));  // start_time
  EXPECT_EQ(0, sf_user_join_select(nullptr, &uf, 8, 0, 0, nullptr));    // no ordering
  EXPECT_EQ(0, sf_user_join_select(nullptr, &uf, 4, 0, 0, nullptr));
  EXPECT_EQ(-11, sf_user_join_select(nullptr, &uf, 38, 0, 0, nullptr));

  // File counts: k3 has no files and is left out.
  ShareLinkCountRecord counts[3];
  SfCountRows cread{counts, 3, 0, 0};
  ASSERT_EQ(0, sf_event_fid_count_select(sf_fill_count_rows, 0, 0, 0, &cread));
  ASSERT_EQ(2, cread.count);
  EXPECT_STREQ("k1", counts[0].event.pkey);
  EXPECT_EQ(2, counts[0].file_count);
  EXPECT_EQ(1, counts[1].file_count);
  ShareLinkRecord f = empty_filter();
  snprintf(f.creator, sizeof f.creator, "admin");
  cread = {counts, 3, 0, 0};
  ASSERT_EQ(0, sf_event_fid_count_select_filter(sf_fill_count_rows, &f, 1, 0, 1, &cread));
  ASSERT_EQ(1, cread.count);
  EXPECT_STREQ("k2", counts[0].event.pkey);
  // A key condition names a column both sides of the join have.
  f = empty_filter();
  snprintf(f.pkey, sizeof f.pkey, "k1");
  EXPECT_EQ(-24, sf_event_fid_count_select_filter(nullptr, &f, 0, 0, 0, nullptr));
}

}  // namespace
