// SHARELINK_EVENT: filters, sort codes, paging, checks, insert, updates, deletes, row readers.
#include <sqlite3.h>
#include <algorithm>
#include <cstring>
#include <functional>
#include <memory>
#include "sharelink_db/event_rows.h"
#include "sharelink_db/joined_rows.h"
#include "store_test_util.h"

namespace {
template <int Col>  // collects column `Col` of the selected rows in order
int collect(void* out, int, char** v, char**) { return static_cast<Strings*>(out)->push_back(v[Col] ? v[Col] : "NULL"), 0; }
Strings column(const ApplianceRoot& root, const std::string& sql) {
  Strings out;
  for (const auto& row : store_rows(root, sql)) out.push_back(row[0]);
  return out;
}
// The rc of a select (filtered unless `f` is null), then the keys it read.
std::string selected(const ShareLinkRecord* f, int sort, int start, int end) {
  Strings keys;
  int rc = f ? sf_event_select_filter(collect<0>, f, sort, start, end, &keys) : sf_event_select(collect<0>, sort, start, end, &keys);
  std::string s = std::to_string(rc) + ":";
  for (size_t i = 0; i < keys.size(); ++i) s += (i ? " " : "") + keys[i];
  return s;
}
Strings keys_of(const ApplianceRoot& root, const std::string& where = "") {
  return column(root, "SELECT pkey FROM SHARELINK_EVENT " + where + " ORDER BY rowid");
}
// A row matching every filter field and one missing each (labelled in filesize). The plain creator
// binds the 'p' fields, the Mirra form the 'm' ones; an earlier expiry ('e') is counted, selected
// by the Mirra form only. The delete binds the plain form's.
TEST_F(StoreTest, EveryFilterFieldTakesPart) {
  using L = FixtureLink;
  const std::tuple<const char*, char, std::function<void(L&)>> misses[] = {
      {"pkey", 'p', [](L& l) { l.pkey = "k2"; }},       {"host", 'p', [](L& l) { l.host = "xHx"; }},
      {"ssl", 'p', [](L& l) { l.ssl = 0; }},            {"share", 'p', [](L& l) { l.sharefile = "/S"; }},
      {"name", 'p', [](L& l) { l.link_name = "lN"; }},  {"addr", 'p', [](L& l) { l.useraddr = "U"; }},
      {"creator", '-', [](L& l) { l.creator = "bob"; }}, {"code", 'm', [](L& l) { l.accesscode = "ab"; }},
      {"misc", 'm', [](L& l) { l.misc = "M"; }},        {"title", 'm', [](L& l) { l.title = "T"; }},
      {"descr", 'm', [](L& l) { l.description = "D"; }}, {"type", 'm', [](L& l) { l.type = 3; }},
      {"tic", 'p', [](L& l) { l.createtic = 11; }},     {"expire", 'p', [](L& l) { l.expire = 30; }},
      {"early", 'e', [](L& l) { l.expire = 10; }},      {"count", 'p', [](L& l) { l.download_count = 2; }},
      {"limit", 'p', [](L& l) { l.download_limit = 5; }}};
  for (const char* creator : {"al'ice", "Mirra:al'ice"}) {
    SCOPED_TRACE(creator); make_store(root); store_exec(root, "DELETE FROM SHARELINK_EVENT;");
    L base("k'1", "xhx");
    base.ssl = 1, base.sharefile = "x/sx", base.link_name = "xlnx", base.useraddr = "xux";
    base.creator = creator, base.accesscode = "ac", base.misc = "xmx", base.title = "xtx";
    base.description = "xdx", base.type = 2, base.createtic = 10, base.expire = 20;
    base.download_count = 3, base.download_limit = 4, base.filesize = "match"; std::vector<L> links = {base};
    const char binds = creator[0] == 'a' ? 'm' : 'p';  // the fields the other form binds miss
    Strings counted = {"match"}, selected = {"match"}, left;
    for (const auto& m : misses) {
      links.push_back(base); std::get<2>(m)(links.back()); links.back().filesize = std::get<0>(m);
      if (std::get<1>(m) == binds || std::get<1>(m) == 'e') counted.push_back(std::get<0>(m));
      if (std::get<1>(m) == binds || (std::get<1>(m) == 'e' && binds == 'p')) selected.push_back(std::get<0>(m));
      if (binds == 'p' || std::get<1>(m) != 'e') left.push_back(std::get<0>(m));
    }
    if (binds == 'p') left.push_back("match");
    insert_links(root, links); ShareLinkRecord f = empty_filter();
    f.ssl = 1, f.createtic = 10, f.expire = 20, f.download_count = 3, f.download_limit = 4, f.type = 2;
    put(f.pkey, "k'1"), put(f.host, "h"), put(f.sharefile, "/s"), put(f.link_name, "ln"), put(f.useraddr, "u");
    put(f.creator, "al'ice"), put(f.accesscode, "ac"), put(f.misc, "m"), put(f.title, "t"), put(f.description, "d");
    EXPECT_EQ(static_cast<int>(counted.size()), sf_event_count_filter(&f)); Strings got;
    ASSERT_EQ(0, sf_event_select_filter(collect<5>, &f, 0, 0, 0, &got));
    std::sort(got.begin(), got.end()), std::sort(selected.begin(), selected.end()), std::sort(left.begin(), left.end());
    EXPECT_EQ(selected, got); ASSERT_EQ(0, sf_event_delete_filter(&f));
    EXPECT_EQ(left, column(root, "SELECT filesize FROM SHARELINK_EVENT ORDER BY filesize"));
  }
}
// Every code names real columns, in both selects and the file-count select.
TEST_F(StoreTest, SortCodes) {
  make_store(root); std::vector<FixtureLink> links = {{"a", "h2"}, {"b", "h3"}, {"c", "h1"}};
  const char* dates[] = {"2024-01-02", "2024-01-01", "2024-01-01"};
  const char* times[] = {"01:00:00", "03:00:00", "02:00:00"};
  for (int i = 0; i < 3; ++i) links[i].create_date = dates[i], links[i].create_time = times[i], links[i].link_name = "zxy"[i];
  insert_links(root, links); ShareLinkRecord f = empty_filter();
  for (int sort = -1; sort <= 38; ++sort) {
    int rc = sort < 0 || sort > 37 ? -11 : 0;
    EXPECT_EQ((Ints{rc, rc, 0}), (Ints{sf_event_select(nullptr, sort, 0, 0, nullptr),
                                       sf_event_select_filter(nullptr, &f, sort, 0, 0, nullptr),
                                       sf_event_fid_count_select(nullptr, sort < 0 || sort > 37 ? 0 : sort, 0, 0, nullptr)}))
        << sort;
  }
  const std::tuple<int, const ShareLinkRecord*, const char*> cases[] = {
      {2, nullptr, "0:c a b"}, {3, &f, "0:b a c"}, {26, &f, "0:c b a"}, {27, &f, "0:a b c"},
      {28, &f, "0:a c b"},     {36, nullptr, "0:b c a"}, {37, &f, "0:a c b"}, {26, nullptr, "0:a b c"}};
  for (const auto& c : cases) EXPECT_EQ(std::get<2>(c), selected(std::get<1>(c), std::get<0>(c), 0, 0)) << std::get<0>(c);
}
// Paging of both selects; an empty filter (ssl 2 or -1: any) covers the whole table.
TEST_F(StoreTest, PagingAndTheEmptyFilter) {
  make_store(root); insert_numbered_links(root, 20); ShareLinkRecord f = empty_filter();
  const std::tuple<const ShareLinkRecord*, int, int, int, const char*> cases[] = {
      {nullptr, 0, 5, 8, "0:key00005 key00006 key00007"}, {&f, 1, 0, 3, "0:key00019 key00018 key00017"},
      {nullptr, 0, 5, 5, "0:"}, {nullptr, 0, 3, 2, "-11:"}, {nullptr, 0, -1, 0, "-11:"}, {nullptr, 0, 0, -1, "-11:"},
      {&f, 0, 3, 2, "-11:"}, {&f, 0, -1, 0, "-11:"}, {&f, 0, 0, -1, "-11:"}};
  for (const auto& c : cases) {
    EXPECT_EQ(std::get<4>(c), selected(std::get<0>(c), std::get<1>(c), std::get<2>(c), std::get<3>(c)))
        << std::get<2>(c) << ".." << std::get<3>(c);
  }
  Strings all; ASSERT_EQ(0, sf_event_select(collect<0>, 0, 0, 0, &all)); EXPECT_EQ(20u, all.size());
  Ints counts;
  for (int ssl : {0, 1, -1, 2}) f.ssl = ssl, counts.push_back(sf_event_count_filter(&f));
  EXPECT_EQ((Ints{20, 0, 20, 20}), counts);
  EXPECT_EQ((Ints{0, 0}), (Ints{sf_event_delete_filter(&f), sf_event_count()}));
}
TEST_F(StoreTest, ChecksComeBeforeTheStoreIsOpened) {
  make_store_unopenable(); ShareLinkRecord r = empty_filter();
  EXPECT_EQ((Ints{-20, -20}), (Ints{sf_event_count_filter(&r), sf_event_count()}));
  // Texts filling their buffer are over the bound (the delete skips title and description).
  const std::pair<char*, size_t> texts[] = {
      {r.pkey, sizeof r.pkey}, {r.host, sizeof r.host}, {r.useraddr, sizeof r.useraddr},
      {r.filesize, sizeof r.filesize}, {r.creator, sizeof r.creator}, {r.accesscode, sizeof r.accesscode},
      {r.misc, sizeof r.misc}, {r.title, sizeof r.title}, {r.description, sizeof r.description},
      {r.link_name, sizeof r.link_name}};
  for (const auto& c : texts) {
    r = empty_filter(); memset(c.first, 'a', c.second);
    EXPECT_EQ((Ints{-10, -10, -10, c.first != r.title && c.first != r.description ? -10 : -20}),
              (Ints{sf_event_count_filter(&r), sf_event_insert(&r), sf_event_update(&r), sf_event_delete_filter(&r)}));
  }
  r = empty_filter();
  memset(r.create_date, '1', sizeof r.create_date);  // not inserted, not checked there
  EXPECT_EQ((Ints{-10, -20}), (Ints{sf_event_count_filter(&r), sf_event_insert(&r)}));
  r = empty_filter(); r.ssl = 3;
  EXPECT_EQ((Ints{-11, -11, -11, -11}), (Ints{sf_event_count_filter(&r), sf_event_select_filter(nullptr, &r, 0, 0, 0, nullptr),
                                              sf_event_insert(&r), sf_event_delete_filter(&r)}));
  r = empty_filter();
  r.expire = 100, r.createtic = 200;  // expiring before creation: the select does not check it
  EXPECT_EQ((Ints{-11, -11, -11, -11, -11, -11, -11, -11, -20}),
            (Ints{sf_event_count_filter(&r), sf_event_insert(&r), sf_event_update(&r), sf_event_delete_filter(&r),
                  sf_event_select(nullptr, 38, 0, 0, nullptr), sf_event_delete_by_field(19, "x"),
                  sf_event_delete_by_field(0, nullptr), sf_event_count_filter(nullptr),
                  sf_event_select_filter(nullptr, &r, 0, 0, 0, nullptr)}));
  r = empty_filter();  // no target: refused without the store
  r.expire = 5;
  EXPECT_EQ(-28, sf_event_update(&r));
}
TEST_F(StoreTest, InsertStoresEachFieldAndNullsReadBackAsDefaults) {
  make_store(root); ShareLinkRecord r = empty_filter();
  put(r.pkey, "k'1"), put(r.host, "h"), put(r.sharefile, "/s"), put(r.useraddr, "u"), put(r.filesize, "12");
  put(r.accesscode, "ac"), put(r.misc, "m"), put(r.title, "t"), put(r.description, "d"), put(r.link_name, "ln");
  r.ssl = 1, r.expire = 300, r.createtic = 200, r.download_count = 3, r.download_limit = 4, r.type = 5;
  ASSERT_EQ(0, sf_event_insert(&r)); EXPECT_STREQ("system", r.creator);
  EXPECT_EQ((Rows{{"k'1", "h", "1", "/s", "u", "12", "200", "300", "system", "ac", "3", "4", "m", "1", "8", "t",
                   "d", "5", "ln"}}),
            store_rows(root, "SELECT pkey, host, ssl, sharefile, useraddr, filesize, createtic, expire, creator, "
                             "accesscode, download_count, download_limit, misc, create_date = CURRENT_DATE, "
                             "length(create_time), title, description, type, link_name FROM SHARELINK_EVENT"));
  std::string nulls = "NULL";
  for (int i = 1; i < 19; ++i) nulls += ", NULL";
  store_exec(root, "DELETE FROM SHARELINK_EVENT; INSERT INTO SHARELINK_EVENT VALUES (" + nulls + ");");
  std::unique_ptr<ShareLinkRecord> n(new ShareLinkRecord); memset(n.get(), 0x55, sizeof *n);
  put(n->reserved_key, "mine"); ASSERT_EQ(0, sf_event_select(sf_fill_record_single, 0, 0, 0, n.get()));
  EXPECT_EQ((Strings{"----", "localhost", "----", "none@none", "0", "UNKNOWN", "mine"}),
            (Strings{n->pkey, n->host, n->sharefile, n->useraddr, n->filesize, n->creator, n->reserved_key}));
  EXPECT_EQ(Strings(7, "----"), (Strings{n->accesscode, n->misc, n->create_date, n->create_time, n->title,
                                          n->description, n->link_name}));
  EXPECT_EQ(Ints(9, 0), (Ints{n->ssl, n->reserved_size, n->createtic, n->expire, n->download_count, n->download_limit,
                              n->type, n->trailing_a, n->trailing_b}));
}
TEST_F(StoreTest, RowReadersFillArraysAndSkipOtherShapes) {
  make_store(root); insert_numbered_links(root, 3); insert_fids(root, {{"key00001", "f", "/p"}});
  std::vector<ShareLinkRecord> rows(3), two(2); sf_record_array_count = 0, sf_clean_array_count = 0;
  SfRecordArray bounded{two.data(), 2, 0, 0};
  // The file-count select's rows have twenty columns: not link rows.
  EXPECT_EQ((Ints{0, 3, 0, 0, 0, 2, 1}),
            (Ints{sf_event_select(sf_fill_record_array, 1, 0, 0, rows.data()), sf_record_array_count,
                  sf_event_fid_count_select(sf_fill_record_array_clean, 0, 0, 0, rows.data()), sf_clean_array_count,
                  sf_event_select(sf_fill_record_bounded, 0, 0, 0, &bounded), bounded.count, bounded.overflow}));
  EXPECT_EQ((Strings{"key00002", "00:00:00", "key00001"}), (Strings{rows[0].pkey, rows[2].create_time, two[1].pkey}));
}
TEST_F(StoreTest, UpdateTargets) {
  make_store(root); std::vector<FixtureLink> links = {{"a"}, {"b"}, {"c"}}; links[1].misc = "----";
  insert_links(root, links); ShareLinkRecord r = empty_filter(), key = empty_filter();
  put(r.pkey, "a"), put(r.title, "T'"), put(key.pkey, "a"); r.expire = 9, r.ssl = 1;
  EXPECT_EQ((Ints{0, -28}), (Ints{sf_event_update(&r), sf_event_update(&key)}));  // key alone: nothing to set
  EXPECT_EQ((Rows{{"a", "9", "1", "T'"}, {"b", "0", "0", ""}, {"c", "0", "0", ""}}),
            store_rows(root, "SELECT pkey, expire, ssl, title FROM SHARELINK_EVENT ORDER BY pkey"));
  r = empty_filter();  // no key: type alone changes every row; misc first changes the "----" rows
  r.type = 4;
  ASSERT_EQ(0, sf_event_update(&r));
  EXPECT_EQ((Strings{"a", "b", "c"}), keys_of(root, "WHERE type = 4")); r = empty_filter();
  put(r.misc, "11"), put(r.title, "new"); ASSERT_EQ(0, sf_event_update(&r));
  EXPECT_EQ((Strings{"b"}), keys_of(root, "WHERE title = 'new' AND misc = '11'"));
}
TEST_F(StoreTest, UpdateListAppliesEachRecordInOneTransaction) {
  make_store(root); insert_links(root, {{"a"}, {"b"}, {"c"}}); std::vector<ShareLinkListNode> nodes(3);
  for (size_t i = 0; i < 3; ++i) sf_filter_reset(&nodes[i].record), nodes[i].next = i < 2 ? &nodes[i + 1] : nullptr;
  put(nodes[0].record.pkey, "a"), put(nodes[1].record.host, "all"), put(nodes[2].record.pkey, "c");
  nodes[0].record.expire = 7, nodes[2].record.type = 5;  // node 1 has no key: every row
  ASSERT_EQ(0, sf_event_update_list(2, &nodes[0]));
  EXPECT_EQ((Rows{{"a", "all", "7", "0"}, {"b", "all", "0", "0"}, {"c", "all", "0", "0"}}),
            store_rows(root, "SELECT pkey, host, expire, type FROM SHARELINK_EVENT ORDER BY pkey"));
  // A bad record stops the list and rolls back what went before.
  nodes[1].record.host[0] = '\0'; memset(nodes[1].record.accesscode, 'x', sizeof nodes[1].record.accesscode);
  nodes[0].record.expire = 8;
  EXPECT_EQ((Ints{-28, 0}), (Ints{sf_event_update_list(3, &nodes[0]), sf_parked_connection_count()}));
  EXPECT_EQ((Strings{"a"}), keys_of(root, "WHERE expire = 7"));
  // One that cannot be prepared leaves its connection open until the next operation.
  store_exec(root, "DROP TABLE SHARELINK_EVENT; CREATE TABLE SHARELINK_EVENT ( pkey TEXT, host TEXT );");
  nodes[0].next = nullptr;
  EXPECT_EQ((Ints{-28, 1, 0, 0}), (Ints{sf_event_update_list(1, &nodes[0]), sf_parked_connection_count(),
                                        sf_event_count(), sf_parked_connection_count()}));
}
TEST_F(StoreTest, DeleteByField) {
  make_store(root); std::vector<FixtureLink> links = {{"a"}, {"b"}, {"c"}, {"d"}};
  links[0].expire = 100, links[1].expire = 200, links[3].ssl = 1; insert_links(root, links);
  int32_t none = -5, when = 200, ssl = 1;
  for (int field = 0; field <= 18; ++field) {  // every code names a real column
    bool integer = field == 2 || field == 6 || field == 7 || field == 10 || field == 11 || field == 17;
    EXPECT_EQ(0, sf_event_delete_by_field(field, integer ? static_cast<const void*>(&none) : "none")) << field;
  }
  EXPECT_EQ((Ints{4, 0}), (Ints{sf_event_count(), sf_event_delete_by_field(7, &when)}));  // expire: set and before
  EXPECT_EQ((Strings{"b", "c", "d"}), keys_of(root));
  EXPECT_EQ((Ints{0, 0}), (Ints{sf_event_delete_by_field(2, &ssl), sf_event_delete_by_field(0, "b")}));
  EXPECT_EQ((Strings{"c"}), keys_of(root));
}
TEST_F(StoreTest, DeleteByFilterIgnoresAFailedCommitAndPlainStatementsRun) {
  make_store(root); insert_links(root, {{"a"}, {"b"}});
  sqlite3* reader = nullptr;  // holding its shared lock, it keeps any commit from finishing
  ASSERT_EQ(SQLITE_OK, sqlite3_open(store_file(root).c_str(), &reader));
  ASSERT_EQ(SQLITE_OK, sqlite3_exec(reader, "BEGIN; SELECT COUNT(*) FROM SHARELINK_EVENT;", nullptr, nullptr, nullptr));
  ShareLinkRecord f = empty_filter(); put(f.pkey, "a");
  EXPECT_EQ((Ints{0, -27}), (Ints{sf_event_delete_filter(&f), sf_event_delete_by_field(0, "a")}));
  sqlite3_exec(reader, "COMMIT;", nullptr, nullptr, nullptr); sqlite3_close(reader);
  // Neither delete was kept. Plain statements: 1 is SQLITE_ERROR.
  EXPECT_EQ((Ints{2, 0, 1, -11}), (Ints{sf_event_count(), sf_exec_sql("UPDATE SHARELINK_EVENT SET misc = '100%%';"),
                                        sf_exec_sql("no such statement"), sf_exec_sql("SELECT '%s';")}));
  EXPECT_EQ((Strings{"a", "b"}), keys_of(root, "WHERE misc = '100%'"));
}
}  // namespace
