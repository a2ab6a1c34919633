// sharelinkctl's store commands, run as the real program in a temporary
// appliance root.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/appliance.h"
#include "support/store_fixture.h"

namespace {

using Rows = std::vector<std::vector<std::string>>;

RunResult ctl(const ApplianceRoot& root, const std::vector<std::string>& args,
              const std::map<std::string, std::string>& env = {}) {
  return run_program(ctl_binary(), args, root, env);
}

Rows tables(const ApplianceRoot& root) {
  return store_rows(root, "SELECT name FROM sqlite_master WHERE type = 'table' ORDER BY name");
}

// init makes a missing store (no trigger yet), sets a broken one aside, and
// upgrades an old one so that its links list with the new columns.
TEST(CtlStore, InitMakesSetsAsideOrUpgrades) {
  struct Case {
    const char* old_store;  // SQL, or null for a broken file
    const char* err;
    const char* triggers;
  } cases[] = {
      {"", "", "0"},
      {nullptr, "sharelinkctl init: /etc/config/share_link.db could not be initialised; set aside as "
                "/etc/config/share_link.db.1, new store made\n", "0"},
      {"CREATE TABLE SHARELINK_EVENT ( pkey TEXT, host TEXT, ssl INTEGER, sharefile TEXT, useraddr TEXT, "
       "filesize TEXT, createtic INTEGER, expire INTEGER, creator TEXT, accesscode TEXT, download_count "
       "INTEGER, download_limit INTEGER, misc TEXT, create_date TEXT, create_time TEXT);"
       "INSERT INTO SHARELINK_EVENT (pkey, creator, sharefile, expire) VALUES ('k1', 'bob', '/share/A', 5);",
       "", "1"}};
  for (const Case& c : cases) {
    ApplianceRoot root;
    if (!c.old_store) root.write("/etc/config/share_link.db", std::string(2048, '#'));
    else if (*c.old_store) store_exec(root, c.old_store);
    RunResult r = ctl(root, {"init"});
    EXPECT_EQ(0, r.status);
    EXPECT_EQ("", r.out);
    EXPECT_EQ(c.err, r.err);
    EXPECT_EQ((Rows{{"SHARELINK_EVENT"}, {"SHARELINK_FID"}, {"SHARELINK_USER"}}), tables(root));
    EXPECT_EQ(c.triggers, store_value(root, "SELECT COUNT(*) FROM sqlite_master WHERE type = 'trigger'"));
    EXPECT_TRUE(root.exists("/tmp/kdx_shareLink_flock.lock"));
    if (!c.old_store) {
      EXPECT_EQ(std::string(2048, '#'), root.read("/etc/config/share_link.db.1"));
    } else if (*c.old_store) {
      EXPECT_EQ("k1\tbob\t5\t/share/A\t----\n", ctl(root, {"list"}).out);
    }
  }
}

TEST(CtlStore, AStoreThatCannotBeMadeFailsAndIsReported) {
  ApplianceRoot root;
  root.write("/etc/config/Korvix.conf", "[Depot]\nShare_Link_Db = /nowhere/x.db\n");
  RunResult r = ctl(root, {"init"});
  EXPECT_EQ(1, r.status);
  EXPECT_EQ("sharelinkctl init: the store could not be made: -20 (the store could not be opened)\n", r.err);
  EXPECT_FALSE(root.exists("/tmp/debug.log"));

  r = ctl(root, {"list", "--user", "amy"},
          {{"SHARELINK_DEBUG_LEVEL", "9"}, {"SHARELINK_DEBUG_FILE", "/tmp/debug.log"}});
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
  RunResult r = ctl(root, {"add", "k2", "/share/Public/b c.txt", "--creator", "Mirra:bob", "--host",
                           "nas.example", "--ssl", "1", "--expire", "2000", "--createtic", "1000",
                           "--link-name", "tab\there", "--title", "T", "--accesscode", "secret",
                           "--useraddr", "x@y", "--fid", "101:/share/Public/b c.txt", "--fid",
                           "102:/share/Public/d", "--recipient", "amy:amy@x.example"});
  EXPECT_EQ(0, r.status) << r.err;
  EXPECT_EQ("", r.out);
  EXPECT_EQ(0, ctl(root, {"add", "k1", "/share/Data"}).status);
  EXPECT_EQ(0, ctl(root, {"add", "k3", "/share/Bob", "--creator", "bob"}).status);

  r = ctl(root, {"list"});
  EXPECT_EQ(0, r.status);
  EXPECT_EQ("k1\tsystem\t0\t/share/Data\t\n"
            "k2\tMirra:bob\t2000\t/share/Public/b c.txt\ttab\\there\n"
            "k3\tbob\t0\t/share/Bob\t\n",
            r.out);
  r = ctl(root, {"list", "--user", "bob"});
  EXPECT_EQ("k2\tMirra:bob\t2000\t/share/Public/b c.txt\ttab\\there\nk3\tbob\t0\t/share/Bob\t\n", r.out);
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
  for (const std::vector<std::string>& args :
       std::vector<std::vector<std::string>>{{"add", "k1"},
                                             {"add", "k1", "/p", "--colour", "red"},
                                             {"add", "k1", "/p", "--ssl", "one"},
                                             {"add", "k1", "/p", "--expire"},
                                             {"add", "k1", "/p", "--fid", "nocolon"},
                                             {"add", std::string(41, 'k'), "/p"},
                                             {"list", "--user"},
                                             {"list", "extra"},
                                             {"init", "extra"},
                                             {"relocate", "extra"}}) {
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
  r = ctl(root, {"add", "k1", "/p", "--expire", "5", "--createtic", "9"});
  EXPECT_EQ(1, r.status);
  ASSERT_EQ(0, ctl(root, {"add", "k1", "/p"}).status);
  r = ctl(root, {"add", "k1", "/q"});
  EXPECT_EQ(1, r.status);
  EXPECT_EQ("sharelinkctl add: a link with key k1 exists already\n", r.err);
  EXPECT_EQ("1", store_value(root, "SELECT COUNT(*) FROM SHARELINK_EVENT"));
}

TEST(CtlStore, AFailedRecipientLeavesNoHalfLink) {
  ApplianceRoot root;
  ASSERT_EQ(0, ctl(root, {"init"}).status);
  store_exec(root, "DROP TABLE SHARELINK_USER;");
  RunResult r = ctl(root, {"add", "k1", "/p", "--fid", "1:/p", "--recipient", "amy:a@x"});
  EXPECT_EQ(1, r.status);
  EXPECT_EQ("sharelinkctl add: the recipients could not be added: -23 (an insert failed)\n", r.err);
  EXPECT_EQ("0", store_value(root, "SELECT COUNT(*) FROM SHARELINK_EVENT"));
  EXPECT_EQ("0", store_value(root, "SELECT COUNT(*) FROM SHARELINK_FID"));
}

// Start-up keeps every store SQLite does not call damaged, and says "set
// aside" only after the rename: an intact store on a disk that refuses
// writes, and a damaged one whose set-aside name is taken by a folder.
TEST(CtlStore, InitSetsAsideOnlyADamagedStoreAndOnlyWhenTheRenameWorked) {
  struct Case {
    const char* name;
    bool damaged;
    const char* says;
  };
  for (const Case& c : {Case{"full disk", false, "; the file is kept\n"},
                        Case{"name taken", true, "; it is damaged and could not be set aside\n"}}) {
    ApplianceRoot root;
    RunResult r;
    std::string before;
    if (c.damaged) {
      root.write("/etc/config/share_link.db", std::string(2048, '#'));
      root.mkdirs("/etc/config/share_link.db.1/inside");
      root.set_mtime("/etc/config/share_link.db.1", 1000);  // too old to move up: removal fails
      r = ctl(root, {"init"});
    } else {
      ASSERT_EQ(0, ctl(root, {"init"}).status);
      ASSERT_EQ(0, ctl(root, {"add", "k1", "/share/A"}).status);
      // No file may grow: the trigger's re-creation cannot be written.
      r = run_program("/bin/sh", {"-c", "trap '' XFSZ; exec prlimit --fsize=0 \"$0\" init",
                                  ctl_binary()}, root);
    }
    before = root.read("/etc/config/share_link.db");
    EXPECT_EQ(1, r.status) << c.name;
    EXPECT_EQ(0u, r.err.find("sharelinkctl init: /etc/config/share_link.db could not be initialised: "))
        << c.name << ": " << r.err;
    EXPECT_NE(std::string::npos, r.err.find(c.says)) << c.name << ": " << r.err;
    EXPECT_EQ(std::string::npos, r.err.find("set aside as")) << c.name;
    EXPECT_EQ(before, root.read("/etc/config/share_link.db")) << c.name;
    if (c.damaged) {
      EXPECT_EQ(std::string(2048, '#'), before);
    } else {
      EXPECT_FALSE(root.exists("/etc/config/share_link.db.1"));
      EXPECT_EQ("k1", store_value(root, "SELECT pkey FROM SHARELINK_EVENT"));
    }
  }
}

// A link is added whole or not at all, even when nothing could clean up
// after a failed part (as after a kill): the store refuses to delete links.
TEST(CtlStore, AddIsOneTransaction) {
  ApplianceRoot root;
  ASSERT_EQ(0, ctl(root, {"init"}).status);
  store_exec(root,
             "CREATE TRIGGER no_files BEFORE INSERT ON SHARELINK_FID BEGIN SELECT RAISE(ABORT, 'x'); END;"
             "CREATE TRIGGER no_deletes BEFORE DELETE ON SHARELINK_EVENT BEGIN SELECT RAISE(ABORT, 'x'); END;");
  RunResult r = ctl(root, {"add", "k1", "/p", "--fid", "1:/p"});
  EXPECT_EQ(1, r.status);
  EXPECT_EQ("sharelinkctl add: the files could not be added: -23 (an insert failed)\n", r.err);
  EXPECT_EQ("0", store_value(root, "SELECT COUNT(*) FROM SHARELINK_EVENT"));
}

// The clean-up of vanished links runs at most once a minute even when its
// flag in /tmp cannot be written (a folder stands in its place): the flag
// beside the store takes over. Without either it is skipped and reported.
TEST(CtlStore, CleanUpFlagFallsBackBesideTheStore) {
  ApplianceRoot root;
  root.write("/etc/config/smb.conf", "[Public]\npath = /share/Public\n");
  root.write("/share/Public/ann/kept.txt", "x");
  make_store(root);
  auto vanished = [&](const std::string& key) {
    FixtureLink link(key);
    link.creator = "Mirra:ann";
    link.sharefile = "/Public/ann/" + key + ".txt";
    return link;
  };
  FixtureLink kept = vanished("kept");
  insert_links(root, {kept, vanished("gone1")});
  root.mkdirs("/tmp/.kdx_sf_clean_flag/x");
  root.set_mtime("/tmp/.kdx_sf_clean_flag", 1000);
  const std::vector<std::string> list = {"3", "-u", "ann"};
  const std::string keys = "SELECT group_concat(pkey) FROM (SELECT pkey FROM SHARELINK_EVENT ORDER BY pkey)";

  EXPECT_EQ(0, run_program(tool_binary(), list, root).status);
  EXPECT_EQ("kept", store_value(root, keys));
  EXPECT_TRUE(root.exists("/etc/config/share_link.db.clean_flag"));
  insert_links(root, {vanished("gone2")});
  EXPECT_EQ(0, run_program(tool_binary(), list, root).status);
  EXPECT_EQ("gone2,kept", store_value(root, keys));  // within the minute: no second pass

  root.remove("/etc/config/share_link.db.clean_flag");
  root.mkdirs("/etc/config/share_link.db.clean_flag/x");
  root.set_mtime("/etc/config/share_link.db.clean_flag", 1000);
  EXPECT_EQ(0, run_program(tool_binary(), list, root).status);
  EXPECT_EQ("gone2,kept", store_value(root, keys));
  EXPECT_NE(std::string::npos, root.read("/tmp/parceldeck.log").find("clean-up skipped")) << root.read("/tmp/parceldeck.log");
}

TEST(CtlStore, Relocate) {
  ApplianceRoot root;
  ASSERT_EQ(0, ctl(root, {"init"}).status);
  RunResult r = ctl(root, {"relocate"});
  EXPECT_EQ(0, r.status);
  EXPECT_EQ("", r.err);

  root.write("/etc/config/Korvix.conf",
             "[Depot]\nShare_Link_Db = /mnt/usb/share_link.db\n[Storage]\nDefault Volume = /share/V1\n");
  root.write("/mnt/usb/share_link.db", "db");
  root.mkdirs("/share/V1/.@kdx/share_link_db");
  root.script("/bin/mv", "echo \"$@\" > \"$SHARELINK_ROOT/tmp/mv.args\"\nexit 1\n");
  r = ctl(root, {"relocate"});
  EXPECT_EQ(1, r.status);
  EXPECT_EQ("sharelinkctl relocate: the store could not be relocated\n", r.err);
  EXPECT_EQ("-f /mnt/usb/share_link.db /share/V1/.@kdx/share_link_db/share_link.db\n",
            root.read("/tmp/mv.args"));

  root.script("/bin/mv", "exec mv -f \"$SHARELINK_ROOT$2\" \"$SHARELINK_ROOT$3\"\n");
  r = ctl(root, {"relocate"});
  EXPECT_EQ(0, r.status) << r.err;
  EXPECT_EQ("db", root.read("/share/V1/.@kdx/share_link_db/share_link.db"));
  EXPECT_NE(std::string::npos, root.read("/etc/config/Korvix.conf")
                                   .find("Share_Link_Db = /share/V1/.@kdx/share_link_db/share_link.db\n"));
}

}  // namespace
