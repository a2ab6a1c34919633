// Schema, upgrades, start-up with rotation of a broken store, the trigger.
#include <sqlite3.h>

#include <ctime>
#include <map>

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

TEST_F(StoreTest, TableCreationReportsFailures) {
  ASSERT_EQ(0, sf_create_acx_table());
  EXPECT_EQ((std::vector<std::string>{"pkey", "acx"}), columns_of(root, "SHARELINK_ACX"));
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
};

TEST_F(StartupTest, InitialisesAnExistingStoreAndNeverTakesTheMarkerLock) {
  make_store(root);
  insert_links(root, {{"k1"}});
  EXPECT_EQ(0, sf_startup());
  EXPECT_EQ(1, sf_event_count());
  EXPECT_EQ("1", store_value(root, "SELECT COUNT(*) FROM sqlite_master WHERE type = 'trigger'"));
  EXPECT_FALSE(root.exists("/tmp/kdx_shareLink.lock"));
}

// A broken store becomes generation 1; young generations move up one, those
// past 30 days and those that would pass 10 are removed.
TEST_F(StartupTest, RotatesABrokenStore) {
  struct Case {
    std::vector<std::pair<std::string, int>> gens;  // suffix, age in days
    std::map<std::string, std::string> after;       // suffix -> text
    std::vector<std::string> gone;
  };
  const Case cases[] = {{{{".10", 0}, {".9", 1}, {".3", 31}}, {{".10", ".9"}}, {".9", ".3", ".4"}},
                        {{{".1", 0}, {".3", 2}}, {{".2", ".1"}, {".4", ".3"}}, {".3"}}};
  for (const Case& c : cases) {
    ApplianceRoot fresh;
    ScopedEnv in{{{"SHARELINK_ROOT", fresh.dir()}}};
    profile_cache_clear();
    fresh.write(db, std::string(4096, 'x'));
    for (const auto& g : c.gens) {
      fresh.write(db + g.first, g.first);
      fresh.set_mtime(db + g.first, time(nullptr) - g.second * 86400);
    }
    EXPECT_EQ(1, sf_startup());
    EXPECT_EQ(std::string(4096, 'x'), fresh.read(db + ".1"));
    for (const auto& a : c.after) EXPECT_EQ(a.second, fresh.read(db + a.first));
    for (const auto& g : c.gone) EXPECT_FALSE(fresh.exists(db + g)) << g;
    EXPECT_EQ((Rows{{"SHARELINK_EVENT"}, {"SHARELINK_FID"}, {"SHARELINK_USER"}}),
              store_rows(fresh, "SELECT name FROM sqlite_master WHERE type = 'table' ORDER BY name"));
    EXPECT_EQ(0, sf_event_count());
  }
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
