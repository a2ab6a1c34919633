// SHARELINK_EVENT operations: filters, sort codes, paging, checks, insert,
// updates, deletes and the row readers, all read back as rows.
#include <sqlite3.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <memory>

#include "sharelink_db/event_rows.h"
#include "sharelink_db/joined_rows.h"
#include "store_test_util.h"

namespace {

// Collects column `Col` of the selected rows in order.
template <int Col>
int collect(void* out, int, char** values, char**) {
  static_cast<Strings*>(out)->push_back(values[Col] ? values[Col] : "NULL");
  return 0;
}

Strings keys_of(const ApplianceRoot& root, const std::string& where = "") {
  Strings keys;
  for (const auto& row : store_rows(root, "SELECT pkey FROM SHARELINK_EVENT " + where + " ORDER BY rowid"))
    keys.push_back(row[0]);
  return keys;
}

Strings sorted(Strings s) {
  std::sort(s.begin(), s.end());
  return s;
}

// Every filter field set: a row matching all of them, and one row per field
// that misses only that field (labelled in filesize, which is no filter).
// The creator alternative decides which fields bind: the plain creator owns
// the fields before it, the Mirra form the ones after it.
TEST_F(StoreTest, EveryFilterFieldTakesPart) {
  using L = FixtureLink;
  const std::pair<const char*, std::function<void(L&)>> misses[] = {
      {"pkey", [](L& l) { l.pkey = "k2"; }},       {"host", [](L& l) { l.host = "xHx"; }},
      {"ssl", [](L& l) { l.ssl = 0; }},            {"share", [](L& l) { l.sharefile = "/S"; }},
      {"name", [](L& l) { l.link_name = "lN"; }},  {"addr", [](L& l) { l.useraddr = "U"; }},
      {"creator", [](L& l) { l.creator = "bob"; }}, {"code", [](L& l) { l.accesscode = "ab"; }},
      {"misc", [](L& l) { l.misc = "M"; }},        {"title", [](L& l) { l.title = "T"; }},
      {"descr", [](L& l) { l.description = "D"; }}, {"type", [](L& l) { l.type = 3; }},
      {"tic", [](L& l) { l.createtic = 11; }},     {"expire", [](L& l) { l.expire = 30; }},
      {"early", [](L& l) { l.expire = 10; }},      {"count", [](L& l) { l.download_count = 2; }},
      {"limit", [](L& l) { l.download_limit = 5; }}};
  const Strings after = {"code", "misc", "title", "descr", "type"};
  for (const char* creator : {"al'ice", "Mirra:al'ice"}) {
    SCOPED_TRACE(creator);
    make_store(root);
    store_exec(root, "DELETE FROM SHARELINK_EVENT;");
    L base("k'1", "xhx");
    base.ssl = 1, base.sharefile = "x/sx", base.link_name = "xlnx", base.useraddr = "xux";
    base.creator = creator, base.accesscode = "ac", base.misc = "xmx", base.title = "xtx";
    base.description = "xdx", base.type = 2, base.createtic = 10, base.expire = 20;
    base.download_count = 3, base.download_limit = 4, base.filesize = "match";
    std::vector<L> links = {base};
    const bool plain = creator[0] == 'a';
    Strings counted = {"match"}, selected = {"match"}, deleted;
    if (plain) deleted = {"early", "match"};
    for (const auto& m : misses) {
      links.push_back(base);
      m.second(links.back());
      const std::string label = links.back().filesize = m.first;
      bool bound_after = std::find(after.begin(), after.end(), label) != after.end();
      if (label == "early") {  // expire: counted up to, selected at
        counted.push_back(label);
        if (!plain) selected.push_back(label);
      } else if (label != "creator" && (plain ? bound_after : !bound_after)) {
        counted.push_back(label);
        selected.push_back(label);
      }
    }
    insert_links(root, links);
    ShareLinkRecord f = empty_filter();
    f.ssl = 1, f.createtic = 10, f.expire = 20, f.download_count = 3, f.download_limit = 4, f.type = 2;
    put(f.pkey, "k'1"), put(f.host, "h"), put(f.sharefile, "/s"), put(f.link_name, "ln");
    put(f.useraddr, "u"), put(f.creator, "al'ice"), put(f.accesscode, "ac"), put(f.misc, "m");
    put(f.title, "t"), put(f.description, "d");
    EXPECT_EQ(static_cast<int>(counted.size()), sf_event_count_filter(&f));
    Strings got;
    ASSERT_EQ(0, sf_event_select_filter(collect<5>, &f, 0, 0, 0, &got));
    EXPECT_EQ(sorted(selected), sorted(got));
    ASSERT_EQ(0, sf_event_delete_filter(&f));
    Strings left;
    for (const auto& row : store_rows(root, "SELECT filesize FROM SHARELINK_EVENT")) left.push_back(row[0]);
    EXPECT_EQ(links.size() - deleted.size(), left.size());
    for (const std::string& d : deleted) EXPECT_EQ(left.end(), std::find(left.begin(), left.end(), d)) << d;
  }
}

TEST_F(StoreTest, CreatorConditionMatchesTheSyncFormAndStaysUngrouped) {
  make_store(root);
  std::vector<FixtureLink> links = {{"k0"}, {"k1"}, {"k2"}, {"k3"}};
  const char* creators[] = {"alice", "Mirra:alice", "bob", "Mirra:bob"};
  for (int i = 0; i < 4; ++i) {
    links[i].creator = creators[i], links[i].accesscode = i == 1 ? "x" : "y", links[i].ssl = i == 1;
  }
  insert_links(root, links);
  ShareLinkRecord f = empty_filter();
  put(f.creator, "alice");
  // ssl binds only to the plain alternative; accesscode only to the Mirra one.
  for (auto c : {std::make_pair(-1, 2), std::make_pair(1, 1), std::make_pair(0, 2)}) {
    f.ssl = c.first;
    EXPECT_EQ(c.second, sf_event_count_filter(&f)) << c.first;
  }
  f.ssl = -1;
  put(f.accesscode, "x");
  EXPECT_EQ(2, sf_event_count_filter(&f));
  ShareLinkRecord d = empty_filter();  // delete matches the creator alone
  put(d.creator, "bob");
  EXPECT_EQ(0, sf_event_delete_filter(&d));
  EXPECT_EQ((Strings{"k0", "k1", "k3"}), keys_of(root));
}

TEST_F(StoreTest, SortCodes) {
  make_store(root);
  std::vector<FixtureLink> links = {{"a", "h2"}, {"b", "h3"}, {"c", "h1"}};
  const char* dates[] = {"2024-01-02", "2024-01-01", "2024-01-01"};
  const char* times[] = {"01:00:00", "03:00:00", "02:00:00"};
  const char* names[] = {"z", "x", "y"};
  for (int i = 0; i < 3; ++i) {
    links[i].create_date = dates[i], links[i].create_time = times[i], links[i].link_name = names[i];
  }
  insert_links(root, links);
  ShareLinkRecord f = empty_filter();
  // Every code names real columns, in both selects and the file-count select.
  for (int sort = 0; sort <= 37; ++sort) {
    EXPECT_EQ(0, sf_event_select(nullptr, sort, 0, 0, nullptr)) << sort;
    EXPECT_EQ(0, sf_event_select_filter(nullptr, &f, sort, 0, 0, nullptr)) << sort;
    EXPECT_EQ(0, sf_event_fid_count_select(nullptr, sort, 0, 0, nullptr)) << sort;
  }
  for (int bad : {-1, 38}) {
    EXPECT_EQ(-11, sf_event_select(nullptr, bad, 0, 0, nullptr));
    EXPECT_EQ(-11, sf_event_select_filter(nullptr, &f, bad, 0, 0, nullptr));
  }
  struct Case {
    int sort;
    bool filtered;
    const char* order;
  };
  for (const Case& c : {Case{2, false, "cab"}, Case{3, true, "bac"}, Case{26, true, "cba"},
                        Case{27, true, "abc"}, Case{28, true, "acb"}, Case{36, false, "bca"},
                        Case{37, true, "acb"}, Case{26, false, "abc"}}) {
    Strings keys;
    if (c.filtered) EXPECT_EQ(0, sf_event_select_filter(collect<0>, &f, c.sort, 0, 0, &keys));
    else EXPECT_EQ(0, sf_event_select(collect<0>, c.sort, 0, 0, &keys));
    std::string joined;
    for (const auto& k : keys) joined += k;
    EXPECT_EQ(c.order, joined) << c.sort << " " << c.filtered;
  }
}

// Paging of both selects; an empty filter (ssl 2: any) covers the whole table.
TEST_F(StoreTest, PagingAndTheEmptyFilter) {
  make_store(root);
  insert_numbered_links(root, 20);
  ShareLinkRecord f = empty_filter();
  f.ssl = 2;
  struct Case {
    bool filtered;
    int sort, start, end;
    Strings keys;  // first and last
    size_t n;
  };
  for (const Case& c : {Case{false, 0, 5, 15, {"key00005", "key00014"}, 10},
                        Case{true, 1, 0, 3, {"key00019", "key00017"}, 3},
                        Case{false, 0, 0, 0, {"key00000", "key00019"}, 20},
                        Case{true, 0, 0, 0, {"key00000", "key00019"}, 20}, Case{false, 0, 5, 5, {}, 0}}) {
    Strings keys;
    ASSERT_EQ(0, c.filtered ? sf_event_select_filter(collect<0>, &f, c.sort, c.start, c.end, &keys)
                            : sf_event_select(collect<0>, c.sort, c.start, c.end, &keys));
    EXPECT_EQ(c.n, keys.size()) << c.start;
    if (!keys.empty()) EXPECT_EQ(c.keys, (Strings{keys.front(), keys.back()}));
  }
  Strings keys;
  for (auto range : {std::make_pair(3, 2), std::make_pair(-1, 0), std::make_pair(0, -1)}) {
    EXPECT_EQ(-11, sf_event_select(collect<0>, 0, range.first, range.second, &keys));
    EXPECT_EQ(-11, sf_event_select_filter(collect<0>, &f, 0, range.first, range.second, &keys));
  }
  EXPECT_EQ(20, sf_event_count_filter(&f));
  EXPECT_EQ(0, sf_event_delete_filter(&f));
  EXPECT_EQ(0, sf_event_count());
}

TEST_F(StoreTest, ChecksComeBeforeTheStoreIsOpened) {
  make_store_unopenable();
  ShareLinkRecord r = empty_filter();
  EXPECT_EQ(-20, sf_event_count_filter(&r));
  EXPECT_EQ(-20, sf_event_count());
  // Texts that fill their whole buffer (no terminator) are over the bound;
  // the delete does not check title and description.
  const std::pair<char*, size_t> texts[] = {
      {r.pkey, sizeof r.pkey},       {r.host, sizeof r.host},         {r.useraddr, sizeof r.useraddr},
      {r.filesize, sizeof r.filesize}, {r.creator, sizeof r.creator}, {r.accesscode, sizeof r.accesscode},
      {r.misc, sizeof r.misc},       {r.title, sizeof r.title},       {r.description, sizeof r.description},
      {r.link_name, sizeof r.link_name}};
  for (const auto& c : texts) {
    r = empty_filter();
    memset(c.first, 'a', c.second);
    EXPECT_EQ(-10, sf_event_count_filter(&r));
    EXPECT_EQ(-10, sf_event_insert(&r));
    EXPECT_EQ(-10, sf_event_update(&r));
    EXPECT_EQ(c.first != r.title && c.first != r.description ? -10 : -20, sf_event_delete_filter(&r));
  }
  r = empty_filter();
  memset(r.create_date, '1', sizeof r.create_date);
  EXPECT_EQ(-10, sf_event_count_filter(&r));
  EXPECT_EQ(-20, sf_event_insert(&r));  // not inserted, not checked
  r = empty_filter();
  r.ssl = 3;
  for (int rc : {sf_event_count_filter(&r), sf_event_select_filter(nullptr, &r, 0, 0, 0, nullptr),
                 sf_event_insert(&r), sf_event_delete_filter(&r)}) {
    EXPECT_EQ(-11, rc);
  }
  r = empty_filter();
  r.expire = 100, r.createtic = 200;
  for (int rc : {sf_event_count_filter(&r), sf_event_insert(&r), sf_event_update(&r),
                 sf_event_delete_filter(&r), sf_event_select(nullptr, 38, 0, 0, nullptr),
                 sf_event_delete_by_field(19, "x"), sf_event_delete_by_field(0, nullptr),
                 sf_event_count_filter(nullptr)}) {
    EXPECT_EQ(-11, rc);
  }
  EXPECT_EQ(-20, sf_event_select_filter(nullptr, &r, 0, 0, 0, nullptr));  // not checked there
  r = empty_filter();  // no target: refused without the store
  r.expire = 5;
  EXPECT_EQ(-28, sf_event_update(&r));
}

TEST_F(StoreTest, InsertStoresEachFieldAndDefaultsTheCreator) {
  make_store(root);
  ShareLinkRecord r = empty_filter();
  put(r.pkey, "k'1"), put(r.host, "h"), put(r.sharefile, "/s"), put(r.useraddr, "u");
  put(r.filesize, "12"), put(r.accesscode, "ac"), put(r.misc, "m"), put(r.title, "t");
  put(r.description, "d"), put(r.link_name, "ln");
  r.ssl = 1, r.expire = 300, r.createtic = 200, r.download_count = 3, r.download_limit = 4, r.type = 5;
  ASSERT_EQ(0, sf_event_insert(&r));
  EXPECT_STREQ("system", r.creator);
  EXPECT_EQ((Rows{{"k'1", "h", "1", "/s", "u", "12", "200", "300", "system", "ac", "3", "4", "m", "1",
                   "8", "t", "d", "5", "ln"}}),
            store_rows(root, "SELECT pkey, host, ssl, sharefile, useraddr, filesize, createtic, expire, "
                             "creator, accesscode, download_count, download_limit, misc, create_date = "
                             "CURRENT_DATE, length(create_time), title, description, type, link_name "
                             "FROM SHARELINK_EVENT"));
}

TEST_F(StoreTest, NullColumnsReadBackAsDefaults) {
  make_store(root);
  std::string nulls = "NULL";
  for (int i = 1; i < 19; ++i) nulls += ", NULL";
  store_exec(root, "INSERT INTO SHARELINK_EVENT VALUES (" + nulls + ");");
  std::unique_ptr<ShareLinkRecord> r(new ShareLinkRecord);
  memset(r.get(), 0x55, sizeof *r);
  put(r->reserved_key, "mine");
  ASSERT_EQ(0, sf_event_select(sf_fill_record_single, 0, 0, 0, r.get()));
  EXPECT_EQ((Strings{"----", "localhost", "----", "none@none", "0", "UNKNOWN", "mine"}),
            (Strings{r->pkey, r->host, r->sharefile, r->useraddr, r->filesize, r->creator, r->reserved_key}));
  for (const char* t : {r->accesscode, r->misc, r->create_date, r->create_time, r->title,
                        r->description, r->link_name}) {
    EXPECT_STREQ("----", t);
  }
  for (int32_t v : {r->ssl, r->reserved_size, r->createtic, r->expire, r->download_count,
                    r->download_limit, r->type, r->trailing_a, r->trailing_b}) {
    EXPECT_EQ(0, v);
  }
}

TEST_F(StoreTest, RowReadersFillArraysAndSkipOtherShapes) {
  make_store(root);
  insert_numbered_links(root, 3);
  insert_fids(root, {{"key00001", "f", "/p"}});
  std::vector<ShareLinkRecord> rows(3);
  sf_record_array_count = 0, sf_clean_array_count = 0;
  ASSERT_EQ(0, sf_event_select(sf_fill_record_array, 1, 0, 0, rows.data()));
  EXPECT_EQ(3, sf_record_array_count);
  EXPECT_EQ(0, sf_clean_array_count);
  EXPECT_STREQ("key00002", rows[0].pkey);
  EXPECT_STREQ("00:00:00", rows[2].create_time);
  // Twenty columns: not a link row.
  ASSERT_EQ(0, sf_event_fid_count_select(sf_fill_record_array_clean, 0, 0, 0, rows.data()));
  EXPECT_EQ(0, sf_clean_array_count);
  SfRecordArray bounded{rows.data(), 2, 0, 0};
  ASSERT_EQ(0, sf_event_select(sf_fill_record_bounded, 0, 0, 0, &bounded));
  EXPECT_EQ(2, bounded.count);
  EXPECT_EQ(1, bounded.overflow);
}

TEST_F(StoreTest, UpdateTargets) {
  make_store(root);
  std::vector<FixtureLink> links = {{"a"}, {"b"}, {"c"}};
  links[1].misc = "----";
  insert_links(root, links);
  ShareLinkRecord r = empty_filter();
  put(r.pkey, "a"), put(r.title, "T'");
  r.expire = 9, r.ssl = 1;
  ASSERT_EQ(0, sf_event_update(&r));
  r = empty_filter();  // key alone: nothing to set, the statement fails
  put(r.pkey, "a");
  EXPECT_EQ(-28, sf_event_update(&r));
  EXPECT_EQ((Rows{{"a", "9", "1", "T'"}, {"b", "0", "0", ""}, {"c", "0", "0", ""}}),
            store_rows(root, "SELECT pkey, expire, ssl, title FROM SHARELINK_EVENT ORDER BY pkey"));
  // No key: type alone changes every row; misc first changes the "----" rows.
  r = empty_filter();
  r.type = 4;
  ASSERT_EQ(0, sf_event_update(&r));
  EXPECT_EQ("3", store_value(root, "SELECT COUNT(*) FROM SHARELINK_EVENT WHERE type = 4"));
  r = empty_filter();
  put(r.misc, "11"), put(r.title, "new");
  ASSERT_EQ(0, sf_event_update(&r));
  EXPECT_EQ((Strings{"b"}), keys_of(root, "WHERE title = 'new' AND misc = '11'"));
}

TEST_F(StoreTest, UpdateListAppliesEachRecordInOneTransaction) {
  make_store(root);
  insert_links(root, {{"a"}, {"b"}, {"c"}});
  std::vector<ShareLinkListNode> nodes(3);
  for (size_t i = 0; i < 3; ++i) {
    sf_filter_reset(&nodes[i].record);
    nodes[i].next = i < 2 ? &nodes[i + 1] : nullptr;
  }
  put(nodes[0].record.pkey, "a"), put(nodes[1].record.host, "all"), put(nodes[2].record.pkey, "c");
  nodes[0].record.expire = 7, nodes[2].record.type = 5;  // node 1 has no key: every row
  ASSERT_EQ(0, sf_event_update_list(2, &nodes[0]));
  EXPECT_EQ((Rows{{"a", "all", "7", "0"}, {"b", "all", "0", "0"}, {"c", "all", "0", "0"}}),
            store_rows(root, "SELECT pkey, host, expire, type FROM SHARELINK_EVENT ORDER BY pkey"));
  // A bad record stops the list and rolls back what went before.
  nodes[1].record.host[0] = '\0';
  memset(nodes[1].record.accesscode, 'x', sizeof nodes[1].record.accesscode);
  nodes[0].record.expire = 8;
  EXPECT_EQ(-28, sf_event_update_list(3, &nodes[0]));
  EXPECT_EQ("7", store_value(root, "SELECT expire FROM SHARELINK_EVENT WHERE pkey = 'a'"));
  EXPECT_EQ(0, sf_parked_connection_count());
  // One that cannot be prepared leaves its connection open until the next operation.
  store_exec(root, "DROP TABLE SHARELINK_EVENT; CREATE TABLE SHARELINK_EVENT ( pkey TEXT, host TEXT );");
  nodes[0].next = nullptr;
  EXPECT_EQ(-28, sf_event_update_list(1, &nodes[0]));
  EXPECT_EQ(1, sf_parked_connection_count());
  EXPECT_EQ(0, sf_event_count());
  EXPECT_EQ(0, sf_parked_connection_count());
}

TEST_F(StoreTest, DeleteByField) {
  make_store(root);
  std::vector<FixtureLink> links = {{"a"}, {"b"}, {"c"}, {"d"}};
  links[0].expire = 100, links[1].expire = 200, links[3].ssl = 1;
  insert_links(root, links);
  int32_t none = -5;
  for (int field = 0; field <= 18; ++field) {  // every code names a real column
    bool integer = field == 2 || field == 6 || field == 7 || field == 10 || field == 11 || field == 17;
    EXPECT_EQ(0, sf_event_delete_by_field(field, integer ? static_cast<const void*>(&none) : "none"))
        << field;
  }
  EXPECT_EQ(4, sf_event_count());
  int32_t when = 200, ssl = 1;
  EXPECT_EQ(0, sf_event_delete_by_field(7, &when));  // expire: set and before
  EXPECT_EQ((Strings{"b", "c", "d"}), keys_of(root));
  EXPECT_EQ(0, sf_event_delete_by_field(2, &ssl));
  EXPECT_EQ(0, sf_event_delete_by_field(0, "b"));
  EXPECT_EQ((Strings{"c"}), keys_of(root));
}

TEST_F(StoreTest, DeleteByFilterIgnoresAFailedCommitAndPlainStatementsRun) {
  make_store(root);
  insert_links(root, {{"a"}, {"b"}});
  // A reader holding its shared lock keeps any commit from finishing.
  sqlite3* reader = nullptr;
  ASSERT_EQ(SQLITE_OK, sqlite3_open(store_file(root).c_str(), &reader));
  ASSERT_EQ(SQLITE_OK, sqlite3_exec(reader, "BEGIN; SELECT COUNT(*) FROM SHARELINK_EVENT;", nullptr,
                                    nullptr, nullptr));
  ShareLinkRecord f = empty_filter();
  put(f.pkey, "a");
  EXPECT_EQ(0, sf_event_delete_filter(&f));
  EXPECT_EQ(-27, sf_event_delete_by_field(0, "a"));
  sqlite3_exec(reader, "COMMIT;", nullptr, nullptr, nullptr);
  sqlite3_close(reader);
  EXPECT_EQ(2, sf_event_count());  // neither delete was kept
  EXPECT_EQ(0, sf_exec_sql("UPDATE SHARELINK_EVENT SET misc = '100%%';"));
  EXPECT_EQ("100%", store_value(root, "SELECT misc FROM SHARELINK_EVENT WHERE pkey = 'a'"));
  EXPECT_EQ(1, sf_exec_sql("no such statement"));  // SQLITE_ERROR
  EXPECT_EQ(-11, sf_exec_sql("SELECT '%s';"));
}

}  // namespace
