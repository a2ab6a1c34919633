// Store path, folder creation, relocation onto the default volume.
#include <sys/stat.h>
#include "sharelink_db/cleanup.h"
#include "sharelink_db/event_rows.h"
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
}  // namespace
