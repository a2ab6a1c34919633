// sharelinkctl's store commands, run as the real program in a temporary appliance root.
#include <gtest/gtest.h>
#include "support/appliance.h"
#include "support/store_fixture.h"

namespace {
using Rows = std::vector<std::vector<std::string>>;
const std::string kDb = "/etc/config/share_link.db";
RunResult ctl(const ApplianceRoot& root, const std::vector<std::string>& args,
              const std::map<std::string, std::string>& env = {}) {
  return run_program(ctl_binary(), args, root, env);
}
// Status, then standard error (standard output must stay empty).
std::string status_err(const RunResult& r) {
  return std::to_string(r.status) + (r.out.empty() ? " " : " stdout! ") + r.err;
}
// init makes a missing store (no trigger yet), sets a broken one aside, upgrades an old one
// (a new store's tables, rows kept but orphan files, old indexes dropped, trigger made) once.
TEST(CtlStore, InitMakesSetsAsideOrUpgrades) {
  ApplianceRoot made; make_store(made);
  const std::string n = kFixtureNull;
  auto schema = [](const ApplianceRoot& root, const std::string& types) {
    return store_rows(root, "SELECT name, (SELECT group_concat(name) FROM pragma_table_info(m.name)), (SELECT "
                            "COUNT(*) FROM sqlite_master WHERE type = 'trigger') FROM sqlite_master m WHERE type IN (" +
                                types + ") ORDER BY name");
  };
  for (const std::string kind : {"missing", "broken", "old"}) {
    SCOPED_TRACE(kind); ApplianceRoot root;
    if (kind == "broken") root.write(kDb, std::string(2048, '#'));
    if (kind == "old") {
      store_exec(root,
                 "CREATE TABLE SHARELINK_EVENT ( pkey TEXT, host TEXT, ssl INTEGER, sharefile TEXT, useraddr TEXT, "
                 "filesize TEXT, createtic INTEGER, expire INTEGER, creator TEXT, accesscode TEXT, download_count "
                 "INTEGER, download_limit INTEGER, misc TEXT, create_date TEXT, create_time TEXT);"
                 "CREATE TABLE SHARELINK_FID ( pkey TEXT, fid TEXT ); CREATE TABLE SHARELINK_USER ( pkey TEXT, user TEXT );"
                 "CREATE INDEX idx_host on SHARELINK_EVENT(host); CREATE INDEX idx_misc on SHARELINK_EVENT(misc);"
                 "INSERT INTO SHARELINK_EVENT VALUES ('k1', 'h', 1, '/share/A', 'u@x', '12', 5, 7, 'bob', 'c', 2, 3, "
                 "'m', '2020-01-01', '10:00:00'); INSERT INTO SHARELINK_FID VALUES ('k1', 'f1'), ('gone', 'f2');"
                 "INSERT INTO SHARELINK_USER VALUES ('k1', 'amy');");
    }
    EXPECT_EQ(kind != "broken" ? "0 " : "0 sharelinkctl init: " + kDb + " could not be initialised; set aside as " +
                                            kDb + ".1, new store made\n", status_err(ctl(root, {"init"})));
    Rows want = schema(made, kind == "old" ? "'table'" : "'table', 'index'");
    for (auto& row : want) row[2] = kind == "old" ? "1" : "0";
    EXPECT_EQ(want, schema(root, kind == "old" ? "'table'" : "'table', 'index'"));
    EXPECT_TRUE(root.exists("/tmp/kdx_shareLink_flock.lock"));
    EXPECT_EQ(kind == "broken" ? std::string(2048, '#') : "", root.read(kDb + ".1"));
    if (kind != "old") continue;
    EXPECT_EQ("k1\tbob\t7\t/share/A\t----\n", ctl(root, {"list"}).out);
    EXPECT_EQ((Rows{{"k1", "h", "1", "/share/A", "u@x", "12", "5", "7", "bob", "c", "2", "3", "m", "2020-01-01",
                     "10:00:00", n, n, n, n, "k1", "f1", n, "k1", "amy", n, n}}),
              store_rows(root, "SELECT * FROM SHARELINK_EVENT, SHARELINK_FID, SHARELINK_USER"));
    EXPECT_EQ("0", store_value(root, "SELECT COUNT(*) FROM sqlite_master WHERE name IN ('idx_host', 'idx_misc')"));
    EXPECT_EQ("0 ", status_err(ctl(root, {"init"}))); EXPECT_EQ(want, schema(root, "'table'"));
  }
}
// Reported on standard error and, with the user, twice in the debug log.
TEST(CtlStore, AStoreThatCannotBeMadeFailsAndIsReported) {
  ApplianceRoot root; root.write("/etc/config/Korvix.conf", "[Depot]\nShare_Link_Db = /nowhere/x.db\n");
  EXPECT_EQ("1 sharelinkctl init: /nowhere/x.db could not be made: unable to open database file: No such file or "
            "directory (SQLite 14)\n", status_err(ctl(root, {"init"})));
  EXPECT_FALSE(root.exists("/tmp/debug.log"));
  EXPECT_EQ("1 sharelinkctl list: the links could not be read: -20 (the store could not be opened)\n",
            status_err(ctl(root, {"list", "--user", "amy"},
                           {{"SHARELINK_DEBUG_LEVEL", "9"}, {"SHARELINK_DEBUG_FILE", "/tmp/debug.log"}})));
  std::string log = root.read("/tmp/debug.log"), line = ", DB OPEN ERROR, Ret=-20, Ssid=amy\n";
  EXPECT_EQ(0u, log.find("(pid=")) << log;
  EXPECT_NE(std::string::npos, log.find(line, log.find(line) + 1)) << log;  // twice
}
TEST(CtlStore, AddAndList) {
  ApplianceRoot root; ASSERT_EQ(0, ctl(root, {"init"}).status);
  EXPECT_EQ("0 ", status_err(ctl(root, {"add", "k2", "/share/Public/b c.txt", "--creator", "Mirra:bob", "--host",
                                        "nas.example", "--ssl", "1", "--expire", "2000", "--createtic", "1000",
                                        "--link-name", "tab\there", "--title", "T", "--accesscode", "secret",
                                        "--useraddr", "x@y", "--fid", "101:/share/Public/b c.txt", "--fid",
                                        "102:/share/Public/d", "--recipient", "amy:amy@x.example"})));
  EXPECT_EQ("0 ", status_err(ctl(root, {"add", "k1", "/share/Data"})));
  EXPECT_EQ("0 ", status_err(ctl(root, {"add", "k3", "/share/Bob", "--creator", "bob"})));
  const std::string k2 = "k2\tMirra:bob\t2000\t/share/Public/b c.txt\ttab\\there\n", k3 = "k3\tbob\t0\t/share/Bob\t\n";
  RunResult r = ctl(root, {"list"}); EXPECT_EQ(0, r.status);
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
  ApplianceRoot root; ASSERT_EQ(0, ctl(root, {"init"}).status);
  for (const std::vector<std::string>& args : std::vector<std::vector<std::string>>{
           {"add", "k1"}, {"add", "k1", "/p", "--colour", "red"}, {"add", "k1", "/p", "--ssl", "one"},
           {"add", "k1", "/p", "--expire"}, {"add", "k1", "/p", "--fid", "nocolon"}, {"add", std::string(41, 'k'), "/p"},
           {"list", "--user"}, {"list", "extra"}, {"init", "extra"}, {"relocate", "extra"}}) {
    std::string got = status_err(ctl(root, args)); EXPECT_EQ(0u, got.find("2 ")) << got;
    EXPECT_NE(std::string::npos, got.find("usage: sharelinkctl " + args[0])) << got;
  }
  RunResult r = ctl(root, {"add", "--help"}); EXPECT_EQ(0, r.status);
  EXPECT_EQ(0u, r.out.find("usage: sharelinkctl add KEY SHAREFILE [--creator C]"));
  EXPECT_EQ("1 sharelinkctl add: the link could not be added: -11 (bad parameter)\n",
            status_err(ctl(root, {"add", "k1", "/p", "--ssl", "3"})));
  EXPECT_EQ(1, ctl(root, {"add", "k1", "/p", "--expire", "5", "--createtic", "9"}).status);
  ASSERT_EQ(0, ctl(root, {"add", "k1", "/p"}).status);
  EXPECT_EQ("1 sharelinkctl add: a link with key k1 exists already\n", status_err(ctl(root, {"add", "k1", "/q"})));
  EXPECT_EQ("1", store_value(root, "SELECT COUNT(*) FROM SHARELINK_EVENT"));
}
// A link is added whole or not at all, even with no clean-up possible (deletes refused).
TEST(CtlStore, AddIsOneTransaction) {
  const std::pair<const char*, const char*> cases[] = {
      {"DROP TABLE SHARELINK_USER;", "recipients"},
      {"CREATE TRIGGER no_files BEFORE INSERT ON SHARELINK_FID BEGIN SELECT RAISE(ABORT, 'x'); END;", "files"}};
  for (const auto& c : cases) {
    ApplianceRoot root; ASSERT_EQ(0, ctl(root, {"init"}).status);
    store_exec(root, std::string(c.first) + "CREATE TRIGGER no_deletes BEFORE DELETE ON SHARELINK_EVENT "
                                            "BEGIN SELECT RAISE(ABORT, 'x'); END;");
    EXPECT_EQ("1 sharelinkctl add: the " + std::string(c.second) + " could not be added: -23 (an insert failed)\n",
              status_err(ctl(root, {"add", "k1", "/p", "--fid", "1:/p", "--recipient", "amy:a@x"})));
    EXPECT_EQ("0,0", store_value(root, "SELECT (SELECT COUNT(*) FROM SHARELINK_EVENT) || ',' || "
                                       "(SELECT COUNT(*) FROM SHARELINK_FID)"));
  }
}
// Only a damaged store is set aside, and said so only after the rename: an intact store on a
// full disk, a damaged one whose set-aside name is a folder.
TEST(CtlStore, InitSetsAsideOnlyADamagedStoreAndOnlyWhenTheRenameWorked) {
  for (bool damaged : {false, true}) {
    SCOPED_TRACE(damaged); ApplianceRoot root; RunResult r;
    if (damaged) {
      root.write(kDb, std::string(2048, '#')); root.mkdirs(kDb + ".1/inside");
      root.set_mtime(kDb + ".1", 1000);  // too old to move up: removal fails
      r = ctl(root, {"init"});
    } else {
      ASSERT_EQ(0, ctl(root, {"init"}).status); ASSERT_EQ(0, ctl(root, {"add", "k1", "/share/A"}).status);
      // No file may grow: the trigger's re-creation cannot be written.
      r = run_program("/bin/sh", {"-c", "trap '' XFSZ; exec prlimit --fsize=0 \"$0\" init", ctl_binary()}, root);
    }
    EXPECT_EQ(0u, status_err(r).find("1 sharelinkctl init: " + kDb + " could not be initialised: ")) << r.err;
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
// A store whose inner pages are damaged (PRAGMA quick_check) is set aside before anything is
// written into it, as a file that is no database is.
TEST(CtlStore, InitSetsAsideAStoreWithDamagedPages) {
  ApplianceRoot root; ASSERT_EQ(0, ctl(root, {"init"}).status);
  store_exec(root, "WITH RECURSIVE n(i) AS (SELECT 0 UNION ALL SELECT i + 1 FROM n WHERE i < 2999) INSERT INTO "
                   "SHARELINK_EVENT (pkey, sharefile, creator) SELECT printf('key%05d', i), "
                   "printf('/share/Public/file%05d.txt', i), 'admin' FROM n;");
  std::string bytes = root.read(kDb);
  const size_t pages = bytes.size() / 4096;
  bytes.replace(pages / 2 * 4096, 3 * 4096, std::string(3 * 4096, 'U'));
  root.write(kDb, bytes);
  EXPECT_EQ("0 sharelinkctl init: " + kDb + " could not be initialised; set aside as " + kDb + ".1, new store made\n",
            status_err(ctl(root, {"init"})));
  EXPECT_TRUE(root.read(kDb + ".1") == bytes); EXPECT_TRUE(ctl(root, {"list"}).out.empty());
}
// Start-up that cannot take its lock does nothing and says so (a read-only /tmp, a folder in its place).
TEST(CtlStore, InitThatCannotLockFailsAndSaysWhy) {
  ApplianceRoot root; ASSERT_EQ(0, ctl(root, {"init"}).status);
  root.remove("/tmp/kdx_shareLink_flock.lock"); root.mkdirs("/tmp/kdx_shareLink_flock.lock");
  EXPECT_EQ("1 sharelinkctl init: the lock /tmp/kdx_shareLink_flock.lock could not be taken: Is a directory\n",
            status_err(ctl(root, {"init"})));
}
// With its /tmp flag unwritable the once-a-minute clean-up keeps a flag beside the store;
// without either it is skipped and reported.
TEST(CtlStore, CleanUpFlagFallsBackBesideTheStore) {
  ApplianceRoot root; root.write("/etc/config/smb.conf", "[Public]\npath = /share/Public\n");
  root.write("/share/Public/ann/kept.txt", "x"); make_store(root);
  auto link = [&](const std::string& key) {
    FixtureLink l(key); l.creator = "Mirra:ann", l.sharefile = "/Public/ann/" + key + ".txt";
    return l;
  };
  insert_links(root, {link("kept"), link("gone1")});
  auto blocked = [&](const std::string& flag) { root.mkdirs(flag + "/x"), root.set_mtime(flag, 1000); };
  blocked("/tmp/.kdx_sf_clean_flag");
  auto list_keys = [&] {
    EXPECT_EQ(0, run_program(tool_binary(), {"3", "-u", "ann"}, root).status);
    return store_value(root, "SELECT group_concat(pkey) FROM (SELECT pkey FROM SHARELINK_EVENT ORDER BY pkey)");
  };
  EXPECT_EQ("kept", list_keys()); EXPECT_TRUE(root.exists(kDb + ".clean_flag"));
  insert_links(root, {link("gone2")});
  EXPECT_EQ("gone2,kept", list_keys());  // within the minute: no second pass
  root.remove(kDb + ".clean_flag");
  blocked(kDb + ".clean_flag"); EXPECT_EQ("gone2,kept", list_keys());
  EXPECT_NE(std::string::npos, root.read("/tmp/parceldeck.log").find("clean-up skipped")) << root.read("/tmp/parceldeck.log");
}
// The move itself is pinned by the store's unit tests; here its report.
TEST(CtlStore, Relocate) {
  ApplianceRoot root; ASSERT_EQ(0, ctl(root, {"init"}).status);
  EXPECT_EQ("0 ", status_err(ctl(root, {"relocate"})));
  root.write("/etc/config/Korvix.conf", "[Depot]\nShare_Link_Db = /mnt/usb/share_link.db\n[Storage]\nDefault Volume = /share/V1\n");
  root.write("/mnt/usb/share_link.db", "db"); root.mkdirs("/share/V1/.@kdx/share_link_db");
  root.script("/bin/mv", "exit 1\n");
  EXPECT_EQ("1 sharelinkctl relocate: the store could not be relocated: /mnt/usb/share_link.db could not be moved "
            "to /share/V1/.@kdx/share_link_db/share_link.db\n", status_err(ctl(root, {"relocate"})));
  root.script("/bin/mv", "exec mv -f \"$SHARELINK_ROOT$2\" \"$SHARELINK_ROOT$3\"\n");
  EXPECT_EQ("0 ", status_err(ctl(root, {"relocate"})));
  EXPECT_EQ("db", root.read("/share/V1/.@kdx/share_link_db/share_link.db"));
}
}  // namespace
