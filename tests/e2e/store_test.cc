// sharelinkctl's store commands, run as the real program in a temporary
// appliance root.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/appliance.h"
#include "support/store_fixture.h"

namespace {

using Rows = std::vector<std::vector<std::string>>;
const std::string kDb = "/etc/config/share_link.db";

RunResult ctl(const ApplianceRoot& root, const std::vector<std::string>& args,
              const std::map<std::string, std::string>& env = {}) {
  return run_program(ctl_binary(), args, root, env);
}

// A store of an older release: fewer columns, two old indexes, no trigger;
// a link with a file and a recipient, and the file of a link that is gone.
void make_old_store(const ApplianceRoot& root) {
  store_exec(root,
             "CREATE TABLE SHARELINK_EVENT ( pkey TEXT, host TEXT, ssl INTEGER, sharefile TEXT, "
             "useraddr TEXT, filesize TEXT, createtic INTEGER, expire INTEGER, creator TEXT, "
             "accesscode TEXT, download_count INTEGER, download_limit INTEGER, misc TEXT, "
             "create_date TEXT, create_time TEXT);"
             "CREATE TABLE SHARELINK_FID ( pkey TEXT, fid TEXT );"
             "CREATE TABLE SHARELINK_USER ( pkey TEXT, user TEXT );"
             "CREATE INDEX idx_host on SHARELINK_EVENT(host); CREATE INDEX idx_misc on SHARELINK_EVENT(misc);"
             "INSERT INTO SHARELINK_EVENT VALUES ('k1', 'h', 1, '/share/A', 'u@x', '12', 5, 7, 'bob', 'c', "
             "2, 3, 'm', '2020-01-01', '10:00:00');"
             "INSERT INTO SHARELINK_FID VALUES ('k1', 'f1'); INSERT INTO SHARELINK_FID VALUES ('gone', 'f2');"
             "INSERT INTO SHARELINK_USER VALUES ('k1', 'amy');");
}

// Tables with their columns, and (for a new store) the indexes.
Rows schema(const ApplianceRoot& root, const std::string& types) {
  return store_rows(root, "SELECT name, (SELECT group_concat(name) FROM pragma_table_info(m.name)) FROM "
                          "sqlite_master m WHERE type IN (" + types + ") ORDER BY name");
}

// init makes a missing store (no trigger yet), sets a broken one aside, and
// upgrades an old one: the new store's tables and columns, the rows kept but
// the file rows of vanished links, the old indexes dropped, the trigger made.
TEST(CtlStore, InitMakesSetsAsideOrUpgrades) {
  ApplianceRoot made;
  make_store(made);
  const std::string n = kFixtureNull;
  for (const char* c : {"missing", "broken", "old"}) {
    SCOPED_TRACE(c);
    const std::string kind = c;
    ApplianceRoot root;
    if (kind == "broken") root.write(kDb, std::string(2048, '#'));
    if (kind == "old") make_old_store(root);
    RunResult r = ctl(root, {"init"});
    EXPECT_EQ(0, r.status);
    EXPECT_EQ("", r.out);
    EXPECT_EQ(kind != "broken" ? "" : "sharelinkctl init: " + kDb + " could not be initialised; set aside as " +
                                          kDb + ".1, new store made\n", r.err);
    const std::string types = kind == "old" ? "'table'" : "'table', 'index'";
    EXPECT_EQ(schema(made, types), schema(root, types));
    EXPECT_EQ(kind == "old" ? "1" : "0", store_value(root, "SELECT COUNT(*) FROM sqlite_master WHERE type = 'trigger'"));
    EXPECT_TRUE(root.exists("/tmp/kdx_shareLink_flock.lock"));
    EXPECT_EQ(kind == "broken" ? std::string(2048, '#') : "", root.read(kDb + ".1"));
    if (kind != "old") continue;
    EXPECT_EQ("k1\tbob\t7\t/share/A\t----\n", ctl(root, {"list"}).out);
    EXPECT_EQ((Rows{{"k1", "h", "1", "/share/A", "u@x", "12", "5", "7", "bob", "c", "2", "3", "m", "2020-01-01",
                     "10:00:00", n, n, n, n, "k1", "f1", n, "k1", "amy", n, n}}),
              store_rows(root, "SELECT * FROM SHARELINK_EVENT, SHARELINK_FID, SHARELINK_USER"));
    EXPECT_EQ("0", store_value(root, "SELECT COUNT(*) FROM sqlite_master WHERE name IN ('idx_host', 'idx_misc')"));
    EXPECT_EQ(0, ctl(root, {"init"}).status);
    EXPECT_EQ("1", store_value(root, "SELECT COUNT(*) FROM SHARELINK_FID"));
  }
}

TEST(CtlStore, AStoreThatCannotBeMadeFailsAndIsReported) {
  ApplianceRoot root;
  root.write("/etc/config/Korvix.conf", "[Depot]\nShare_Link_Db = /nowhere/x.db\n");
  RunResult r = ctl(root, {"init"});
  EXPECT_EQ(1, r.status);
  EXPECT_EQ("sharelinkctl init: the store could not be made: -20 (the store could not be opened)\n", r.err);
  EXPECT_FALSE(root.exists("/tmp/debug.log"));
  r = ctl(root, {"list", "--user", "amy"}, {{"SHARELINK_DEBUG_LEVEL", "9"}, {"SHARELINK_DEBUG_FILE", "/tmp/debug.log"}});
  EXPECT_EQ(1, r.status);
  EXPECT_EQ("sharelinkctl list: the links could not be read: -20 (the store could not be opened)\n", r.err);
  // The failure reaches the debug log, with the user, in both of its forms.
  std::string log = root.read("/tmp/debug.log");
  const std::string line = ", DB OPEN ERROR, Ret=-20, Ssid=amy\n";
  size_t first = log.find(line);
  ASSERT_NE(std::string::npos, first) << log;
  EXPECT_NE(std::string::npos, log.find(line, first + 1)) << log;
  EXPECT_EQ(0u, log.find("(pid=")) << log;
}

TEST(CtlStore, AddAndList) {
  ApplianceRoot root;
  ASSERT_EQ(0, ctl(root, {"init"}).status);
  RunResult r = ctl(root, {"add", "k2", "/share/Public/b c.txt", "--creator", "Mirra:bob", "--host", "nas.example",
                           "--ssl", "1", "--expire", "2000", "--createtic", "1000", "--link-name", "tab\there",
                           "--title", "T", "--accesscode", "secret", "--useraddr", "x@y", "--fid",
                           "101:/share/Public/b c.txt", "--fid", "102:/share/Public/d", "--recipient",
                           "amy:amy@x.example"});
  EXPECT_EQ(0, r.status) << r.err;
  EXPECT_EQ("", r.out);
  EXPECT_EQ(0, ctl(root, {"add", "k1", "/share/Data"}).status);
  EXPECT_EQ(0, ctl(root, {"add", "k3", "/share/Bob", "--creator", "bob"}).status);
  const std::string k2 = "k2\tMirra:bob\t2000\t/share/Public/b c.txt\ttab\\there\n", k3 = "k3\tbob\t0\t/share/Bob\t\n";
  r = ctl(root, {"list"});
  EXPECT_EQ(0, r.status);
  EXPECT_EQ("k1\tsystem\t0\t/share/Data\t\n" + k2 + k3, r.out);
  EXPECT_EQ(k2 + k3, ctl(root, {"list", "--user", "bob"}).out);
  EXPECT_EQ("", ctl(root, {"list", "--user", "amy"}).out);
  EXPECT_EQ((Rows{{"k2", "nas.example", "1", "x@y", "1000", "secret", "00000001", "T", "0"}}),
            store_rows(root, "SELECT pkey, host, ssl, useraddr, createtic, accesscode, misc, title, "
                             "download_count FROM SHARELINK_EVENT WHERE pkey = 'k2'"));
  EXPECT_EQ((Rows{{"k2", "101", "/share/Public/b c.txt"}, {"k2", "102", "/share/Public/d"}}),
            store_rows(root, "SELECT * FROM SHARELINK_FID ORDER BY fid"));
  EXPECT_EQ((Rows{{"k2", "amy", "", "amy@x.example"}}), store_rows(root, "SELECT * FROM SHARELINK_USER"));
}

TEST(CtlStore, UsageErrorsAndStoreFailures) {
  ApplianceRoot root;
  ASSERT_EQ(0, ctl(root, {"init"}).status);
  for (const std::vector<std::string>& args : std::vector<std::vector<std::string>>{
           {"add", "k1"}, {"add", "k1", "/p", "--colour", "red"}, {"add", "k1", "/p", "--ssl", "one"},
           {"add", "k1", "/p", "--expire"}, {"add", "k1", "/p", "--fid", "nocolon"}, {"add", std::string(41, 'k'), "/p"},
           {"list", "--user"}, {"list", "extra"}, {"init", "extra"}, {"relocate", "extra"}}) {
    RunResult r = ctl(root, args);
    EXPECT_EQ(2, r.status) << args[0] << " " << args.back();
    EXPECT_EQ("", r.out);
    EXPECT_NE(std::string::npos, r.err.find("usage: sharelinkctl " + args[0])) << r.err;
  }
  RunResult r = ctl(root, {"add", "--help"});
  EXPECT_EQ(0, r.status);
  EXPECT_EQ(0u, r.out.find("usage: sharelinkctl add KEY SHAREFILE [--creator C]"));
  r = ctl(root, {"add", "k1", "/p", "--ssl", "3"});
  EXPECT_EQ(1, r.status);
  EXPECT_EQ("sharelinkctl add: the link could not be added: -11 (bad parameter)\n", r.err);
  EXPECT_EQ(1, ctl(root, {"add", "k1", "/p", "--expire", "5", "--createtic", "9"}).status);
  ASSERT_EQ(0, ctl(root, {"add", "k1", "/p"}).status);
  r = ctl(root, {"add", "k1", "/q"});
  EXPECT_EQ(1, r.status);
  EXPECT_EQ("sharelinkctl add: a link with key k1 exists already\n", r.err);
  EXPECT_EQ("1", store_value(root, "SELECT COUNT(*) FROM SHARELINK_EVENT"));
}

// A link is added whole or not at all, even when nothing could clean up
// after a failed part (as after a kill): the store refuses to delete links.
TEST(CtlStore, AddIsOneTransaction) {
  const std::pair<const char*, const char*> cases[] = {
      {"DROP TABLE SHARELINK_USER;", "recipients"},
      {"CREATE TRIGGER no_files BEFORE INSERT ON SHARELINK_FID BEGIN SELECT RAISE(ABORT, 'x'); END;", "files"}};
  for (const auto& c : cases) {
    ApplianceRoot root;
    ASSERT_EQ(0, ctl(root, {"init"}).status);
    store_exec(root, std::string(c.first) + "CREATE TRIGGER no_deletes BEFORE DELETE ON SHARELINK_EVENT "
                                            "BEGIN SELECT RAISE(ABORT, 'x'); END;");
    RunResult r = ctl(root, {"add", "k1", "/p", "--fid", "1:/p", "--recipient", "amy:a@x"});
    EXPECT_EQ(1, r.status);
    EXPECT_EQ("sharelinkctl add: the " + std::string(c.second) + " could not be added: -23 (an insert failed)\n", r.err);
    EXPECT_EQ("0,0", store_value(root, "SELECT (SELECT COUNT(*) FROM SHARELINK_EVENT) || ',' || "
                                       "(SELECT COUNT(*) FROM SHARELINK_FID)"));
  }
}

// Start-up keeps every store SQLite does not call damaged, and says "set
// aside" only after the rename: an intact store on a disk that refuses
// writes, and a damaged one whose set-aside name is taken by a folder.
TEST(CtlStore, InitSetsAsideOnlyADamagedStoreAndOnlyWhenTheRenameWorked) {
  for (bool damaged : {false, true}) {
    SCOPED_TRACE(damaged);
    ApplianceRoot root;
    RunResult r;
    if (damaged) {
      root.write(kDb, std::string(2048, '#'));
      root.mkdirs(kDb + ".1/inside");
      root.set_mtime(kDb + ".1", 1000);  // too old to move up: removal fails
      r = ctl(root, {"init"});
    } else {
      ASSERT_EQ(0, ctl(root, {"init"}).status);
      ASSERT_EQ(0, ctl(root, {"add", "k1", "/share/A"}).status);
      // No file may grow: the trigger's re-creation cannot be written.
      r = run_program("/bin/sh", {"-c", "trap '' XFSZ; exec prlimit --fsize=0 \"$0\" init", ctl_binary()}, root);
    }
    EXPECT_EQ(1, r.status);
    EXPECT_EQ(0u, r.err.find("sharelinkctl init: " + kDb + " could not be initialised: ")) << r.err;
    EXPECT_NE(std::string::npos, r.err.find(damaged ? "; it is damaged and could not be set aside\n"
                                                    : "; the file is kept\n")) << r.err;
    EXPECT_EQ(std::string::npos, r.err.find("set aside as"));
    if (damaged) {
      EXPECT_EQ(std::string(2048, '#'), root.read(kDb));
    } else {
      EXPECT_FALSE(root.exists(kDb + ".1"));
      EXPECT_EQ("k1", store_value(root, "SELECT pkey FROM SHARELINK_EVENT"));
    }
  }
}

// The clean-up of vanished links runs at most once a minute even when its
// flag in /tmp cannot be written (a folder stands in its place): the flag
// beside the store takes over. Without either it is skipped and reported.
TEST(CtlStore, CleanUpFlagFallsBackBesideTheStore) {
  ApplianceRoot root;
  root.write("/etc/config/smb.conf", "[Public]\npath = /share/Public\n");
  root.write("/share/Public/ann/kept.txt", "x");
  make_store(root);
  auto link = [&](const std::string& key) {
    FixtureLink l(key);
    l.creator = "Mirra:ann", l.sharefile = "/Public/ann/" + key + ".txt";
    return l;
  };
  insert_links(root, {link("kept"), link("gone1")});
  auto blocked = [&](const std::string& flag) { root.mkdirs(flag + "/x"), root.set_mtime(flag, 1000); };
  blocked("/tmp/.kdx_sf_clean_flag");
  const std::string keys = "SELECT group_concat(pkey) FROM (SELECT pkey FROM SHARELINK_EVENT ORDER BY pkey)";
  auto list = [&] { EXPECT_EQ(0, run_program(tool_binary(), {"3", "-u", "ann"}, root).status); };
  list();
  EXPECT_EQ("kept", store_value(root, keys));
  EXPECT_TRUE(root.exists(kDb + ".clean_flag"));
  insert_links(root, {link("gone2")});
  list();
  EXPECT_EQ("gone2,kept", store_value(root, keys));  // within the minute: no second pass
  root.remove(kDb + ".clean_flag");
  blocked(kDb + ".clean_flag");
  list();
  EXPECT_EQ("gone2,kept", store_value(root, keys));
  EXPECT_NE(std::string::npos, root.read("/tmp/parceldeck.log").find("clean-up skipped")) << root.read("/tmp/parceldeck.log");
}

// The move itself is pinned by the store's unit tests; here its report.
TEST(CtlStore, Relocate) {
  ApplianceRoot root;
  ASSERT_EQ(0, ctl(root, {"init"}).status);
  RunResult r = ctl(root, {"relocate"});
  EXPECT_EQ(0, r.status);
  EXPECT_EQ("", r.err);
  root.write("/etc/config/Korvix.conf", "[Depot]\nShare_Link_Db = /mnt/usb/share_link.db\n[Storage]\nDefault Volume = /share/V1\n");
  root.write("/mnt/usb/share_link.db", "db");
  root.mkdirs("/share/V1/.@kdx/share_link_db");
  root.script("/bin/mv", "exit 1\n");
  r = ctl(root, {"relocate"});
  EXPECT_EQ(1, r.status);
  EXPECT_EQ("sharelinkctl relocate: the store could not be relocated\n", r.err);
  root.script("/bin/mv", "exec mv -f \"$SHARELINK_ROOT$2\" \"$SHARELINK_ROOT$3\"\n");
  r = ctl(root, {"relocate"});
  EXPECT_EQ(0, r.status) << r.err;
  EXPECT_EQ("db", root.read("/share/V1/.@kdx/share_link_db/share_link.db"));
  EXPECT_NE(std::string::npos, root.read("/etc/config/Korvix.conf")
                                   .find("Share_Link_Db = /share/V1/.@kdx/share_link_db/share_link.db\n"));
}

}  // namespace
