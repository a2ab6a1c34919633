#include "weblib/db_handler.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>
#include <string>

#include "platform/cgi.h"
#include "platform/os.h"
#include "platform/profile.h"
#include "support/appliance.h"
#include "support/store_fixture.h"
#include "weblib/stdout_capture.h"

namespace {

const char kUnset[] = "\x01unset";

std::string reply(int status) {
  return "{ \"version\": \"6.0.1.6963\", \"build\": \"20250804\", \"status\": " + std::to_string(status) +
         ", \"success\": \"true\" }\n";
}

class DbHandler : public ::testing::Test {
 protected:
  DbHandler() : env_{{{"SHARELINK_ROOT", root_.dir()}, {"REMOTE_USER", kUnset}}} { root_.mkdirs("/share/VOL1/db"); }
  ~DbHandler() override { os_reset(); }

  // The handler's reply to a query string and its result.
  std::pair<std::string, int> handle(const std::string& query) {
    CgiRequest req;
    cgi_parse_params(query.data(), query.size(), &req);
    int rc = 99;
    std::string out = capture_stdout(root_, [&] { rc = sf_set_db_handler(&req); });
    return {out, rc};
  }
  std::string configured() {
    char out[512];
    profile_cache_clear();
    Get_Profile_String("Depot", "Share_Link_Db", "", out, sizeof out);
    return out;
  }
  // Tables of the configured store (-1: not a database).
  int tables() {
    try {
      return std::stoi(store_value(root_, "SELECT COUNT(*) FROM sqlite_master WHERE type = 'table'"));
    } catch (const std::exception&) {
      return -1;
    }
  }
  mode_t mode_of(const std::string& ap) {
    struct stat st;
    return stat(root_.path(ap).c_str(), &st) == 0 ? (st.st_mode & 07777) : 0;
  }

  ApplianceRoot root_;
  ScopedEnv env_;
};

TEST_F(DbHandler, RefusalsLeaveTheConfigurationAlone) {
  root_.write("/share/VOL1/file", "x");
  const struct {
    const char* user;
    std::string query;
    int status, result;
  } cases[] = {
      {"bob", "share_link_db=/share/VOL1/db/a.db", 4, -1},
      {kUnset, "force_delete=1", 20, 0},
      {kUnset, "share_link_db=", 20, 0},
      {kUnset, "share_link_db=/share/NOPE/a.db", 20, -1},
      {kUnset, "share_link_db=/share/VOL1/file/a.db", 20, -1},
      {kUnset, "share_link_db=relative/a.db", 20, -1},
      {kUnset, "share_link_db=/share/VOL1/db/a%0A[Evil]%0Ak=v", 20, -1},
      // Longer than the store's 256-byte path buffer would hold.
      {kUnset, "share_link_db=/share/VOL1/db/" + std::string(250, 'x'), 35, -1},
  };
  for (const auto& c : cases) {
    ScopedEnv user{{{"REMOTE_USER", c.user}}};
    EXPECT_EQ(std::make_pair(reply(c.status), c.result), handle(c.query)) << c.query;
  }
  EXPECT_FALSE(root_.exists("/etc/config/Korvix.conf"));
}

TEST_F(DbHandler, ExistingFileIsKeptCheckedOrReplaced) {
  // A new path gets all four tables; a valid store keeps its rows even with force_delete.
  ASSERT_EQ(std::make_pair(reply(1), 0), handle("share_link_db=/share/VOL1/db/s.db"));
  EXPECT_EQ("/share/VOL1/db/s.db", configured());
  EXPECT_EQ(4, tables());
  store_exec(root_, "INSERT INTO SHARELINK_EVENT(pkey) VALUES('k1');");
  EXPECT_EQ(reply(1), handle("share_link_db=/share/VOL1/db/s.db&force_delete=yes").first);
  EXPECT_NE(std::string::npos, root_.read("/share/VOL1/db/s.db").find("k1"));
  // A file that is no store: 19, with the configuration already pointing at it.
  root_.write("/share/VOL1/db/text.db", "not a database at all, just some text that is long enough");
  EXPECT_EQ(std::make_pair(reply(19), 0), handle("share_link_db=/share/VOL1/db/text.db&force_delete=1x"));
  EXPECT_EQ("/share/VOL1/db/text.db", configured());
  EXPECT_EQ(-1, tables());
  // force_delete counts as a base-10 number: "01" replaces the file.
  EXPECT_EQ(reply(1), handle("share_link_db=/share/VOL1/db/text.db&force_delete=01").first);
  EXPECT_EQ(4, tables());

  // A failed configuration write is reported and leaves no store behind.
  os.rename = [](const char*, const char*) -> int {
    errno = EIO;
    return -1;
  };
  EXPECT_EQ(std::make_pair(reply(19), -1), handle("share_link_db=/share/VOL1/db/new.db"));
  os_reset();
  EXPECT_EQ("/share/VOL1/db/text.db", configured());
  EXPECT_FALSE(root_.exists("/share/VOL1/db/new.db"));
}

TEST_F(DbHandler, TablesPermissionsAndVolume) {
  EXPECT_EQ(0, sf_fix_db_permissions());  // nothing configured
  root_.write("/etc/config/Korvix.conf", "[Depot]\nShare_Link_Db = /share/VOL1/db/p.db\n");
  EXPECT_EQ(0, sf_fix_db_permissions());  // no such file
  // A store path that names a folder cannot be opened.
  root_.write("/etc/config/Korvix.conf", "[Depot]\nShare_Link_Db = /share/VOL1/db\n");
  profile_cache_clear();
  EXPECT_LT(sf_create_all_tables(), 0);
  root_.write("/etc/config/Korvix.conf", "[Depot]\nShare_Link_Db = /share/VOL1/db/p.db\n");
  profile_cache_clear();
  EXPECT_EQ(0, sf_create_all_tables());
  EXPECT_EQ(4, tables());
  chmod(root_.path("/share/VOL1/db/p.db").c_str(), 0640);
  chmod(root_.path("/share/VOL1/db").c_str(), 0750);
  EXPECT_EQ(1, sf_fix_db_permissions());
  EXPECT_EQ(0777u, mode_of("/share/VOL1/db"));
  EXPECT_EQ(0777u, mode_of("/share/VOL1/db/p.db"));
  // Already writable by others: left as it is.
  chmod(root_.path("/share/VOL1/db/p.db").c_str(), 01666);
  EXPECT_EQ(1, sf_fix_db_permissions());
  EXPECT_EQ(01666u, mode_of("/share/VOL1/db/p.db"));

  EXPECT_EQ(0, sf_set_db_volume(nullptr));
  EXPECT_EQ(0, sf_set_db_volume("/"));
  root_.script("/bin/mkdir", "[ \"$1\" = -p ] || exit 2\nexec mkdir -p \"$SHARELINK_ROOT$2\"\n");
  EXPECT_EQ(1, sf_set_db_volume("/share/VOL1"));
  EXPECT_EQ(0777u, mode_of("/share/VOL1/.@kdx/share_link_db"));
  EXPECT_EQ("/share/VOL1/.@kdx/share_link_db/share_link.db", configured());
  EXPECT_EQ(-1, sf_set_db_volume(("/share/" + std::string(500, 'v')).c_str()));
  root_.script("/bin/mkdir", "exit 1\n");
  EXPECT_EQ(-1, sf_set_db_volume("/share/VOL2"));
  EXPECT_EQ("/share/VOL1/.@kdx/share_link_db/share_link.db", configured());
}

}  // namespace
