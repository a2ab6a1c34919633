// The operations every table shares, over all four; then the file, access
// and recipient rows' own, and the joined selects.
#include <cstring>

#include "sharelink_db/acx_rows.h"
#include "sharelink_db/event_rows.h"
#include "sharelink_db/fid_rows.h"
#include "sharelink_db/joined_rows.h"
#include "sharelink_db/user_rows.h"
#include "store_test_util.h"

namespace {

ShareLinkFidRecord fid(const char* pkey, const char* id, const char* path) {
  ShareLinkFidRecord r{};
  return put(r.pkey, pkey), put(r.fid, id), put(r.sharefile, path), r;
}
ShareLinkUserRecord user(const char* pkey, const char* name, const char* description, const char* email) {
  ShareLinkUserRecord r{};
  return put(r.pkey, pkey), put(r.user, name), put(r.description, description), put(r.email, email), r;
}

struct CompanionTest : StoreTest {
  void SetUp() override { StoreTest::SetUp(), make_store(root, true); }
};

struct Table {
  const char* name;
  int ncolumns, nsorts;
  int (*count)();
  int (*select)(SfRowCallback, int, int, int, void*);
  int (*delete_by_field)(int, const char*);
  int (*delete_all)();
  int (*drop)();
};
const Table kTables[] = {
    {"SHARELINK_EVENT", 19, 38, sf_event_count, sf_event_select,
     [](int f, const char* v) { return sf_event_delete_by_field(f, v); }, sf_event_delete_all, sf_event_drop},
    {"SHARELINK_FID", 3, 6, sf_fid_count, sf_fid_select, sf_fid_delete_by_field, sf_fid_delete_all, sf_fid_drop},
    {"SHARELINK_USER", 4, 8, sf_user_count, sf_user_select, sf_user_delete_by_field, sf_user_delete_all,
     sf_user_drop},
    {"SHARELINK_ACX", 2, 4, sf_acx_count, sf_acx_select, sf_acx_delete_by_field, sf_acx_delete_all, sf_acx_drop}};

// Count, sort and field codes, deletes and drop, and their failures.
TEST_F(CompanionTest, EveryTableCountsSelectsDeletesAndDrops) {
  auto fill = [&] {
    insert_links(root, {{"k1"}, {"k2"}});
    insert_fids(root, {{"k1", "f1", "/a"}, {"k2", "f2", "/b"}});
    insert_users(root, {{"k1", "amy", "", "a@x"}, {"k2", "bob", "", "b@x"}});
    store_exec(root, "INSERT INTO SHARELINK_ACX VALUES ('k1', 'rw'), ('k2', 'ro');");
  };
  fill();
  for (const Table& t : kTables) {
    SCOPED_TRACE(t.name);
    EXPECT_EQ(2, t.count());
    EXPECT_EQ(0, t.select(nullptr, t.nsorts - 1, 0, 0, nullptr));
    for (int rc : {t.select(nullptr, t.nsorts, 0, 0, nullptr), t.select(nullptr, -1, 0, 0, nullptr),
                   t.select(nullptr, 0, 2, 1, nullptr), t.delete_by_field(t.ncolumns, "k1"),
                   t.delete_by_field(-1, "k1"), t.delete_by_field(0, nullptr)}) {
      EXPECT_EQ(-11, rc);
    }
    EXPECT_EQ(0, t.delete_by_field(0, "k3"));
    EXPECT_EQ(2, t.count());
    EXPECT_EQ(0, t.delete_by_field(0, "k1"));
    EXPECT_EQ((Rows{{"k2"}}), store_rows(root, std::string("SELECT pkey FROM ") + t.name));
    EXPECT_EQ(0, t.delete_all());
    EXPECT_EQ(0, t.count());
  }
  fill();
  for (const Table& t : kTables) {
    SCOPED_TRACE(t.name);
    EXPECT_EQ(0, t.drop());
    EXPECT_EQ(-21, t.drop());
    EXPECT_EQ(-22, t.delete_all());
    EXPECT_EQ(-24, t.count());
  }
  make_store_unopenable();
  for (const Table& t : kTables) EXPECT_EQ(-20, t.count()) << t.name;
}

TEST_F(CompanionTest, FileRows) {
  ShareLinkFidRecord rows[] = {fid("k1", "f1", "/share/A/one"), fid("k1", "f2", "/share/A/two"),
                               fid("k2", "f3", "/share/B/Three")};
  ASSERT_EQ(0, sf_fid_insert_many(rows, 3));
  EXPECT_EQ((Rows{{"k1", "f1", "/share/A/one"}, {"k1", "f2", "/share/A/two"}, {"k2", "f3", "/share/B/Three"}}),
            store_rows(root, "SELECT * FROM SHARELINK_FID ORDER BY fid"));
  ShareLinkFidRecord f = fid("", "", "/share/A");
  EXPECT_EQ(2, sf_fid_count_filter(&f));
  put(f.sharefile, "three");  // LIKE is case-sensitive
  EXPECT_EQ(0, sf_fid_count_filter(&f));
  ShareLinkFidRecord out[3];
  SfFidRows read{out, 3, 0, 0};
  ASSERT_EQ(0, sf_fid_select(sf_fill_fid_rows, 5, 1, 3, &read));
  ASSERT_EQ(2, read.count);
  EXPECT_STREQ("f2", out[0].fid);  // sharefile descending, from the second
  EXPECT_STREQ("/share/A/one", out[1].sharefile);
  f = fid("k1", "", "");
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
  // Updates: without a key by the fid; by both keys; a key missing is refused.
  ShareLinkFidRecord r = fid("", "", "");
  EXPECT_EQ(-11, sf_fid_update(&r));
  r = fid("", "f3", "/moved");
  ASSERT_EQ(0, sf_fid_update(&r));
  r = fid("k1", "f2", "/b2");
  ASSERT_EQ(0, sf_fid_update_by_keys(&r));
  r = fid("k1", "", "/x");
  EXPECT_EQ(-11, sf_fid_update_by_keys(&r));
  EXPECT_EQ((Rows{{"k1", "f1", "/share/A/one"}, {"k1", "f2", "/b2"}, {"k2", "f3", "/moved"}}),
            store_rows(root, "SELECT * FROM SHARELINK_FID ORDER BY fid"));
  EXPECT_EQ(0, sf_fid_delete_by_field(2, "/moved"));
  r = fid("k1", "", "");
  EXPECT_EQ(0, sf_fid_delete_filter(&r));
  EXPECT_EQ(0, sf_fid_count());
}

TEST_F(CompanionTest, AccessRows) {
  ShareLinkAcxRecord a{}, f{}, out[2];
  for (const char* k : {"k1", "k2"}) {
    put(a.pkey, k), put(a.acx, "rw");
    EXPECT_EQ(0, sf_acx_insert(&a)) << k;
  }
  EXPECT_EQ(-11, sf_acx_update(&f));  // no key
  put(a.acx, "ro");
  ASSERT_EQ(0, sf_acx_update(&a));
  put(f.acx, "r");  // filters match whole texts
  EXPECT_EQ(0, sf_acx_count_filter(&f));
  put(f.acx, "ro");
  SfAcxRows read{out, 2, 0, 0};
  ASSERT_EQ(0, sf_acx_select_filter(sf_fill_acx_rows, &f, 0, 0, 0, &read));
  ASSERT_EQ(1, read.count);
  EXPECT_STREQ("k2", out[0].pkey);
  EXPECT_EQ(0, sf_acx_delete_filter(&f));
  EXPECT_EQ((Rows{{"k1", "rw"}}), store_rows(root, "SELECT * FROM SHARELINK_ACX"));
  memset(a.acx, 'x', sizeof a.acx);
  EXPECT_EQ(-10, sf_acx_insert(&a));
}

TEST_F(CompanionTest, RecipientRows) {
  insert_users(root, {{"k1", "amy", "d1", "amy@x.example"}, {"k1", "bob", "d2", "bob@y.example"},
                      {"k2", "cat", "d3", "cat@x.example"}});
  ShareLinkUserRecord f = user("", "", "", "x.example"), out[3];
  EXPECT_EQ(2, sf_user_count_filter(&f));  // the address matches anywhere inside
  // The filtered select keeps its sort texts: "desctiption" fails (4, 5),
  // "ORDER BY email" meets the paging text; the others select in order.
  const std::tuple<int, int, const char*> cases[] = {
      {0, 0, "amycat"}, {1, 0, "catamy"}, {2, 0, "amycat"}, {3, 0, "catamy"}, {6, 5, "amycat"},
      {7, 0, "catamy"}, {6, 1, "amy"},    {4, 0, "-24"},    {5, 0, "-24"},    {8, 0, "-11"}, {-1, 0, "-11"}};
  for (const auto& c : cases) {
    SfUserRows read{out, 3, 0, 0};
    int rc = sf_user_select_filter(sf_fill_user_rows, &f, std::get<0>(c), 0, std::get<1>(c), &read);
    std::string users = rc != 0 ? std::to_string(rc) : "";
    for (int i = 0; i < read.count; ++i) users += out[i].user;
    EXPECT_EQ(std::get<2>(c), users) << std::get<0>(c);
  }
  store_exec(root, "DELETE FROM SHARELINK_USER; INSERT INTO SHARELINK_USER VALUES ('k1', 'amy', 'd1', "
                   "'a@x'), ('k2', 'amy', 'd2', 'b@x');");
  ShareLinkUserRecord r = user("", "amy", "", "new@x");
  ASSERT_EQ(0, sf_user_update(&r));  // by user: both rows
  r = user("k1", "amy", "only", "");
  ASSERT_EQ(0, sf_user_update_by_keys(&r));
  EXPECT_EQ((Rows{{"k1", "only", "new@x"}, {"k2", "d2", "new@x"}}),
            store_rows(root, "SELECT pkey, description, email FROM SHARELINK_USER ORDER BY pkey"));
  r = user("k1", "amy", "", "");
  EXPECT_EQ(-28, sf_user_update_by_keys(&r));  // nothing to set
  r = user("k1", "", "x", "");
  EXPECT_EQ(-11, sf_user_update_by_keys(&r));
  EXPECT_EQ(0, sf_user_delete_by_field(2, "only"));
  EXPECT_EQ(1, sf_user_count());
  memset(r.user, 'u', sizeof r.user);
  EXPECT_EQ(-10, sf_user_insert(&r));
  EXPECT_EQ(-10, sf_user_count_filter(&r));
}

// Files and recipients with their link's columns (NULL when it is gone), and
// the links with their file counts.
TEST_F(CompanionTest, JoinedSelectsBringTheLinkAlong) {
  std::vector<FixtureLink> links = {{"k1"}, {"k2"}, {"k3"}};
  links[0].filesize = "10", links[1].filesize = "20";
  insert_links(root, links);
  insert_fids(root, {{"k1", "f1", "/a"}, {"k1", "f2", "/b"}, {"k2", "f3", "/c"}, {"gone", "f4", "/d"}});
  insert_users(root, {{"k1", "amy", "", "amy@x"}, {"k2", "bob", "", "bob@x"}});
  ShareLinkFidJoinRecord fj[4];
  SfFidJoinRows fread{fj, 4, 0, 0};
  ShareLinkFidRecord ff{};
  ASSERT_EQ(0, sf_fid_join_select(sf_fill_fid_join_rows, &ff, 3, 0, 0, &fread));
  ASSERT_EQ(4, fread.count);
  EXPECT_EQ((Strings{"f4", "----", "k1"}), (Strings{fj[0].fid.fid, fj[0].event.pkey, fj[3].event.pkey}));
  EXPECT_EQ(-11, sf_fid_join_select(nullptr, &ff, 6, 0, 0, nullptr));
  ShareLinkUserJoinRecord uj[2];
  SfUserJoinRows uread{uj, 2, 0, 0};
  ShareLinkUserRecord uf{};
  ASSERT_EQ(0, sf_user_join_select(sf_fill_user_join_rows, &uf, 11, 0, 0, &uread));  // filesize descending
  ASSERT_EQ(2, uread.count);
  EXPECT_EQ((Strings{"bob", "20"}), (Strings{uj[0].user.user, uj[0].event.filesize}));
  // start_time fails; 8 has no ordering.
  for (auto c : {std::make_pair(12, -24), std::make_pair(8, 0), std::make_pair(4, 0), std::make_pair(38, -11)})
    EXPECT_EQ(c.second, sf_user_join_select(nullptr, &uf, c.first, 0, 0, nullptr)) << c.first;
  ShareLinkCountRecord counts[3];  // k3 has no files and is left out
  SfCountRows cread{counts, 3, 0, 0};
  ASSERT_EQ(0, sf_event_fid_count_select(sf_fill_count_rows, 0, 0, 0, &cread));
  ASSERT_EQ(2, cread.count);
  EXPECT_STREQ("k1", counts[0].event.pkey);
  EXPECT_EQ(2, counts[0].file_count);
  EXPECT_EQ(1, counts[1].file_count);
  ShareLinkRecord f = empty_filter();
  put(f.creator, "admin");
  cread = {counts, 3, 0, 0};
  ASSERT_EQ(0, sf_event_fid_count_select_filter(sf_fill_count_rows, &f, 1, 0, 1, &cread));
  ASSERT_EQ(1, cread.count);
  EXPECT_STREQ("k2", counts[0].event.pkey);
  f = empty_filter();  // a key condition names a column both sides of the join have
  put(f.pkey, "k1");
  EXPECT_EQ(-24, sf_event_fid_count_select_filter(nullptr, &f, 0, 0, 0, nullptr));
}

}  // namespace
