// Creation, migration, the trigger, start-up (an old store's upgrade: the end-to-end init test).
#include <ctime>
#include <map>
#include "platform/naslog_migrate.h"
#include "sharelink_db/event_rows.h"
#include "store_test_util.h"

namespace {
const std::string kDb = "/etc/config/share_link.db";
TEST_F(StoreTest, CreationAndMigrationReportFailures) {
  root.write(kDb, std::string(4096, 'x'));  // no database: the creation statement fails
  EXPECT_EQ((Ints{-21, -63}), (Ints{sf_create_event_table(), sf_create_tables()}));
  root.remove(kDb), store_exec(root, "CREATE TABLE T ( a TEXT );");
  const NaslogColumn add_b[] = {{"A", nullptr}, {"b", "ALTER TABLE T ADD COLUMN b TEXT;"}};
  const NaslogColumn bad_add[] = {{"c", "ALTER TABLE T ADD COLUMN ;"}}, required[] = {{"z", nullptr}};
  const char* db = kDb.c_str();
  EXPECT_EQ((Ints{-1, -1, 0, -4, -5, -2, -1}),
            (Ints{naslog_common_migrate_db("", "T", add_b, 2), naslog_common_migrate_db(db, "T", nullptr, 1),
                  naslog_common_migrate_db(db, "T", add_b, 2), naslog_common_migrate_db(db, "T", bad_add, 1),
                  naslog_common_migrate_db(db, "T", required, 1), naslog_common_migrate_db("/nowhere/x.db", "T", add_b, 2),
                  sf_migrate_tables("")}));
  EXPECT_EQ((Rows{{"a"}, {"b"}}), store_rows(root, "SELECT name FROM pragma_table_info('T')"));
  make_store_unopenable();
  EXPECT_EQ((Ints{-20, -20}), (Ints{sf_create_user_table(), sf_create_trigger(0, 0)}));
}
// The trigger drops the oldest links (creation date, time) past its limit; reset, 100000.
TEST_F(StoreTest, TriggerLimits) {
  make_store(root); insert_links(root, {{"old1"}, {"old2"}});
  store_exec(root, "UPDATE SHARELINK_EVENT SET create_date = '2001-01-01'");
  ShareLinkRecord r = empty_filter(); put(r.pkey, "new");
  EXPECT_EQ((Ints{0, 0}), (Ints{sf_create_trigger(2, 2), sf_event_insert(&r)}));
  EXPECT_EQ((Rows{{"new"}}), store_rows(root, "SELECT pkey FROM SHARELINK_EVENT"));
  EXPECT_EQ((Ints{0, -26}), (Ints{sf_drop_trigger(), sf_drop_trigger()}));
  store_exec(root, "DELETE FROM SHARELINK_EVENT"); insert_numbered_links(root, 100000); put(r.pkey, "newest");
  EXPECT_EQ((Ints{0, 0, 100000}), (Ints{sf_reset_trigger(), sf_event_insert(&r), sf_event_count()}));
  EXPECT_EQ((Rows{{"key00001"}, {"newest"}}),
            store_rows(root, "SELECT pkey FROM SHARELINK_EVENT WHERE pkey IN ('key00000', 'key00001', "
                             "'newest') ORDER BY pkey"));
}
// A store is initialised without the marker lock; without the flock lock nothing is done, and says why.
TEST_F(StoreTest, Startup) {
  make_store(root); insert_links(root, {{"k1"}});
  EXPECT_EQ((Ints{0, 1}), (Ints{sf_startup(), sf_event_count()}));
  EXPECT_EQ("1", store_value(root, "SELECT COUNT(*) FROM sqlite_master WHERE type = 'trigger'"));
  EXPECT_FALSE(root.exists("/tmp/kdx_shareLink.lock"));
  os.flock = [](int, int) { return errno = EWOULDBLOCK, -1; }; root.remove(kDb); EXPECT_EQ(4, sf_startup());
  EXPECT_FALSE(root.exists(kDb));
  os_reset(); os.open = [](const char* p, int f, mode_t m) { return errno = EROFS, -1; };
  EXPECT_EQ(kSfStartupNotLocked, sf_startup());
  EXPECT_STREQ("the lock /tmp/kdx_shareLink_flock.lock could not be taken: Read-only file system",
               sf_startup_problem());
}
// A broken store becomes .1; young generations move up, those past 30 days or 10 are removed.
TEST_F(StoreTest, StartupRotatesABrokenStore) {
  struct Case {
    std::vector<std::pair<std::string, int>> gens;  // suffix, age in days
    std::map<std::string, std::string> after;       // suffix -> text
    Strings gone;
  };
  const Case cases[] = {{{{".10", 0}, {".9", 1}, {".3", 31}}, {{".10", ".9"}}, {".9", ".3", ".4"}},
                        {{{".1", 0}, {".3", 2}}, {{".2", ".1"}, {".4", ".3"}}, {".3"}}};
  for (const Case& c : cases) {
    ApplianceRoot fresh; ScopedEnv in{{{"SHARELINK_ROOT", fresh.dir()}}};
    profile_cache_clear(); fresh.write(kDb, std::string(4096, 'x'));
    for (const auto& g : c.gens) {
      fresh.write(kDb + g.first, g.first); fresh.set_mtime(kDb + g.first, time(nullptr) - g.second * 86400);
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
