// Table creation, column migration, start-up with rotation of a broken store,
// the trigger. (The upgrade of an old store: the end-to-end init test.)
#include <ctime>
#include <map>

#include "platform/naslog_migrate.h"
#include "sharelink_db/event_rows.h"
#include "sharelink_db/result_codes.h"
#include "store_test_util.h"

namespace {

const std::string kDb = "/etc/config/share_link.db";

TEST_F(StoreTest, TableCreationReportsFailures) {
  root.write(kDb, std::string(4096, 'x'));  // no database: the creation statement fails
  EXPECT_EQ(-21, sf_create_event_table());
  EXPECT_EQ(-63, sf_create_tables()); make_store_unopenable();
  EXPECT_EQ(-20, sf_create_user_table()); EXPECT_EQ(-20, sf_create_trigger(0, 0));
}

// The trigger keeps a limit (dropping the oldest by creation date and time);
// reset, it holds 100000 links.
TEST_F(StoreTest, TriggerLimits) {
  make_store(root); insert_links(root, {{"old1"}, {"old2"}});
  store_exec(root, "UPDATE SHARELINK_EVENT SET create_date = '2001-01-01'");
  ASSERT_EQ(0, sf_create_trigger(2, 2)); ShareLinkRecord r = empty_filter(); put(r.pkey, "new");
  ASSERT_EQ(0, sf_event_insert(&r));
  EXPECT_EQ((Rows{{"new"}}), store_rows(root, "SELECT pkey FROM SHARELINK_EVENT"));
  EXPECT_EQ(0, sf_drop_trigger()); EXPECT_EQ(-26, sf_drop_trigger());
  store_exec(root, "DELETE FROM SHARELINK_EVENT"); insert_numbered_links(root, 100000);
  ASSERT_EQ(0, sf_reset_trigger()); put(r.pkey, "newest"); ASSERT_EQ(0, sf_event_insert(&r));
  EXPECT_EQ(100000, sf_event_count());
  EXPECT_EQ((Rows{{"key00001"}, {"newest"}}),
            store_rows(root, "SELECT pkey FROM SHARELINK_EVENT WHERE pkey IN ('key00000', 'key00001', "
                             "'newest') ORDER BY pkey"));
}

TEST_F(StoreTest, ColumnMigrationReportsWhatItCannotDo) {
  store_exec(root, "CREATE TABLE T ( a TEXT );");
  const NaslogColumn add_b[] = {{"A", nullptr}, {"b", "ALTER TABLE T ADD COLUMN b TEXT;"}};
  const NaslogColumn bad_add[] = {{"c", "ALTER TABLE T ADD COLUMN ;"}};
  const NaslogColumn required[] = {{"z", nullptr}};
  EXPECT_EQ(-1, naslog_common_migrate_db("", "T", add_b, 2));
  EXPECT_EQ(-1, naslog_common_migrate_db(kDb.c_str(), "T", nullptr, 1));
  EXPECT_EQ(0, naslog_common_migrate_db(kDb.c_str(), "T", add_b, 2));
  EXPECT_EQ((Rows{{"a"}, {"b"}}), store_rows(root, "SELECT name FROM pragma_table_info('T')"));
  EXPECT_EQ(-4, naslog_common_migrate_db(kDb.c_str(), "T", bad_add, 1));
  EXPECT_EQ(-5, naslog_common_migrate_db(kDb.c_str(), "T", required, 1));
  EXPECT_EQ(-2, naslog_common_migrate_db("/nowhere/x.db", "T", add_b, 2));
  EXPECT_EQ(-1, sf_migrate_tables(""));
}

TEST_F(StoreTest, StartupInitialisesAnExistingStoreAndNeverTakesTheMarkerLock) {
  make_store(root); insert_links(root, {{"k1"}}); EXPECT_EQ(0, sf_startup());
  EXPECT_EQ(1, sf_event_count());
  EXPECT_EQ("1", store_value(root, "SELECT COUNT(*) FROM sqlite_master WHERE type = 'trigger'"));
  EXPECT_FALSE(root.exists("/tmp/kdx_shareLink.lock"));
  os.flock = [](int, int) { return errno = EWOULDBLOCK, -1; };  // lock taken: nothing done
  root.remove(kDb);
  EXPECT_EQ(0, sf_startup()); EXPECT_FALSE(root.exists(kDb));
}

// A broken store becomes generation 1; young generations move up one, those
// past 30 days and those that would pass 10 are removed.
TEST_F(StoreTest, StartupRotatesABrokenStore) {
  struct Case {
    std::vector<std::pair<std::string, int>> gens;  // suffix, age in days
    std::map<std::string, std::string> after;       // suffix -> text
    Strings gone;
  };
  const Case cases[] = {{{{".10", 0}, {".9", 1}, {".3", 31}}, {{".10", ".9"}}, {".9", ".3", ".4"}},
                        {{{".1", 0}, {".3", 2}}, {{".2", ".1"}, {".4", ".3"}}, {".3"}}};
  for (const Case& c : cases) {
    ApplianceRoot fresh; ScopedEnv in{{{"SHARELINK_ROOT", fresh.dir()}}}; profile_cache_clear();
    fresh.write(kDb, std::string(4096, 'x'));
    for (const auto& g : c.gens) {
      fresh.write(kDb + g.first, g.first);
      fresh.set_mtime(kDb + g.first, time(nullptr) - g.second * 86400);
    }
    EXPECT_EQ(1, sf_startup()); EXPECT_EQ(std::string(4096, 'x'), fresh.read(kDb + ".1"));
    for (const auto& a : c.after) EXPECT_EQ(a.second, fresh.read(kDb + a.first));
    for (const auto& g : c.gone) EXPECT_FALSE(fresh.exists(kDb + g)) << g;
    EXPECT_EQ((Rows{{"SHARELINK_EVENT"}, {"SHARELINK_FID"}, {"SHARELINK_USER"}}),
              store_rows(fresh, "SELECT name FROM sqlite_master WHERE type = 'table' ORDER BY name"));
    EXPECT_EQ(0, sf_event_count());
  }
}

}  // namespace
