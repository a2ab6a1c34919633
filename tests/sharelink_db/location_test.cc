// Store path, folder creation, relocation onto the default volume.
#include <sys/stat.h>

#include "sharelink_db/cleanup.h"
#include "sharelink_db/event_rows.h"
#include "store_test_util.h"

namespace {

using Rows = std::vector<std::vector<std::string>>;

class LocationTest : public StoreTest {
 protected:
  void SetUp() override {
    StoreTest::SetUp();
    root.script("/bin/mkdir",
                "echo \"$@\" >> \"$SHARELINK_ROOT/tmp/mkdir.args\"\n"
                "[ \"$1\" = -p ] && exec mkdir -p \"$SHARELINK_ROOT$2\"\nexit 1\n");
    root.script("/bin/mv",
                "echo \"$@\" >> \"$SHARELINK_ROOT/tmp/mv.args\"\n"
                "exec mv -f \"$SHARELINK_ROOT$2\" \"$SHARELINK_ROOT$3\"\n");
  }
  void configure(const std::string& text) {
    root.write("/etc/config/Korvix.conf", text);
    profile_cache_clear();
  }
  std::string configured_path() {
    char path[256];
    sf_get_db_path(path, sizeof path);
    return path;
  }
  mode_t mode_of(const std::string& ap) {
    struct stat st;
    EXPECT_EQ(0, stat(root.path(ap).c_str(), &st));
    return st.st_mode & 07777;
  }
};

TEST_F(LocationTest, DefaultPathNeedsNoFolder) {
  EXPECT_EQ("/etc/config/share_link.db", configured_path());
  EXPECT_EQ(0, sf_db_file_ready());
  EXPECT_FALSE(root.exists("/tmp/mkdir.args"));
  make_store(root);
  EXPECT_EQ(1, sf_db_file_ready());
  configure("[Depot]\nShare_Link_Db =\n");
  EXPECT_EQ("/etc/config/share_link.db", configured_path());

  char small[8] = "unset";
  sf_get_db_path(small, sizeof small);
  EXPECT_STREQ("/etc/co", small);
  sf_get_db_path(small, 0);
  EXPECT_STREQ("/etc/co", small);
  sqlite3* db = nullptr;
  EXPECT_EQ(-1, sf_db_open(nullptr, 256, &db));
  EXPECT_EQ(-1, sf_db_open(small, 0, &db));
  EXPECT_EQ(-1, sf_db_open(small, sizeof small, nullptr));
}

TEST_F(LocationTest, ConfiguredPathGetsItsFolder) {
  configure("[Depot]\nShare_Link_Db = /share/Data/links/x.db\n");
  EXPECT_EQ("/share/Data/links/x.db", configured_path());
  EXPECT_EQ(0, sf_db_file_ready());
  EXPECT_EQ("-p /share/Data/links\n", root.read("/tmp/mkdir.args"));
  EXPECT_EQ(0, sf_startup());
  EXPECT_TRUE(root.exists("/share/Data/links/x.db"));
  EXPECT_EQ(1, sf_db_file_ready());
}

TEST_F(LocationTest, ManagedStoresStayWhereTheyAre) {
  make_store(root);
  EXPECT_EQ(1, sf_relocate_db());
  configure("[Depot]\nShare_Link_Db = /share/Data/x.db\n[Storage]\nDefault Volume = /share/Vol1\n");
  root.write("/share/Data/x.db", "data");
  EXPECT_EQ(1, sf_relocate_db());
  EXPECT_TRUE(root.exists("/share/Data/x.db"));
  EXPECT_FALSE(root.exists("/tmp/mv.args"));
}

TEST_F(LocationTest, AnUnmanagedStoreMovesOntoTheDefaultVolume) {
  root.mkdirs("/share/Vol1");
  configure("[Depot]\nShare_Link_Db = /mnt/ext/share_link.db\n[Storage]\nDefault Volume = /share/Vol1\n");
  root.write("/mnt/ext/share_link.db", "data", 0600);
  EXPECT_EQ(1, sf_relocate_db());
  EXPECT_EQ("-p /share/Vol1/.@kdx/share_link_db\n", root.read("/tmp/mkdir.args"));
  EXPECT_EQ("-f /mnt/ext/share_link.db /share/Vol1/.@kdx/share_link_db/share_link.db\n",
            root.read("/tmp/mv.args"));
  EXPECT_EQ("data", root.read("/share/Vol1/.@kdx/share_link_db/share_link.db"));
  EXPECT_EQ(0666u, mode_of("/share/Vol1/.@kdx/share_link_db/share_link.db"));
  EXPECT_EQ(0777u, mode_of("/share/Vol1"));
  EXPECT_EQ("/share/Vol1/.@kdx/share_link_db/share_link.db", configured_path());
  // Now managed: a second pass does nothing.
  EXPECT_EQ(1, sf_relocate_db());
}

TEST_F(LocationTest, AFailedMoveLeavesTheConfigurationAlone) {
  root.mkdirs("/share/Vol1/.@kdx/share_link_db");
  root.script("/bin/mv", "exit 1\n");
  configure("[Depot]\nShare_Link_Db = /mnt/ext/share_link.db\n[Storage]\nDefault Volume = /share/Vol1\n");
  root.write("/mnt/ext/share_link.db", "data");
  EXPECT_EQ(0, sf_relocate_db());
  EXPECT_FALSE(root.exists("/tmp/mkdir.args"));  // the folder was there
  EXPECT_EQ("/mnt/ext/share_link.db", configured_path());
  EXPECT_EQ("data", root.read("/mnt/ext/share_link.db"));
  // No volume at all.
  configure("[Depot]\nShare_Link_Db = /mnt/ext/share_link.db\n");
  EXPECT_EQ(0, sf_relocate_db());
  // The folder cannot be made.
  root.script("/bin/mkdir", "exit 1\n");
  configure("[Depot]\nShare_Link_Db = /mnt/ext/share_link.db\n[Storage]\nDefault Volume = /share/Vol2\n");
  root.mkdirs("/share/Vol2");
  EXPECT_EQ(0, sf_relocate_db());
  EXPECT_EQ("/mnt/ext/share_link.db", configured_path());
}

TEST_F(LocationTest, AMissingUnmanagedStoreIsRepointed) {
  configure("[Depot]\nShare_Link_Db = /mnt/ext/share_link.db\n");
  EXPECT_EQ(0, sf_relocate_db());  // no volume
  configure("[Depot]\nShare_Link_Db = /mnt/ext/share_link.db\n[Storage]\nDefault Volume = /share/Vol1\n");
  EXPECT_EQ(0, sf_relocate_db());  // volume path missing
  root.mkdirs("/share/Vol1");
  EXPECT_EQ(1, sf_relocate_db());
  EXPECT_EQ("/share/Vol1/.@kdx/share_link_db/share_link.db", configured_path());
  EXPECT_TRUE(root.exists("/share/Vol1/.@kdx/share_link_db"));
  EXPECT_FALSE(root.exists("/tmp/mv.args"));
  EXPECT_EQ(0, sf_set_db_location(""));
  EXPECT_EQ(0, sf_set_db_location(nullptr));
}

TEST_F(LocationTest, RelocationPassRewritesTheRelayHostFirst) {
  make_store(root);
  insert_links(root, {{"a", "x.relay-old.example"}, {"b", "www.relay-old.example"}, {"c", "nas.lan"}});
  // Without both domains the rewrite does nothing and succeeds.
  configure("[ShareLink]\nRelay Domain Old = .relay-old.example\n");
  EXPECT_EQ(1, sf_relocate_pass());
  configure("[ShareLink]\nRelay Domain Old = .relay-old.example\nRelay Domain New = .relay-new.example\n");
  EXPECT_EQ(1, sf_relocate_pass());
  EXPECT_EQ((Rows{{"a", "x.relay-new.example"}, {"b", "www.relay-old.example"}, {"c", "nas.lan"}}),
            store_rows(root, "SELECT pkey, host FROM SHARELINK_EVENT ORDER BY pkey"));
  // A failed rewrite stops the pass before anything moves.
  configure("[Depot]\nShare_Link_Db = /mnt/ext/share_link.db\n[Storage]\nDefault Volume = /share/Vol1\n"
            "[ShareLink]\nRelay Domain Old = a\nRelay Domain New = b\n");
  root.mkdirs("/mnt/ext");
  root.mkdirs("/share/Vol1");
  store_exec(root, "CREATE TABLE OTHER ( a TEXT );");
  EXPECT_EQ(-28, sf_relocate_pass());
  EXPECT_EQ("/mnt/ext/share_link.db", configured_path());
  EXPECT_TRUE(root.exists("/mnt/ext/share_link.db"));
  EXPECT_FALSE(root.exists("/tmp/mv.args"));
}

}  // namespace
