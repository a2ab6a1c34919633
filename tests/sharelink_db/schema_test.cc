// Schema, upgrades, start-up with rotation of a broken store, the trigger.
#include <sqlite3.h>

#include <ctime>

#include "platform/naslog_migrate.h"
#include "sharelink_db/event_rows.h"
#include "sharelink_db/result_codes.h"
#include "store_test_util.h"

namespace {

using Rows = std::vector<std::vector<std::string>>;

std::vector<std::string> columns_of(const ApplianceRoot& root, const std::string& table) {
  std::vector<std::string> names;
  for (const auto& row : store_rows(root, "PRAGMA table_info(" + table + ")")) names.push_back(row[1]);
  return names;
}

TEST_F(StoreTest, TableCreationRunsItsPreparatoryStatementsAndReportsFailures) {
  {
    SqlCapture sql;
    ASSERT_EQ(0, sf_create_acx_table());
    ASSERT_GE(sql.statements().size(), 3u);
    EXPECT_EQ("PRAGMA page_size = 100000;", sql.statements()[0]);
    EXPECT_EQ("PRAGMA case_sensitive_like=ON;", sql.statements()[1]);
    EXPECT_EQ("CREATE TABLE IF NOT EXISTS SHARELINK_ACX ( pkey TEXT, acx TEXT );", sql.statements()[2]);
  }
  // A file that is no database: the creation statement fails.
  root.write("/etc/config/share_link.db", std::string(4096, 'x'));
  EXPECT_EQ(-21, sf_create_event_table());
  EXPECT_EQ(-63, sf_create_tables());
  make_store_unopenable();
  EXPECT_EQ(-20, sf_create_user_table());
  EXPECT_EQ(-20, sf_create_trigger(0, 0));
}

TEST_F(StoreTest, TriggerLimitAndBatchAreHonoured) {
  make_store(root);
  insert_links(root, {{"old1"}, {"old2"}});
  store_exec(root, "UPDATE SHARELINK_EVENT SET create_date = '2001-01-01'");
  ASSERT_EQ(0, sf_create_trigger(2, 2));
  ShareLinkRecord r = empty_filter();
  snprintf(r.pkey, sizeof r.pkey, "new");
  ASSERT_EQ(0, sf_event_insert(&r));
  EXPECT_EQ((Rows{{"new"}}), store_rows(root, "SELECT pkey FROM SHARELINK_EVENT"));
  EXPECT_EQ(0, sf_drop_trigger());
  EXPECT_EQ(-26, sf_drop_trigger());
}

// The table holds at most 100000 links; one more drops the oldest by
// creation date and time.
TEST_F(StoreTest, TriggerKeepsOneHundredThousandLinks) {
  make_store(root);
  insert_numbered_links(root, 100000);
  ASSERT_EQ(0, sf_reset_trigger());
  ShareLinkRecord r = empty_filter();
  snprintf(r.pkey, sizeof r.pkey, "newest");
  ASSERT_EQ(0, sf_event_insert(&r));
  EXPECT_EQ(100000, sf_event_count());
  EXPECT_EQ("0", store_value(root, "SELECT COUNT(*) FROM SHARELINK_EVENT WHERE pkey = 'key00000'"));
  EXPECT_EQ("1", store_value(root, "SELECT COUNT(*) FROM SHARELINK_EVENT WHERE pkey = 'key00001'"));
  EXPECT_EQ("1", store_value(root, "SELECT COUNT(*) FROM SHARELINK_EVENT WHERE pkey = 'newest'"));
}

TEST_F(StoreTest, InitUpgradesAnOldStoreAndKeepsItsRows) {
  store_exec(root,
             "CREATE TABLE SHARELINK_EVENT ( pkey TEXT, host TEXT, ssl INTEGER, sharefile TEXT, "
             "useraddr TEXT, filesize TEXT, createtic INTEGER, expire INTEGER, creator TEXT, "
             "accesscode TEXT, download_count INTEGER, download_limit INTEGER, misc TEXT, "
             "create_date TEXT, create_time TEXT);"
             "CREATE TABLE SHARELINK_FID ( pkey TEXT, fid TEXT );"
             "CREATE TABLE SHARELINK_USER ( pkey TEXT, user TEXT );"
             "CREATE INDEX idx_host on SHARELINK_EVENT(host);"
             "CREATE INDEX idx_misc on SHARELINK_EVENT(misc);"
             "INSERT INTO SHARELINK_EVENT VALUES ('k1', 'h', 1, '/share/A/x', 'u@x', '12', 5, 0, "
             "'bob', 'c', 2, 3, 'm', '2020-01-01', '10:00:00');"
             "INSERT INTO SHARELINK_FID VALUES ('k1', 'f1');"
             "INSERT INTO SHARELINK_FID VALUES ('gone', 'f2');"
             "INSERT INTO SHARELINK_USER VALUES ('k1', 'amy');");
  EXPECT_EQ(0, sf_init_db("/etc/config/share_link.db"));

  EXPECT_EQ((std::vector<std::string>{"pkey", "host", "ssl", "sharefile", "useraddr", "filesize",
                                      "createtic", "expire", "creator", "accesscode",
                                      "download_count", "download_limit", "misc", "create_date",
                                      "create_time", "title", "description", "type", "link_name"}),
            columns_of(root, "SHARELINK_EVENT"));
  EXPECT_EQ((std::vector<std::string>{"pkey", "fid", "sharefile"}), columns_of(root, "SHARELINK_FID"));
  EXPECT_EQ((std::vector<std::string>{"pkey", "user", "description", "email"}),
            columns_of(root, "SHARELINK_USER"));
  EXPECT_EQ((Rows{{"k1", "h", "1", "/share/A/x", "u@x", "12", "5", "0", "bob", "c", "2", "3", "m",
                   "2020-01-01", "10:00:00", kFixtureNull, kFixtureNull, kFixtureNull, kFixtureNull}}),
            store_rows(root, "SELECT * FROM SHARELINK_EVENT"));
  // The orphan file row is removed, the link's own kept.
  EXPECT_EQ((Rows{{"k1", "f1", kFixtureNull}}), store_rows(root, "SELECT * FROM SHARELINK_FID"));
  EXPECT_EQ((Rows{{"k1", "amy", kFixtureNull, kFixtureNull}}), store_rows(root, "SELECT * FROM SHARELINK_USER"));
  EXPECT_TRUE(store_rows(root, "SELECT name FROM sqlite_master WHERE name IN ('idx_host', 'idx_misc')").empty());
  EXPECT_EQ("1", store_value(root, "SELECT COUNT(*) FROM sqlite_master WHERE type = 'trigger'"));
  // A second initialisation finds nothing to change.
  EXPECT_EQ(0, sf_init_db("/etc/config/share_link.db"));
}

TEST_F(StoreTest, ColumnMigrationReportsWhatItCannotDo) {
  store_exec(root, "CREATE TABLE T ( a TEXT );");
  const NaslogColumn add_b[] = {{"A", nullptr}, {"b", "ALTER TABLE T ADD COLUMN b TEXT;"}};
  const NaslogColumn bad_add[] = {{"c", "ALTER TABLE T ADD COLUMN ;"}};
  const NaslogColumn required[] = {{"z", nullptr}};
  EXPECT_EQ(-1, naslog_common_migrate_db("", "T", add_b, 2));
  EXPECT_EQ(-1, naslog_common_migrate_db("/etc/config/share_link.db", "T", nullptr, 1));
  EXPECT_EQ(0, naslog_common_migrate_db("/etc/config/share_link.db", "T", add_b, 2));
  EXPECT_EQ((std::vector<std::string>{"a", "b"}), columns_of(root, "T"));
  EXPECT_EQ(-4, naslog_common_migrate_db("/etc/config/share_link.db", "T", bad_add, 1));
  EXPECT_EQ(-5, naslog_common_migrate_db("/etc/config/share_link.db", "T", required, 1));
  EXPECT_EQ(-2, naslog_common_migrate_db("/nowhere/x.db", "T", add_b, 2));
  EXPECT_EQ(-1, sf_migrate_tables(""));
}

class StartupTest : public StoreTest {
 protected:
  const std::string db = "/etc/config/share_link.db";
  void age(const std::string& ap, int days) { root.set_mtime(ap, time(nullptr) - days * 86400); }
  void expect_fresh_store() {
    EXPECT_EQ((Rows{{"SHARELINK_EVENT"}, {"SHARELINK_FID"}, {"SHARELINK_USER"}}),
              store_rows(root, "SELECT name FROM sqlite_master WHERE type = 'table' ORDER BY name"));
    EXPECT_EQ(0, sf_event_count());
  }
};

TEST_F(StartupTest, MakesAMissingStoreWithoutTrigger) {
  EXPECT_EQ(0, sf_startup());
  expect_fresh_store();
  EXPECT_EQ("0", store_value(root, "SELECT COUNT(*) FROM sqlite_master WHERE type = 'trigger'"));
  // The flock file stays; the marker lock was never taken.
  EXPECT_TRUE(root.exists("/tmp/kdx_shareLink_flock.lock"));
  EXPECT_FALSE(root.exists("/tmp/kdx_shareLink.lock"));
}

TEST_F(StartupTest, InitialisesAnExistingStore) {
  make_store(root);
  insert_links(root, {{"k1"}});
  EXPECT_EQ(0, sf_startup());
  EXPECT_EQ(1, sf_event_count());
  EXPECT_EQ("1", store_value(root, "SELECT COUNT(*) FROM sqlite_master WHERE type = 'trigger'"));
}

TEST_F(StartupTest, RotatesABrokenStoreAndRemovesOldGenerations) {
  root.write(db, std::string(4096, 'x'));
  root.write(db + ".10", "ten");
  root.write(db + ".9", "nine");
  root.write(db + ".3", "three");
  age(db + ".9", 1);
  age(db + ".3", 31);
  EXPECT_EQ(1, sf_startup());
  EXPECT_EQ(std::string(4096, 'x'), root.read(db + ".1"));
  EXPECT_EQ("nine", root.read(db + ".10"));
  EXPECT_FALSE(root.exists(db + ".9"));
  EXPECT_FALSE(root.exists(db + ".3"));
  EXPECT_FALSE(root.exists(db + ".4"));
  expect_fresh_store();
}

TEST_F(StartupTest, RotationMovesYoungGenerationsUp) {
  root.write(db, std::string(4096, 'x'));
  root.write(db + ".1", "one");
  root.write(db + ".3", "three");
  age(db + ".3", 2);
  EXPECT_EQ(1, sf_startup());
  EXPECT_EQ("one", root.read(db + ".2"));
  EXPECT_EQ("three", root.read(db + ".4"));
  EXPECT_FALSE(root.exists(db + ".3"));
  expect_fresh_store();
}

TEST_F(StartupTest, DoesNothingWhenTheLockCannotBeTaken) {
  os.flock = [](int, int) {
    errno = EWOULDBLOCK;
    return -1;
  };
  EXPECT_EQ(0, sf_startup());
  EXPECT_FALSE(root.exists(db));
}

}  // namespace
