// SHARELINK_EVENT operations: filters, sort codes, paging, checks, insert,
// updates, deletes and the row readers.
#include <sqlite3.h>

#include <cstring>
#include <memory>

#include "sharelink_db/event_rows.h"
#include "sharelink_db/joined_rows.h"
#include "store_test_util.h"

namespace {

using Rows = std::vector<std::vector<std::string>>;

// Collects the keys of the selected rows in order.
int collect_key(void* user_data, int ncols, char** values, char**) {
  static_cast<std::vector<std::string>*>(user_data)->push_back(values[0] ? values[0] : "NULL");
  return 0;
}

std::vector<std::string> keys_of(const ApplianceRoot& root, const std::string& where = "") {
  std::vector<std::string> keys;
  for (const auto& row : store_rows(root, "SELECT pkey FROM SHARELINK_EVENT " + where + " ORDER BY rowid")) {
    keys.push_back(row[0]);
  }
  return keys;
}

ShareLinkRecord every_field_filter() {
  ShareLinkRecord f;
  sf_filter_reset(&f);
  f.ssl = 1;
  f.createtic = 10;
  f.expire = 20;
  f.download_count = 3;
  f.download_limit = 4;
  snprintf(f.pkey, sizeof f.pkey, "k'1");
  snprintf(f.host, sizeof f.host, "h");
  snprintf(f.sharefile, sizeof f.sharefile, "/s");
  snprintf(f.link_name, sizeof f.link_name, "ln");
  snprintf(f.useraddr, sizeof f.useraddr, "u");
  snprintf(f.creator, sizeof f.creator, "al'ice");
  snprintf(f.accesscode, sizeof f.accesscode, "ac");
  snprintf(f.misc, sizeof f.misc, "m");
  snprintf(f.title, sizeof f.title, "t");
  snprintf(f.description, sizeof f.description, "d");
  f.type = 2;
  return f;
}

TEST_F(StoreTest, EveryFilterFieldBuildsItsCondition) {
  make_store(root);
  ShareLinkRecord f = every_field_filter();
  SqlCapture sql;
  ASSERT_EQ(0, sf_event_count_filter(&f));
  ASSERT_EQ(0, sf_event_select_filter(nullptr, &f, 0, 0, 0, nullptr));
  ASSERT_EQ(0, sf_event_delete_filter(&f));
  const std::string common =
      "ssl = 1 AND createtic = 10 AND expire %s 20 AND download_count = 3 AND download_limit = 4 "
      "AND pkey = 'k''1' AND host LIKE '%%h%%' AND sharefile LIKE '%%/s%%' AND link_name LIKE "
      "'%%ln%%' AND useraddr LIKE '%%u%%' AND creator = 'al''ice' %s AND misc LIKE '%%m%%' AND "
      "title LIKE '%%t%%' AND description LIKE '%%d%%' AND type = 2 ";
  auto where = [&](const char* cmp, const char* creator_tail) {
    char* text = sqlite3_mprintf(common.c_str(), cmp, creator_tail);
    std::string s = std::string("WHERE ") + text;
    sqlite3_free(text);
    return s;
  };
  EXPECT_EQ((std::vector<std::string>{
                "SELECT COUNT(*) FROM SHARELINK_EVENT " +
                    where("<=", "OR creator = 'Mirra:al''ice'AND accesscode = 'ac'") + ";",
                "SELECT * FROM SHARELINK_EVENT " +
                    where("=", "OR creator = 'Mirra:al''ice'AND accesscode = 'ac'") +
                    " ORDER BY pkey  ;",
                "DELETE FROM SHARELINK_EVENT " + where("<=", "AND accesscode = 'ac'") + ";"}),
            sql.work());
}

TEST_F(StoreTest, AnEmptyFilterCoversTheWholeTable) {
  make_store(root);
  insert_numbered_links(root, 3);
  ShareLinkRecord f = empty_filter();
  f.ssl = 2;  // any
  SqlCapture sql;
  EXPECT_EQ(3, sf_event_count_filter(&f));
  EXPECT_EQ(0, sf_event_select_filter(nullptr, &f, 1, 0, 0, nullptr));
  EXPECT_EQ(0, sf_event_delete_filter(&f));
  EXPECT_EQ((std::vector<std::string>{"SELECT COUNT(*) FROM SHARELINK_EVENT ;",
                                      "SELECT * FROM SHARELINK_EVENT  ORDER BY pkey DESC  ;",
                                      "DELETE FROM SHARELINK_EVENT ;"}),
            sql.work());
  EXPECT_EQ(0, sf_event_count());
}

TEST_F(StoreTest, CreatorConditionMatchesTheSyncFormAndStaysUngrouped) {
  make_store(root);
  std::vector<FixtureLink> links(4);
  const char* creators[] = {"alice", "Mirra:alice", "bob", "Mirra:bob"};
  for (int i = 0; i < 4; ++i) {
    links[i].pkey = std::string("k") + char('0' + i);
    links[i].creator = creators[i];
    links[i].accesscode = i == 1 ? "x" : "y";
    links[i].ssl = i == 1 ? 1 : 0;
  }
  insert_links(root, links);
  ShareLinkRecord f = empty_filter();
  snprintf(f.creator, sizeof f.creator, "alice");
  EXPECT_EQ(2, sf_event_count_filter(&f));
  // ssl = 1 binds only to the first alternative: alice's plain link (ssl 0)
  // drops out, the Mirra one stays whatever its ssl.
  f.ssl = 1;
  EXPECT_EQ(1, sf_event_count_filter(&f));
  f.ssl = 0;
  EXPECT_EQ(2, sf_event_count_filter(&f));
  // A following condition binds only to the Mirra alternative.
  f.ssl = -1;
  snprintf(f.accesscode, sizeof f.accesscode, "x");
  EXPECT_EQ(2, sf_event_count_filter(&f));
  // Delete by filter matches the creator alone.
  ShareLinkRecord d = empty_filter();
  snprintf(d.creator, sizeof d.creator, "bob");
  EXPECT_EQ(0, sf_event_delete_filter(&d));
  EXPECT_EQ((std::vector<std::string>{"k0", "k1", "k3"}), keys_of(root));
}

TEST_F(StoreTest, LikeConditionsAreCaseSensitiveAndExpiryDiffers) {
  make_store(root);
  std::vector<FixtureLink> links = {{"a", "NAS.example"}, {"b", "nas.example"}, {"c", "nas.example"}};
  links[0].expire = 50;
  links[1].expire = 100;
  links[2].expire = 0;
  insert_links(root, links);
  ShareLinkRecord f = empty_filter();
  snprintf(f.host, sizeof f.host, "nas");
  EXPECT_EQ(2, sf_event_count_filter(&f));
  f.host[0] = '\0';
  f.expire = 100;
  EXPECT_EQ(3, sf_event_count_filter(&f));  // expire <= 100
  std::vector<std::string> keys;
  EXPECT_EQ(0, sf_event_select_filter(collect_key, &f, 0, 0, 0, &keys));
  EXPECT_EQ((std::vector<std::string>{"b"}), keys);  // expire = 100
}

TEST_F(StoreTest, SortCodes) {
  make_store(root);
  std::vector<FixtureLink> links = {{"a", "h2"}, {"b", "h3"}, {"c", "h1"}};
  links[0].create_date = "2024-01-02";
  links[0].create_time = "01:00:00";
  links[1].create_date = "2024-01-01";
  links[1].create_time = "03:00:00";
  links[2].create_date = "2024-01-01";
  links[2].create_time = "02:00:00";
  links[0].link_name = "z";
  links[1].link_name = "x";
  links[2].link_name = "y";
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
  auto order = [&](int sort, bool filtered) {
    std::vector<std::string> keys;
    if (filtered) EXPECT_EQ(0, sf_event_select_filter(collect_key, &f, sort, 0, 0, &keys));
    else EXPECT_EQ(0, sf_event_select(collect_key, sort, 0, 0, &keys));
    std::string joined;
    for (const auto& k : keys) joined += k;
    return joined;
  };
  EXPECT_EQ("cab", order(2, false));
  EXPECT_EQ("bac", order(3, true));
  EXPECT_EQ("cba", order(26, true));
  EXPECT_EQ("abc", order(27, true));
  EXPECT_EQ("acb", order(28, true));
  EXPECT_EQ("bca", order(36, false));
  EXPECT_EQ("acb", order(37, true));
  SqlCapture sql;
  EXPECT_EQ("abc", order(26, false));  // no ordering at all
  EXPECT_EQ((std::vector<std::string>{"SELECT * FROM SHARELINK_EVENT   ;"}), sql.work());
}

TEST_F(StoreTest, Paging) {
  make_store(root);
  insert_numbered_links(root, 20);
  std::vector<std::string> keys;
  ASSERT_EQ(0, sf_event_select(collect_key, 0, 5, 15, &keys));
  ASSERT_EQ(10u, keys.size());
  EXPECT_EQ("key00005", keys.front());
  EXPECT_EQ("key00014", keys.back());
  ShareLinkRecord f = empty_filter();
  keys.clear();
  ASSERT_EQ(0, sf_event_select_filter(collect_key, &f, 1, 0, 3, &keys));
  EXPECT_EQ((std::vector<std::string>{"key00019", "key00018", "key00017"}), keys);
  keys.clear();
  ASSERT_EQ(0, sf_event_select(collect_key, 0, 0, 0, &keys));
  EXPECT_EQ(20u, keys.size());
  keys.clear();
  ASSERT_EQ(0, sf_event_select(collect_key, 0, 5, 5, &keys));
  EXPECT_TRUE(keys.empty());
  for (auto range : {std::make_pair(3, 2), std::make_pair(-1, 0), std::make_pair(0, -1)}) {
    EXPECT_EQ(-11, sf_event_select(collect_key, 0, range.first, range.second, &keys));
    EXPECT_EQ(-11, sf_event_select_filter(collect_key, &f, 0, range.first, range.second, &keys));
  }
}

TEST_F(StoreTest, ChecksComeBeforeTheStoreIsOpened) {
  make_store_unopenable();
  ShareLinkRecord f = empty_filter();
  EXPECT_EQ(-20, sf_event_count_filter(&f));
  EXPECT_EQ(-20, sf_event_count());
  // Texts that fill their whole buffer (no terminator) are over the bound.
  struct Case {
    char* field;
    size_t size;
  };
  ShareLinkRecord r = empty_filter();
  Case texts[] = {{r.pkey, sizeof r.pkey},         {r.host, sizeof r.host},
                  {r.useraddr, sizeof r.useraddr}, {r.filesize, sizeof r.filesize},
                  {r.creator, sizeof r.creator},   {r.accesscode, sizeof r.accesscode},
                  {r.misc, sizeof r.misc},         {r.title, sizeof r.title},
                  {r.description, sizeof r.description}, {r.link_name, sizeof r.link_name}};
  for (const Case& c : texts) {
    r = empty_filter();
    memset(c.field, 'a', c.size);
    EXPECT_EQ(-10, sf_event_count_filter(&r));
    EXPECT_EQ(-10, sf_event_insert(&r));
    EXPECT_EQ(-10, sf_event_update(&r));
    bool delete_checks = c.field != r.title && c.field != r.description;
    EXPECT_EQ(delete_checks ? -10 : -20, sf_event_delete_filter(&r));
  }
  r = empty_filter();
  memset(r.create_date, '1', sizeof r.create_date);
  EXPECT_EQ(-10, sf_event_count_filter(&r));
  EXPECT_EQ(-20, sf_event_insert(&r));  // not inserted, not checked

  r = empty_filter();
  r.ssl = 3;
  EXPECT_EQ(-11, sf_event_count_filter(&r));
  EXPECT_EQ(-11, sf_event_select_filter(nullptr, &r, 0, 0, 0, nullptr));
  EXPECT_EQ(-11, sf_event_insert(&r));
  EXPECT_EQ(-11, sf_event_delete_filter(&r));
  r = empty_filter();
  r.expire = 100;
  r.createtic = 200;
  EXPECT_EQ(-11, sf_event_count_filter(&r));
  EXPECT_EQ(-11, sf_event_insert(&r));
  EXPECT_EQ(-11, sf_event_update(&r));
  EXPECT_EQ(-11, sf_event_delete_filter(&r));
  EXPECT_EQ(-20, sf_event_select_filter(nullptr, &r, 0, 0, 0, nullptr));  // not checked there
  EXPECT_EQ(-11, sf_event_select(nullptr, 38, 0, 0, nullptr));
  EXPECT_EQ(-11, sf_event_delete_by_field(19, "x"));
  EXPECT_EQ(-11, sf_event_delete_by_field(0, nullptr));
  EXPECT_EQ(-11, sf_event_count_filter(nullptr));
  // No target: refused without the store.
  r = empty_filter();
  r.expire = 5;
  EXPECT_EQ(-28, sf_event_update(&r));
}

TEST_F(StoreTest, InsertFillsDefaultsAndChecksRanges) {
  make_store(root);
  ShareLinkRecord r = empty_filter();
  snprintf(r.pkey, sizeof r.pkey, "k1");
  r.ssl = 1;
  r.expire = 0;
  r.createtic = 200;
  r.download_count = 0;
  r.download_limit = 0;
  r.type = 0;
  SqlCapture sql;
  ASSERT_EQ(0, sf_event_insert(&r));
  EXPECT_STREQ("system", r.creator);
  EXPECT_EQ((std::vector<std::string>{
                "BEGIN TRANSACTION",
                "INSERT INTO SHARELINK_EVENT ( pkey, host, ssl, sharefile, useraddr, filesize, "
                "createtic, expire, creator, accesscode, download_count, download_limit, misc, title, "
                "description, type, link_name ) VALUES ( 'k1', '', 1, '', '', '', 200, 0, 'system', '', "
                "0, 0, '', '', '', 0, '' );",
                "COMMIT"}),
            sql.statements());
  Rows rows = store_rows(root, "SELECT creator, create_date = CURRENT_DATE, length(create_time) FROM SHARELINK_EVENT");
  EXPECT_EQ((Rows{{"system", "1", "8"}}), rows);
}

TEST_F(StoreTest, NullColumnsReadBackAsDefaults) {
  make_store(root);
  store_exec(root, "INSERT INTO SHARELINK_EVENT VALUES (NULL, NULL, NULL, NULL, NULL, NULL, NULL, NULL, "
                   "NULL, NULL, NULL, NULL, NULL, NULL, NULL, NULL, NULL, NULL, NULL);");
  std::unique_ptr<ShareLinkRecord> r(new ShareLinkRecord);
  memset(r.get(), 0x55, sizeof *r);
  snprintf(r->reserved_key, sizeof r->reserved_key, "mine");
  ASSERT_EQ(0, sf_event_select(sf_fill_record_single, 0, 0, 0, r.get()));
  EXPECT_STREQ("----", r->pkey);
  EXPECT_STREQ("localhost", r->host);
  EXPECT_STREQ("----", r->sharefile);
  EXPECT_STREQ("none@none", r->useraddr);
  EXPECT_STREQ("0", r->filesize);
  EXPECT_STREQ("UNKNOWN", r->creator);
  for (const char* t : {r->accesscode, r->misc, r->create_date, r->create_time, r->title,
                        r->description, r->link_name}) {
    EXPECT_STREQ("----", t);
  }
  for (int32_t v : {r->ssl, r->reserved_size, r->createtic, r->expire, r->download_count,
                    r->download_limit, r->type, r->trailing_a, r->trailing_b}) {
    EXPECT_EQ(0, v);
  }
  EXPECT_STREQ("mine", r->reserved_key);
}

TEST_F(StoreTest, RowReadersFillArraysAndSkipOtherShapes) {
  make_store(root);
  insert_numbered_links(root, 3);
  insert_fids(root, {{"key00001", "f", "/p"}});
  std::vector<ShareLinkRecord> rows(3);
  sf_record_array_count = 0;
  sf_clean_array_count = 0;
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
  snprintf(r.pkey, sizeof r.pkey, "a");
  r.expire = 9;
  r.ssl = 1;
  snprintf(r.title, sizeof r.title, "T'");
  SqlCapture sql;
  ASSERT_EQ(0, sf_event_update(&r));
  EXPECT_EQ((std::vector<std::string>{
                "UPDATE SHARELINK_EVENT SET expire = 9 , ssl = 1 , title = 'T'''  WHERE pkey = 'a';"}),
            sql.work());
  // Key alone: nothing to set, the statement fails.
  r = empty_filter();
  snprintf(r.pkey, sizeof r.pkey, "a");
  EXPECT_EQ(-28, sf_event_update(&r));
  EXPECT_EQ((Rows{{"a", "9", "1", "T'"}, {"b", "0", "0", ""}, {"c", "0", "0", ""}}),
            store_rows(root, "SELECT pkey, expire, ssl, title FROM SHARELINK_EVENT ORDER BY pkey"));
  // No key: type alone changes every row; misc first changes the "----" rows.
  r = empty_filter();
  r.type = 4;
  ASSERT_EQ(0, sf_event_update(&r));
  EXPECT_EQ("3", store_value(root, "SELECT COUNT(*) FROM SHARELINK_EVENT WHERE type = 4"));
  r = empty_filter();
  snprintf(r.misc, sizeof r.misc, "11");
  snprintf(r.title, sizeof r.title, "new");
  ASSERT_EQ(0, sf_event_update(&r));
  EXPECT_EQ((std::vector<std::string>{"b"}), keys_of(root, "WHERE title = 'new' AND misc = '11'"));
}

TEST_F(StoreTest, UpdateListAppliesEachRecordInOneTransaction) {
  make_store(root);
  insert_links(root, {{"a"}, {"b"}, {"c"}});
  std::vector<ShareLinkListNode> nodes(3);
  for (auto& n : nodes) sf_filter_reset(&n.record);
  nodes[0].next = &nodes[1];
  nodes[1].next = &nodes[2];
  nodes[2].next = nullptr;
  snprintf(nodes[0].record.pkey, sizeof nodes[0].record.pkey, "a");
  nodes[0].record.expire = 7;
  snprintf(nodes[1].record.host, sizeof nodes[1].record.host, "all");  // no key: every row
  snprintf(nodes[2].record.pkey, sizeof nodes[2].record.pkey, "c");
  nodes[2].record.type = 5;
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
}

TEST_F(StoreTest, UpdateListThatCannotBePreparedLeavesItsConnectionOpen) {
  store_exec(root, "CREATE TABLE SHARELINK_EVENT ( pkey TEXT, host TEXT );");
  ShareLinkListNode node;
  sf_filter_reset(&node.record);
  node.next = nullptr;
  EXPECT_EQ(-28, sf_event_update_list(1, &node));
  EXPECT_EQ(1, sf_parked_connection_count());
  // The next operation closes it; the store is usable meanwhile.
  EXPECT_EQ(0, sf_event_count());
  EXPECT_EQ(0, sf_parked_connection_count());
}

TEST_F(StoreTest, DeleteByField) {
  make_store(root);
  std::vector<FixtureLink> links = {{"a"}, {"b"}, {"c"}, {"d"}};
  links[0].expire = 100;
  links[1].expire = 200;
  links[2].expire = 0;
  links[3].ssl = 1;
  insert_links(root, links);
  int32_t none = -5;
  // Every code names a real column.
  for (int field = 0; field <= 18; ++field) {
    bool integer = field == 2 || field == 6 || field == 7 || field == 10 || field == 11 || field == 17;
    EXPECT_EQ(0, sf_event_delete_by_field(field, integer
                                                     ? static_cast<const void*>(&none)
                                                     : static_cast<const void*>("none")))
        << field;
  }
  EXPECT_EQ(4, sf_event_count());
  SqlCapture sql;
  int32_t when = 200;
  EXPECT_EQ(0, sf_event_delete_by_field(7, &when));
  int32_t ssl = 1;
  EXPECT_EQ(0, sf_event_delete_by_field(2, &ssl));
  EXPECT_EQ(0, sf_event_delete_by_field(0, "b"));
  EXPECT_EQ((std::vector<std::string>{"DELETE FROM SHARELINK_EVENT WHERE expire > 0 AND expire < 200;",
                                      "DELETE FROM SHARELINK_EVENT WHERE ssl = 1;",
                                      "DELETE FROM SHARELINK_EVENT WHERE pkey = 'b';"}),
            sql.work());
  EXPECT_EQ((std::vector<std::string>{"c"}), keys_of(root));
}

TEST_F(StoreTest, DeleteByFilterIgnoresAFailedCommit) {
  make_store(root);
  insert_links(root, {{"a"}, {"b"}});
  // A reader holding its shared lock keeps any commit from finishing.
  sqlite3* reader = nullptr;
  ASSERT_EQ(SQLITE_OK, sqlite3_open(store_file(root).c_str(), &reader));
  ASSERT_EQ(SQLITE_OK, sqlite3_exec(reader, "BEGIN; SELECT COUNT(*) FROM SHARELINK_EVENT;", nullptr,
                                    nullptr, nullptr));
  ShareLinkRecord f = empty_filter();
  snprintf(f.pkey, sizeof f.pkey, "a");
  EXPECT_EQ(0, sf_event_delete_filter(&f));
  EXPECT_EQ(-27, sf_event_delete_by_field(0, "a"));
  sqlite3_exec(reader, "COMMIT;", nullptr, nullptr, nullptr);
  sqlite3_close(reader);
  EXPECT_EQ(2, sf_event_count());  // neither delete was kept
}

TEST_F(StoreTest, DeleteAllDropAndPlainStatements) {
  make_store(root);
  insert_links(root, {{"a"}});
  SqlCapture sql;
  EXPECT_EQ(0, sf_exec_sql("UPDATE SHARELINK_EVENT SET misc = '100%%';"));
  EXPECT_EQ("UPDATE SHARELINK_EVENT SET misc = '100%';", sql.statements().at(0));
  EXPECT_EQ(1, sf_exec_sql("no such statement"));  // SQLITE_ERROR
  EXPECT_EQ(-11, sf_exec_sql("SELECT '%s';"));
  EXPECT_EQ(0, sf_event_delete_all());
  EXPECT_EQ(0, sf_event_count());
  EXPECT_EQ(0, sf_event_drop());
  EXPECT_EQ(-21, sf_event_drop());
  EXPECT_EQ(-22, sf_event_delete_all());
}

}  // namespace
