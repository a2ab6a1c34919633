// Display paths to real paths; the plain share and team-folder cases run end to end
// (e2e/paths_test).
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstring>
#include <string>

#include "paths/allowed_root.h"
#include "paths/display_path.h"
#include "paths/path_macros.h"
#include "paths/remote_folder.h"
#include "paths/share_name.h"
#include "paths/team_folder.h"
#include "platform/profile.h"
#include "support/appliance.h"

namespace {

class Paths : public ::testing::Test {
 protected:
  Paths() : env_{{{"SHARELINK_ROOT", root_.dir()}}} {
    set_login_identity(nullptr);
    root_.write("/etc/config/smb.conf",
                "[Public]\npath = /share/VOL1/Public\n[X]\npath = /share/X/\n[Media]\nshare kind = mtp\n"
                "[Disc]\nshare kind = odd\n[M]\nshare kind = mtp\n"
                "[Cache]\nshare kind = skylet\npath = /share/VOL1/Cache\n[Home]\npath = /share/homes/%U\n");
    root_.write("/etc/smb.conf", "[Q2]\nq type = 2\n");
    root_.write("/share/VOL1/Public/docs/a.txt", "hello");
    root_.mkdirs("/share/X/a");
  }
  ~Paths() override { set_login_identity(nullptr); }

  std::string resolve(const char* path, int* kind, int remote = 0) {
    char out[4096] = "";
    *kind = resolve_display_path(remote, path, out, sizeof out, "");
    return out;
  }
  void config(const std::string& ap, const std::string& text) {
    root_.write(ap, text);
    profile_cache_clear();
  }

  ApplianceRoot root_;
  ScopedEnv env_;
};

TEST_F(Paths, ClassifiesByPrefixThenByShare) {
  EXPECT_EQ(-1, kdx_check_file_ap_type(nullptr));
  const struct { const char* path; int kind; } cases[] = {
      {"/", 0}, {"/remote:3@Backup/a", 4}, {"/ubuntu:/a", 5}, {"/survix:/cam", 6}, {"/snapshot:/s1/a", 7},
      {"/snapshot_vault:/v/a", 8}, {"/zelm:/arc", 9}, {"tfx://Team1/doc", 10}, {"/tfx://Team1/doc", 10},
      {"/Public/odd:name", 0}, {"/Media/a", 1}, {"/Q2/a", 2}, {"Disc/a", 3}, {"/mnt/snapshot/1/a", 11},
      {"/M/a", 0},      // one-byte share names are ordinary
      {"/Cache/a", 0},  // cloud cache not installed
  };
  for (const auto& c : cases) EXPECT_EQ(c.kind, kdx_check_file_ap_type(c.path)) << c.path;
  config("/etc/config/xpkg.conf", "[Skylet]\nInstall_Path = /opt/sky\nEnable = TRUE\n");
  EXPECT_EQ(12, kdx_check_file_ap_type("/Cache/a"));
  config("/etc/config/xpkg.conf", "[Skylet]\nInstall_Path = /opt/sky\nEnable = FALSE\n");
  EXPECT_EQ(0, kdx_check_file_ap_type("/Cache/a"));

  char name[8];
  EXPECT_EQ(6, share_name_of("/Public/docs", name, sizeof name));
  EXPECT_STREQ("Public", name);
  EXPECT_EQ(3, share_name_of("Public", name, 4));
  EXPECT_STREQ("Pub", name);
}

// Shares with their quirks, and paths that leave them (a link inside the root, or the host's
// own /etc outside it).
TEST_F(Paths, ResolvesSharesAndRefusesPathsThatLeaveThem) {
  ASSERT_EQ(0, symlink(root_.path("/etc").c_str(), root_.path("/share/VOL1/Public/in").c_str()));
  ASSERT_EQ(0, symlink("/etc", root_.path("/share/VOL1/Public/out").c_str()));
  const struct { const char* path; const char* out; int kind; } cases[] = {
      {"/Public", "/share/VOL1/Public", 1},
      {"/X/a", "/share/X", 1},  // a share path ending in "/" drops both its slash and the rest
      {"/Public/docs/missing.txt", nullptr, -1}, {"/Public/in/config", nullptr, -1},
      {"/Public/out/passwd", nullptr, -1},
  };
  for (const auto& c : cases) {
    int kind = 0;
    std::string out = resolve(c.path, &kind);
    EXPECT_EQ(c.kind, kind) << c.path;
    if (c.out != nullptr) { EXPECT_EQ(c.out, out) << c.path; }
  }

  root_.mkdirs("/mnt/snapshot/1");
  ASSERT_EQ(0, symlink(root_.path("/mnt/snapshot/1").c_str(), root_.path("/share/VOL1/snap").c_str()));
  const struct { const char* path; const char* within; int allowed; } roots[] = {
      {nullptr, nullptr, 0}, {"MD0_DATA/a", nullptr, 0}, {"/share/VOL1/not-yet", nullptr, 1},
      {"/etc/config", nullptr, 0}, {"/mnt/survix_recordings/cam", nullptr, 1},
      {"/mnt/survix_recordings/../../etc/config", nullptr, 0}, {"/mnt/other", nullptr, 0},
      {"/share/VOL1", "/share/VOL1/Public", 0}, {"/share/VOL1/Public", "/share/X", 1},
      {"/share/VOL1/snap", nullptr, 1},
  };
  for (const auto& r : roots) {
    EXPECT_EQ(r.allowed, is_allowed_real_path(r.path, r.within)) << (r.path ? r.path : "(null)");
  }
}

// Each virtual root fails while its package, export or mount is missing, then resolves.
TEST_F(Paths, ResolvesVirtualRoots) {
  const struct { const char* path; const char* out; int kind; int remote = 0; } cases[] = {
      {"/survix:/cam1/a.mp4", "/mnt/survix_recordings/cam1/a.mp4", 3},
      {"/ubuntu:/x", "/share/VOL1/ct/container-rootfs-home//x", 1},
      {"/snapshot:/s1/a", "/mnt/snapexp/s1/a", 3}, {"/snapshot_vault:/v/a", "/mnt/vaultexp/v/a", 3},
      {"/zelm:/arc/f", "/share/VOL1/zelm/arc/f", 3},
      {"/remote:3@Backup/sub/f", "/share/VOL1/remote3/sub/f", 3, 1},
  };
  int kind = 0;
  for (const auto& c : cases) {
    resolve(c.path, &kind, c.remote);
    EXPECT_EQ(-1, kind) << c.path;
  }
  root_.write("/mnt/survix_recordings/cam1/a.mp4", "v");
  root_.write("/etc/config/xpkg.conf", "[ubuntu-hd]\nInstall_Path = /share/VOL1/ct\n");
  root_.mkdirs("/share/VOL1/ct/container-rootfs-home/x");
  root_.write("/etc/config/Korvix.conf", "[Snapshot]\nUnified Export = yes\nExport Path = /mnt/snapexp\n"
                                         "Vault Export Path = /mnt/vaultexp\n");
  root_.write("/mnt/snapexp/s1/a", "s");
  root_.write("/mnt/vaultexp/v/a", "v");
  root_.write("/share/VOL1/zelm/arc/f", "z");
  root_.mkdirs("/ZELM/var");
  ASSERT_EQ(0, symlink(root_.path("/share/VOL1/zelm").c_str(), root_.path("/ZELM/var/mnt").c_str()));
  config("/etc/config/remote_folder.conf", "[3]\nName = Backup\nLocal Path = /share/VOL1/remote3\n");
  root_.write("/share/VOL1/remote3/sub/f", "r");
  for (const auto& c : cases) {
    EXPECT_EQ(c.out, resolve(c.path, &kind, c.remote)) << c.path;
    EXPECT_EQ(c.kind, kind) << c.path;
  }
  resolve("/remote:3@Other/sub/f", &kind, 1);
  EXPECT_EQ(-1, kind);
  char out[256] = "";
  EXPECT_EQ(0, kdx_Get_RemoteFolder_Path("/remote:3@Backup/sub/f", out, sizeof out));
  EXPECT_STREQ("/share/VOL1/remote3/sub/f", out);
  EXPECT_EQ(-1, kdx_Get_RemoteFolder_Path("/remote:", out, sizeof out));
  EXPECT_EQ(-1, kdx_Get_RemoteFolder_Path("/remote:4@Backup/sub", out, sizeof out));
}

TEST_F(Paths, TeamFolderAnswersOnlyUnderTheShares) {
  char uri[64] = "tfx://Team1/doc", out[64] = "", plain[] = "/Public";
  EXPECT_EQ(-1, resolve_team_folder(uri, sizeof uri, "bob", out, sizeof out));  // no tool
  root_.script("/sbin/mirrasrv_tool", "printf '%s' /share/VOL1/Team1\n");
  EXPECT_EQ(0, resolve_team_folder(plain, sizeof plain, "u", out, sizeof out));
  EXPECT_EQ(1, resolve_team_folder(uri, sizeof uri, "bob", nullptr, 0));
  EXPECT_STREQ("/share/VOL1/Team1/doc", uri);  // written back into the address
  root_.script("/sbin/mirrasrv_tool", "printf '%s' /elsewhere\n");
  snprintf(uri, sizeof uri, "%s", "tfx://Team1/doc");
  EXPECT_EQ(1, resolve_team_folder(uri, sizeof uri, "bob", out, sizeof out));
  EXPECT_STREQ("/doc", out);  // an answer outside the shares gives no folder
  EXPECT_STREQ("tfx://Team1/doc", uri);
  root_.script("/sbin/mirrasrv_tool", "exit 0\n");
  EXPECT_EQ(-1, resolve_team_folder(uri, sizeof uri, "bob", out, sizeof out));
  EXPECT_STREQ("tfx://Team1/doc", uri);
}

TEST_F(Paths, ExpandsLoginMacros) {
  char path[64];
  auto expand = [&path](const char* text, const char* home) {
    snprintf(path, sizeof path, "%s", text);
    expand_share_path_macros(path, sizeof path, home);
    return std::string(path);
  };
  set_login_identity("DOM+Ann");  // separator "\": no domain
  EXPECT_STREQ("", login_identity().domain);
  EXPECT_STREQ("dom+ann", login_identity().user);

  config("/etc/config/Korvix.conf", "[Samba]\nwinbind separator = +\n");
  set_login_identity("DOM+Ann");
  EXPECT_STREQ("DOM+Ann", login_identity().login);
  EXPECT_EQ("/share/ann", expand("/share/%U", ""));
  EXPECT_EQ("/share/DOM+ann/x", expand("/share/%D+%U/x", ""));
  int kind = 0;
  root_.mkdirs("/share/homes/ann/x");
  EXPECT_EQ("/share/homes/ann/x", resolve("/Home/x", &kind));
  EXPECT_EQ(1, kind);

  config("/etc/config/Korvix.conf", "[Samba]\nwinbind separator = \\\n");
  set_login_identity("sales\\Bob");
  EXPECT_STREQ("SALES", login_identity().domain);
  EXPECT_STREQ("bob", login_identity().user);
  set_login_identity("carol");
  EXPECT_EQ("/share/carol", expand("/share/%D\\%U", ""));  // no domain: its separator goes too
  EXPECT_EQ("/homes//root", expand("/homes/%H/tail", "root"));
  EXPECT_EQ("/homes/%H/tail", expand("/homes/%H/tail", "no-such-user-slt"));
  snprintf(path, sizeof path, "%s", "/share/%U%U%U%U%U%U%U%U%U%U%U%U%U%U%U%U%U%U%U%U%U%U%U%U");
  set_login_identity("a-very-long-login-name-that-overflows-the-buffer");
  expand_share_path_macros(path, 16, "");
  EXPECT_EQ(15u, strlen(path));
}

}  // namespace
