// What all four tables share, then the file, access and recipient rows' own, and the joins.
#include <cstring>
#include <type_traits>
#include "sharelink_db/acx_rows.h"
#include "sharelink_db/event_rows.h"
#include "sharelink_db/fid_rows.h"
#include "sharelink_db/joined_rows.h"
#include "sharelink_db/user_rows.h"
#include "store_test_util.h"

namespace {
ShareLinkFidRecord fid(const char* key, const char* id, const char* path) {
  ShareLinkFidRecord r{}; return put(r.pkey, key), put(r.fid, id), put(r.sharefile, path), r; }
ShareLinkUserRecord user(const char* key, const char* name, const char* description, const char* email) {
  ShareLinkUserRecord r{}; return put(r.pkey, key), put(r.user, name), put(r.description, description), put(r.email, email), r; }
// The rc of a select into `n` records, then field `f` of each record read.
template <class Rows, class Select, class Field>
std::string picked(int n, Select select, Field f) {
  std::vector<std::remove_pointer_t<decltype(Rows::rows)>> out(n); Rows read{out.data(), n, 0, 0};
  std::string s = std::to_string(select(&read)) + ":";
  for (int i = 0; i < read.count; ++i) s += std::string(i ? " " : "") + f(out[i]);
  return s;
}
struct CompanionTest : StoreTest {
  void SetUp() override { StoreTest::SetUp(), make_store(root, true); }
};
struct Table {
  const char* name;
  int ncolumns, nsorts; int (*count)(); int (*select)(SfRowCallback, int, int, int, void*);
  int (*delete_by_field)(int, const char*); int (*delete_all)(); int (*drop)();
};
const Table kTables[] = {
    {"SHARELINK_EVENT", 19, 38, sf_event_count, sf_event_select,
     [](int f, const char* v) { return sf_event_delete_by_field(f, v); }, sf_event_delete_all, sf_event_drop},
    {"SHARELINK_FID", 3, 6, sf_fid_count, sf_fid_select, sf_fid_delete_by_field, sf_fid_delete_all, sf_fid_drop},
    {"SHARELINK_USER", 4, 8, sf_user_count, sf_user_select, sf_user_delete_by_field, sf_user_delete_all, sf_user_drop},
    {"SHARELINK_ACX", 2, 4, sf_acx_count, sf_acx_select, sf_acx_delete_by_field, sf_acx_delete_all, sf_acx_drop}};
// Count, sort and field codes, deletes and drop, and their failures.
TEST_F(CompanionTest, EveryTableCountsSelectsDeletesAndDrops) {
  auto fill = [&] {
    insert_links(root, {{"k1"}, {"k2"}}); insert_fids(root, {{"k1", "f1", "/a"}, {"k2", "f2", "/b"}});
    insert_users(root, {{"k1", "amy", "", "a@x"}, {"k2", "bob", "", "b@x"}});
    store_exec(root, "INSERT INTO SHARELINK_ACX VALUES ('k1', 'rw'), ('k2', 'ro');");
  };
  fill();
  for (const Table& t : kTables) {
    SCOPED_TRACE(t.name);
    EXPECT_EQ((Ints{2, 0, -11, -11, -11, -11, -11, -11, 0, 2, 0}),
              (Ints{t.count(), t.select(nullptr, t.nsorts - 1, 0, 0, nullptr), t.select(nullptr, t.nsorts, 0, 0, nullptr),
                    t.select(nullptr, -1, 0, 0, nullptr), t.select(nullptr, 0, 2, 1, nullptr),
                    t.delete_by_field(t.ncolumns, "k1"), t.delete_by_field(-1, "k1"), t.delete_by_field(0, nullptr),
                    t.delete_by_field(0, "k3"), t.count(), t.delete_by_field(0, "k1")}));
    EXPECT_EQ((Rows{{"k2"}}), store_rows(root, std::string("SELECT pkey FROM ") + t.name));
    EXPECT_EQ((Ints{0, 0}), (Ints{t.delete_all(), t.count()}));
  }
  fill();
  for (const Table& t : kTables) EXPECT_EQ((Ints{0, -21, -22, -24}), (Ints{t.drop(), t.drop(), t.delete_all(), t.count()})) << t.name;
  make_store_unopenable();
  for (const Table& t : kTables) EXPECT_EQ(-20, t.count()) << t.name;
}
// Batches all or none; paths match inside (case-sensitive); keyless updates go by the fid.
TEST_F(CompanionTest, FileRows) {
  ShareLinkFidRecord rows[] = {fid("k1", "f1", "/share/A/one"), fid("k1", "f2", "/share/A/two"),
                               fid("k2", "f3", "/share/B/Three")};
  ASSERT_EQ(0, sf_fid_insert_many(rows, 3));
  ShareLinkFidRecord f = fid("", "", "/share/A"), three = fid("", "", "three"), k1 = fid("k1", "", "");
  EXPECT_EQ((Ints{2, 0}), (Ints{sf_fid_count_filter(&f), sf_fid_count_filter(&three)}));
  auto path = [](const ShareLinkFidRecord& r) { return std::string(r.fid) + r.sharefile; };
  EXPECT_EQ("0:f2/share/A/two f1/share/A/one",  // sharefile descending, from the second
            picked<SfFidRows>(3, [](void* r) { return sf_fid_select(sf_fill_fid_rows, 5, 1, 3, r); }, path));
  EXPECT_EQ("0:f2/share/A/two f1/share/A/one", picked<SfFidRows>(3, [&](void* r) {
              return sf_fid_select_filter(sf_fill_fid_rows, &k1, 3, 0, 0, r);
            }, path));
  store_exec(root, "CREATE TRIGGER refuse BEFORE INSERT ON SHARELINK_FID WHEN NEW.fid = 'bad' "
                   "BEGIN SELECT RAISE(ABORT, 'no'); END;");
  ShareLinkFidRecord batch[] = {fid("k3", "ok", "/p"), fid("k3", "bad", "/p")}, none = fid("", "", ""),
                     moved = fid("", "f3", "/moved"), both = fid("k1", "f2", "/b2"), half = fid("k1", "", "/x");
  EXPECT_EQ((Ints{-23, 3, -11, -11, 0, 0, -11}),
            (Ints{sf_fid_insert_many(batch, 2), sf_fid_count(), sf_fid_insert_many(nullptr, 1), sf_fid_update(&none),
                  sf_fid_update(&moved), sf_fid_update_by_keys(&both), sf_fid_update_by_keys(&half)}));
  EXPECT_EQ((Rows{{"k1", "f1", "/share/A/one"}, {"k1", "f2", "/b2"}, {"k2", "f3", "/moved"}}),
            store_rows(root, "SELECT * FROM SHARELINK_FID ORDER BY fid"));
  EXPECT_EQ((Ints{0, 0, 0}), (Ints{sf_fid_delete_by_field(2, "/moved"), sf_fid_delete_filter(&k1), sf_fid_count()}));
}
// Filters match whole texts; an update needs a key.
TEST_F(CompanionTest, AccessRows) {
  ShareLinkAcxRecord k1{}, k2{}, none{}, r{}, ro{}, huge{};
  put(k1.pkey, "k1"), put(k1.acx, "rw"), put(k2.pkey, "k2"), put(k2.acx, "rw"), put(r.acx, "r"), put(ro.acx, "ro");
  memset(huge.acx, 'x', sizeof huge.acx);
  EXPECT_EQ((Ints{0, 0, -11, -10}), (Ints{sf_acx_insert(&k1), sf_acx_insert(&k2), sf_acx_update(&none), sf_acx_insert(&huge)}));
  put(k2.acx, "ro"); EXPECT_EQ((Ints{0, 0}), (Ints{sf_acx_update(&k2), sf_acx_count_filter(&r)}));
  EXPECT_EQ("0:k2", picked<SfAcxRows>(2, [&](void* o) { return sf_acx_select_filter(sf_fill_acx_rows, &ro, 0, 0, 0, o); },
                                               [](const ShareLinkAcxRecord& a) { return std::string(a.pkey); }));
  EXPECT_EQ(0, sf_acx_delete_filter(&ro));
  EXPECT_EQ((Rows{{"k1", "rw"}}), store_rows(root, "SELECT * FROM SHARELINK_ACX"));
}
// The filtered select's sort texts: "desctiption" fails, "ORDER BY email" meets the paging text.
TEST_F(CompanionTest, RecipientRows) {
  insert_users(root, {{"k1", "amy", "d1", "amy@x.example"}, {"k1", "bob", "d2", "bob@y.example"},
                      {"k2", "cat", "d3", "cat@x.example"}});
  ShareLinkUserRecord f = user("", "", "", "x.example"); EXPECT_EQ(2, sf_user_count_filter(&f));
  const std::tuple<int, int, const char*> cases[] = {
      {0, 0, "0:amy cat"}, {1, 0, "0:cat amy"}, {2, 0, "0:amy cat"}, {3, 0, "0:cat amy"}, {6, 5, "0:amy cat"},
      {7, 0, "0:cat amy"}, {6, 1, "0:amy"},     {4, 0, "-24:"},      {5, 0, "-24:"},      {8, 0, "-11:"}, {-1, 0, "-11:"}};
  for (const auto& c : cases) {
    EXPECT_EQ(std::get<2>(c), picked<SfUserRows>(3, [&](void* o) {
                return sf_user_select_filter(sf_fill_user_rows, &f, std::get<0>(c), 0, std::get<1>(c), o);
              }, [](const ShareLinkUserRecord& u) { return std::string(u.user); })) << std::get<0>(c);
  }
  store_exec(root, "DELETE FROM SHARELINK_USER; INSERT INTO SHARELINK_USER VALUES ('k1', 'amy', 'd1', "
                   "'a@x'), ('k2', 'amy', 'd2', 'b@x');");
  ShareLinkUserRecord by_user = user("", "amy", "", "new@x"), both = user("k1", "amy", "only", ""),
                      nothing = user("k1", "amy", "", ""), half = user("k1", "", "x", ""), huge = half;
  memset(huge.user, 'u', sizeof huge.user);
  EXPECT_EQ((Ints{0, 0, -28, -11}), (Ints{sf_user_update(&by_user), sf_user_update_by_keys(&both),
                                          sf_user_update_by_keys(&nothing), sf_user_update_by_keys(&half)}));
  EXPECT_EQ((Rows{{"k1", "only", "new@x"}, {"k2", "d2", "new@x"}}),
            store_rows(root, "SELECT pkey, description, email FROM SHARELINK_USER ORDER BY pkey"));
  EXPECT_EQ((Ints{0, 1, -10, -10}), (Ints{sf_user_delete_by_field(2, "only"), sf_user_count(), sf_user_insert(&huge),
                                          sf_user_count_filter(&huge)}));
}
// Files and recipients with their link (defaults when gone); links with file counts (k3 has none).
TEST_F(CompanionTest, JoinedSelectsBringTheLinkAlong) {
  std::vector<FixtureLink> links = {{"k1"}, {"k2"}, {"k3"}};
  links[0].filesize = "10", links[1].filesize = "20"; insert_links(root, links);
  insert_fids(root, {{"k1", "f1", "/a"}, {"k1", "f2", "/b"}, {"k2", "f3", "/c"}, {"gone", "f4", "/d"}});
  insert_users(root, {{"k1", "amy", "", "amy@x"}, {"k2", "bob", "", "bob@x"}});
  ShareLinkFidRecord ff{}; ShareLinkUserRecord uf{};
  EXPECT_EQ("0:f4----0 f3k220 f2k110 f1k110", picked<SfFidJoinRows>(4, [&](void* o) {
              return sf_fid_join_select(sf_fill_fid_join_rows, &ff, 3, 0, 0, o);
            }, [](const ShareLinkFidJoinRecord& j) { return std::string(j.fid.fid) + j.event.pkey + j.event.filesize; }));
  EXPECT_EQ("0:bob20 amy10", picked<SfUserJoinRows>(2, [&](void* o) {  // filesize descending
              return sf_user_join_select(sf_fill_user_join_rows, &uf, 11, 0, 0, o);
            }, [](const ShareLinkUserJoinRecord& j) { return std::string(j.user.user) + j.event.filesize; }));
  // start_time fails; 8 has no ordering.
  EXPECT_EQ((Ints{-11, -24, 0, 0, -11}),
            (Ints{sf_fid_join_select(nullptr, &ff, 6, 0, 0, nullptr), sf_user_join_select(nullptr, &uf, 12, 0, 0, nullptr),
                  sf_user_join_select(nullptr, &uf, 8, 0, 0, nullptr), sf_user_join_select(nullptr, &uf, 4, 0, 0, nullptr),
                  sf_user_join_select(nullptr, &uf, 38, 0, 0, nullptr)}));
  auto counted = [](const ShareLinkCountRecord& c) { return std::string(c.event.pkey) + "=" + std::to_string(c.file_count); };
  EXPECT_EQ("0:k1=2 k2=1", picked<SfCountRows>(3, [](void* o) {
              return sf_event_fid_count_select(sf_fill_count_rows, 0, 0, 0, o);
            }, counted));
  ShareLinkRecord f = empty_filter(), key = empty_filter(); put(f.creator, "admin"), put(key.pkey, "k1");
  EXPECT_EQ("0:k2=1", picked<SfCountRows>(3, [&](void* o) {
              return sf_event_fid_count_select_filter(sf_fill_count_rows, &f, 1, 0, 1, o);
            }, counted));
  // A key condition names a column both sides of the join have.
  EXPECT_EQ(-24, sf_event_fid_count_select_filter(nullptr, &key, 0, 0, 0, nullptr));
}
}  // namespace
