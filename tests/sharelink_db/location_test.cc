// Store path, folder creation, relocation onto the default volume.
#include <sqlite3.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <chrono>
#include <functional>
#include "sharelink_db/cleanup.h"
#include "sharelink_db/event_rows.h"
#include "sharelink_db/store_use_lock.h"
#include "store_test_util.h"

namespace {
const std::string kExt = "/mnt/ext/share_link.db", kMoved = "/share/Vol1/.@kdx/share_link_db/share_link.db";
// A Korvix.conf naming the store and, when given, the default volume.
std::string conf(const std::string& db, const std::string& volume = "", const std::string& more = "") {
  return "[Depot]\nShare_Link_Db = " + db + "\n" + (volume.empty() ? "" : "[Storage]\nDefault Volume = " + volume + "\n") + more;
}
// mkdir and mv log their arguments and work inside the root.
struct LocationTest : StoreTest {
  void SetUp() override {
    StoreTest::SetUp();
    root.script("/bin/mkdir", "echo \"$@\" >> \"$SHARELINK_ROOT/tmp/mkdir.args\"\n"
                              "[ \"$1\" = -p ] && exec mkdir -p \"$SHARELINK_ROOT$2\"\nexit 1\n");
    root.script("/bin/mv", "echo \"$@\" >> \"$SHARELINK_ROOT/tmp/mv.args\"\n"
                           "exec mv -f \"$SHARELINK_ROOT$2\" \"$SHARELINK_ROOT$3\"\n");
  }
  std::string path() {
    char path[256]; sf_get_db_path(path, sizeof path);
    return path;
  }
  mode_t mode_of(const std::string& ap) {
    struct stat st;
    EXPECT_EQ(0, stat(root.path(ap).c_str(), &st));
    return st.st_mode & 07777;
  }
};
// The default needs no folder; a configured path gets its folder made.
TEST_F(LocationTest, DefaultAndConfiguredPaths) {
  EXPECT_EQ("/etc/config/share_link.db", path()); EXPECT_EQ(0, sf_db_file_ready());
  EXPECT_FALSE(root.exists("/tmp/mkdir.args")); make_store(root); EXPECT_EQ(1, sf_db_file_ready());
  configure("[Depot]\nShare_Link_Db =\n"); EXPECT_EQ("/etc/config/share_link.db", path());
  char small[8] = "unset"; sf_get_db_path(small, sizeof small); EXPECT_STREQ("/etc/co", small);
  sf_get_db_path(small, 0); EXPECT_STREQ("/etc/co", small); sqlite3* db = nullptr;
  EXPECT_EQ((Ints{-1, -1, -1}), (Ints{sf_db_open(nullptr, 256, &db), sf_db_open(small, 0, &db),
                                      sf_db_open(small, sizeof small, nullptr)}));
  configure(conf("/share/Data/links/x.db")); EXPECT_EQ("/share/Data/links/x.db", path());
  EXPECT_EQ(0, sf_db_file_ready()); EXPECT_EQ("-p /share/Data/links\n", root.read("/tmp/mkdir.args"));
  EXPECT_EQ((Ints{0, 1}), (Ints{sf_startup(), sf_db_file_ready()}));
  EXPECT_TRUE(root.exists("/share/Data/links/x.db"));
}
// Stores under /etc/config or /share stay; others move onto the default volume, modes opened.
TEST_F(LocationTest, AnUnmanagedStoreMovesOntoTheDefaultVolume) {
  make_store(root); EXPECT_EQ(1, sf_relocate_db());
  configure(conf("/share/Data/x.db", "/share/Vol1")); root.write("/share/Data/x.db", "data");
  EXPECT_EQ(1, sf_relocate_db()); EXPECT_TRUE(root.exists("/share/Data/x.db"));
  EXPECT_FALSE(root.exists("/tmp/mv.args")); root.mkdirs("/share/Vol1");
  configure(conf(kExt, "/share/Vol1")); root.write(kExt, "data", 0600); EXPECT_EQ(1, sf_relocate_db());
  EXPECT_EQ("-p /share/Vol1/.@kdx/share_link_db\n", root.read("/tmp/mkdir.args"));
  EXPECT_EQ("-f " + kExt + " " + kMoved + "\n", root.read("/tmp/mv.args"));
  EXPECT_EQ("data", root.read(kMoved));
  EXPECT_EQ((Ints{0666, 0777}), (Ints{static_cast<int>(mode_of(kMoved)), static_cast<int>(mode_of("/share/Vol1"))}));
  EXPECT_EQ(kMoved, path()); EXPECT_EQ(1, sf_relocate_db());
}
// A failed move, no volume, or a folder that cannot be made: the configuration stays.
TEST_F(LocationTest, AFailedMoveLeavesTheConfigurationAlone) {
  root.mkdirs("/share/Vol1/.@kdx/share_link_db"); root.script("/bin/mv", "exit 1\n");
  configure(conf(kExt, "/share/Vol1")); root.write(kExt, "data"); EXPECT_EQ(0, sf_relocate_db());
  EXPECT_FALSE(root.exists("/tmp/mkdir.args"));  // the folder was there
  EXPECT_EQ("data", root.read(kExt));
  configure(conf(kExt)); EXPECT_EQ(0, sf_relocate_db()); root.script("/bin/mkdir", "exit 1\n");
  root.mkdirs("/share/Vol2"); configure(conf(kExt, "/share/Vol2")); EXPECT_EQ(0, sf_relocate_db());
  EXPECT_EQ(kExt, path());
}
TEST_F(LocationTest, AMissingUnmanagedStoreIsRepointed) {
  configure(conf(kExt, "/share/Vol3"));
  EXPECT_EQ(0, sf_relocate_db());  // volume path missing
  root.mkdirs("/share/Vol3");
  EXPECT_EQ(1, sf_relocate_db()); EXPECT_EQ("/share/Vol3/.@kdx/share_link_db/share_link.db", path());
  EXPECT_TRUE(root.exists("/share/Vol3/.@kdx/share_link_db")); EXPECT_FALSE(root.exists("/tmp/mv.args"));
  EXPECT_EQ((Ints{0, 0}), (Ints{sf_set_db_location(""), sf_set_db_location(nullptr)}));
}
// The relay host is rewritten first (with both domains); a failed rewrite stops the pass.
TEST_F(LocationTest, RelocationPassRewritesTheRelayHostFirst) {
  make_store(root);
  insert_links(root, {{"a", "x.relay-old.example"}, {"b", "www.relay-old.example"}, {"c", "nas.lan"}});
  configure("[ShareLink]\nRelay Domain Old = .relay-old.example\n"); EXPECT_EQ(1, sf_relocate_pass());
  configure("[ShareLink]\nRelay Domain Old = .relay-old.example\nRelay Domain New = .relay-new.example\n");
  EXPECT_EQ(1, sf_relocate_pass());
  EXPECT_EQ((Rows{{"a", "x.relay-new.example"}, {"b", "www.relay-old.example"}, {"c", "nas.lan"}}),
            store_rows(root, "SELECT pkey, host FROM SHARELINK_EVENT ORDER BY pkey"));
  configure(conf(kExt, "/share/Vol1", "[ShareLink]\nRelay Domain Old = a\nRelay Domain New = b\n"));
  root.mkdirs("/mnt/ext"); root.mkdirs("/share/Vol1");
  store_exec(root, "CREATE TABLE OTHER ( a TEXT );"); EXPECT_EQ(-28, sf_relocate_pass());
  EXPECT_EQ(kExt, path()); EXPECT_TRUE(root.exists(kExt)); EXPECT_FALSE(root.exists("/tmp/mv.args"));
}
// The store holds every access code: it never moves into a folder a share serves.
TEST_F(LocationTest, RelocationNeverMovesTheStoreIntoAShare) {
  root.mkdirs("/share/Vol1/Public"); root.write(kExt, "data");
  const std::string kept = conf(kExt, "/share/Vol1");
  configure(kept); root.write("/etc/config/smb.conf", "[Whole]\npath = /share/Vol1\n");
  EXPECT_EQ(0, sf_relocate_db()); EXPECT_EQ(kept, root.read("/etc/config/Korvix.conf"));
  EXPECT_EQ("data", root.read(kExt)); EXPECT_FALSE(root.exists(kMoved));
  EXPECT_STREQ("/share/Vol1/.@kdx/share_link_db lies in a share or is reached through a link", sf_relocate_problem());
  root.write("/etc/config/smb.conf", "[Public]\npath = /share/Vol1/Public\n"); profile_cache_clear();
  EXPECT_EQ(1, sf_relocate_db()); EXPECT_EQ(kMoved, path()); EXPECT_EQ("data", root.read(kMoved));
}
// A download holding the store shared keeps the store and the configuration where they are.
TEST_F(LocationTest, RelocationWaitsForTheStoresUsers) {
  root.mkdirs("/share/Vol1"); root.write(kExt, "data"); configure(conf(kExt, "/share/Vol1"));
  int ready[2], verdict[2];
  ASSERT_EQ(0, pipe(ready)); ASSERT_EQ(0, pipe(verdict));
  pid_t holder = fork();
  ASSERT_GE(holder, 0);
  if (holder == 0) {
    StoreUseLock use(StoreUseLock::kShared);
    char c = use.held() ? 'h' : 'x';
    if (write(ready[1], &c, 1) != 1) _exit(1);
    ::usleep(400000);
    c = root.exists(kExt) && !root.exists(kMoved) &&
                root.read("/etc/config/Korvix.conf").find(kExt) != std::string::npos ? 'y' : 'n';
    _exit(write(verdict[1], &c, 1) == 1 ? 0 : 1);
  }
  char c = 0;
  ASSERT_EQ(1, read(ready[0], &c, 1)); ASSERT_EQ('h', c);
  auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(1, sf_relocate_db());
  auto waited = std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start);
  ASSERT_EQ(1, read(verdict[0], &c, 1)); EXPECT_EQ('y', c) << "moved while a user held the store";
  EXPECT_GE(waited.count(), 300); int status = 0; waitpid(holder, &status, 0);
  EXPECT_EQ(kMoved, path()); EXPECT_EQ("data", root.read(kMoved));
  for (int fd : {ready[0], ready[1], verdict[0], verdict[1]}) close(fd);
}
const std::string kOld = "/mnt/ext/", kNew = "/share/Vol1/.@kdx/share_link_db/";
const std::string kAccess = "share_link_access.db", kSecret = "share_link_secret", kKey(32, 'K');
// An access file whose newest rows are only in its -wal (the returned connection keeps it so).
sqlite3* access_file_with_wal(const ApplianceRoot& root) {
  sqlite3* db = nullptr;
  sqlite3_open(root.path(kOld + kAccess).c_str(), &db);
  sqlite3_exec(db, "PRAGMA journal_mode=WAL; CREATE TABLE audit (t INTEGER, event TEXT);"
                   "INSERT INTO audit VALUES (1, 'view'); PRAGMA wal_checkpoint(TRUNCATE); PRAGMA wal_autocheckpoint=0;"
                   "INSERT INTO audit VALUES (2, 'download'), (3, 'bad-code');", nullptr, nullptr, nullptr);
  return db;
}
std::string audit_of(const ApplianceRoot& root, const std::string& file) {
  sqlite3* db = nullptr; std::string out;
  if (sqlite3_open_v2(root.path(file).c_str(), &db, SQLITE_OPEN_READONLY, nullptr) == SQLITE_OK) {
    sqlite3_exec(db, "SELECT t, event FROM audit ORDER BY t", [](void* o, int, char** v, char**) {
      *static_cast<std::string*>(o) += std::string(v[0]) + ":" + v[1] + ";"; return 0; }, &out, nullptr);
  }
  sqlite3_close(db);
  return out;
}
// The access file (with what its -wal holds) and the secret move with the store, mode and owner kept.
TEST_F(LocationTest, TheCompanionsMoveWithTheStore) {
  root.mkdirs("/share/Vol1"); root.write(kExt, "data"); configure(conf(kExt, "/share/Vol1"));
  root.write(kOld + kSecret, kKey, 0600); root.write(kOld + "share_zip_slot.0", "");
  const bool privileged = geteuid() == 0;
  if (privileged) { ASSERT_EQ(0, chown(root.path(kOld + kSecret).c_str(), 33, 33)); }
  sqlite3* live = access_file_with_wal(root);
  ASSERT_TRUE(root.exists(kOld + kAccess + "-wal"));
  root.write(kNew + kAccess + "-wal", "stale");  // a leftover must not join the copy
  EXPECT_EQ(1, sf_relocate_db()); sqlite3_close(live);
  EXPECT_EQ(kMoved, path()); EXPECT_EQ("data", root.read(kMoved));
  EXPECT_EQ("1:view;2:download;3:bad-code;", audit_of(root, kNew + kAccess));
  EXPECT_EQ(kKey, root.read(kNew + kSecret)); EXPECT_EQ(0600u, mode_of(kNew + kSecret));
  struct stat st; ASSERT_EQ(0, stat(root.path(kNew + kSecret).c_str(), &st));
  if (privileged) { EXPECT_EQ(33u, st.st_uid); }
  for (const std::string& gone : {kAccess, kAccess + "-wal", kAccess + "-shm", kSecret}) {
    EXPECT_FALSE(root.exists(kOld + gone)) << gone;
  }
  EXPECT_TRUE(root.exists(kOld + "share_zip_slot.0"));
}
// Whatever step fails, the configuration, the store and its companions stay where they work.
TEST_F(LocationTest, AFailedCompanionMoveChangesNothing) {
  const struct { const char* what; std::function<void(ApplianceRoot&)> fault; const char* problem; } cases[] = {
      {"secret write", [](ApplianceRoot&) { os.write = [](int, const void*, size_t) -> ssize_t { return errno = ENOSPC, -1; }; },
       "the files beside the store could not be copied to /share/Vol1/.@kdx/share_link_db"},
      {"access file", [](ApplianceRoot& r) { r.write(kOld + "x-" + kAccess, ""); r.write(kOld + kAccess + "-journal", std::string(600, 'j')); },
       "the files beside the store could not be copied to /share/Vol1/.@kdx/share_link_db"},
      {"store move", [](ApplianceRoot& r) { r.script("/bin/mv", "exit 1\n"); },
       "/mnt/ext/share_link.db could not be moved to /share/Vol1/.@kdx/share_link_db/share_link.db"},
      {"configuration", [](ApplianceRoot&) { os.rename = [](const char*, const char*) { return errno = EIO, -1; }; },
       "the configuration could not be pointed at /share/Vol1/.@kdx/share_link_db/share_link.db"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what); ApplianceRoot r; ScopedEnv in{{{"SHARELINK_ROOT", r.dir()}}};
    r.script("/bin/mkdir", "exec mkdir -p \"$SHARELINK_ROOT$2\"\n");
    r.script("/bin/mv", "exec mv -f \"$SHARELINK_ROOT$2\" \"$SHARELINK_ROOT$3\"\n");
    r.mkdirs("/share/Vol1"); r.write(kExt, "data"); r.write(kOld + kSecret, kKey, 0600);
    const std::string kept = conf(kExt, "/share/Vol1"); r.write("/etc/config/Korvix.conf", kept);
    sqlite3_close(access_file_with_wal(r));
    if (std::string(c.what) == "access file") r.write(kOld + kAccess, std::string(8192, '#'));
    c.fault(r);
    EXPECT_EQ(0, sf_relocate_db()); os_reset(); os.usleep = [](useconds_t) { return 0; };
    EXPECT_STREQ(c.problem, sf_relocate_problem());
    EXPECT_EQ(kept, r.read("/etc/config/Korvix.conf")); EXPECT_EQ("data", r.read(kExt));
    EXPECT_EQ(kKey, r.read(kOld + kSecret));
    if (std::string(c.what) != "access file") {
      EXPECT_EQ("1:view;2:download;3:bad-code;", audit_of(r, kOld + kAccess));
    }
    for (const std::string& f : {std::string(kSfDbFileName), kAccess, kAccess + "-wal", kSecret}) {
      EXPECT_FALSE(r.exists(kNew + f)) << f;
    }
  }
}
// A lock file nobody can open stops relocation (and every shared user) rather than going unguarded.
TEST_F(LocationTest, AnUnusableStoreLockStopsRelocation) {
  root.mkdirs("/share/Vol1"); root.write(kExt, "data"); configure(conf(kExt, "/share/Vol1"));
  root.mkdirs("/tmp/kdx_shareLink_use.lock");
  EXPECT_FALSE(StoreUseLock(StoreUseLock::kShared).held());
  EXPECT_EQ(0, sf_relocate_db()); EXPECT_EQ(kExt, path()); EXPECT_EQ("data", root.read(kExt));
  EXPECT_STREQ("the lock /tmp/kdx_shareLink_use.lock could not be taken", sf_relocate_problem());
}
}  // namespace
