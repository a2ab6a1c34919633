// Relocation while sixteen processes count into the store the way share.cgi does (the shared
// use lock from reading the store path until the count commits): no count is lost or fails.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>
#include "platform/os.h"
#include "sharelink_db/event_rows.h"
#include "sharelink_db/store.h"
#include "sharelink_db/store_use_lock.h"
#include "support/appliance.h"
#include "support/store_fixture.h"

namespace {
constexpr int kWorkers = 16, kCounts = 60;
TEST(SlowStoreRelocation, CountsDuringACrossVolumeMoveAllLandInTheMovedStore) {
  ApplianceRoot root; ScopedEnv env{{{"SHARELINK_ROOT", root.dir()}}};
  root.script("/bin/mkdir", "exec mkdir -p \"$SHARELINK_ROOT$2\"\n");
  // A move across file systems: a copy, then the original removed (slowly, as a big store would be).
  root.script("/bin/mv", "cp \"$SHARELINK_ROOT$2\" \"$SHARELINK_ROOT$3\" && sleep 0.3 && rm -f \"$SHARELINK_ROOT$2\"\n");
  root.mkdirs("/share/Vol1");
  root.write("/etc/config/Korvix.conf", "[Depot]\nShare_Link_Db = /mnt/ext/share_link.db\n[Storage]\nDefault Volume = /share/Vol1\n");
  root.mkdirs("/mnt/ext"); make_store(root); insert_links(root, {{"k"}});
  int results[2];
  ASSERT_EQ(0, pipe(results));
  std::vector<pid_t> workers;
  for (int w = 0; w < kWorkers; ++w) {
    pid_t pid = fork();
    ASSERT_GE(pid, 0);
    if (pid != 0) { workers.push_back(pid); continue; }
    char counted = 0;
    for (int i = 0; i < kCounts; ++i) {
      StoreUseLock use(StoreUseLock::kShared);
      if (use.held() &&
          sf_exec_sql("UPDATE SHARELINK_EVENT SET download_count = download_count + 1 WHERE pkey = 'k'") == 0) {
        ++counted;
      }
      use.release();
      ::usleep(10000);
    }
    _exit(write(results[1], &counted, 1) == 1 ? 0 : 1);
  }
  ::usleep(150000);
  EXPECT_EQ(1, sf_relocate_db()) << sf_relocate_problem();
  int counted = 0;
  for (pid_t pid : workers) {
    int status = -1; waitpid(pid, &status, 0); EXPECT_EQ(0, status);
    char c = 0; ASSERT_EQ(1, read(results[0], &c, 1)); counted += c;
  }
  close(results[0]); close(results[1]);
  EXPECT_EQ(kWorkers * kCounts, counted);  // no count failed
  EXPECT_EQ(std::to_string(kWorkers * kCounts), store_value(root, "SELECT download_count FROM SHARELINK_EVENT"));
  EXPECT_FALSE(root.exists("/mnt/ext/share_link.db"));  // none of them made a store at the old place
}
}  // namespace
