// Display paths to real paths; plain shares, team folders and climbing out run end to end
// (e2e/paths_test, e2e/security_test).
#include <gtest/gtest.h>
#include <unistd.h>
#include <cstring>
#include <string>
#include "paths/allowed_root.h"
#include "paths/display_path.h"
#include "paths/path_macros.h"
#include "paths/share_name.h"
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
  // "<real path> <kind>", or "-1" alone for a failure.
  static std::string resolved(const char* path, int remote = 0) {
    char out[4096] = "";
    int kind = resolve_display_path(remote, path, out, sizeof out, "");
    return kind < 0 ? std::to_string(kind) : std::string(out) + " " + std::to_string(kind);
  }
  void config(const std::string& ap, const std::string& text) { root_.write(ap, text); profile_cache_clear(); }
  void link(const std::string& target, const std::string& ap) {
    ASSERT_EQ(0, symlink(target.c_str(), root_.path(ap).c_str())) << ap;
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
      {"/Cache/a", 0}};  // cloud cache not installed
  for (const auto& c : cases) EXPECT_EQ(c.kind, kdx_check_file_ap_type(c.path)) << c.path;
  for (const char* enable : {"TRUE", "FALSE"}) {
    config("/etc/config/xpkg.conf", std::string("[Skylet]\nInstall_Path = /opt/sky\nEnable = ") + enable + "\n");
    EXPECT_EQ(enable[0] == 'T' ? 12 : 0, kdx_check_file_ap_type("/Cache/a")) << enable;
  }
  char name[8];
  EXPECT_EQ(6, share_name_of("/Public/docs", name, sizeof name));
  EXPECT_STREQ("Public", name);
}
// Share quirks; a link to the root's own /etc; roots allowed for real paths.
TEST_F(Paths, ResolvesSharesWithinAllowedRoots) {
  link(root_.path("/etc"), "/share/VOL1/Public/in");
  EXPECT_EQ("/share/VOL1/Public 1", resolved("/Public"));
  EXPECT_EQ("/share/X 1", resolved("/X/a"));  // a share path ending in "/" drops its slash and the rest
  EXPECT_EQ("-1", resolved("/Public/docs/missing.txt"));
  EXPECT_EQ("-1", resolved("/Public/in/config"));
  root_.mkdirs("/mnt/snapshot/1");
  link(root_.path("/mnt/snapshot/1"), "/share/VOL1/snap");
  const struct { const char* path; const char* within; int allowed; } roots[] = {
      {nullptr, nullptr, 0}, {"MD0_DATA/a", nullptr, 0}, {"/share/VOL1/not-yet", nullptr, 1},
      {"/etc/config", nullptr, 0}, {"/mnt/survix_recordings/cam", nullptr, 1}, {"/mnt/other", nullptr, 0},
      {"/mnt/survix_recordings/../../etc/config", nullptr, 0}, {"/share/VOL1", "/share/VOL1/Public", 0},
      {"/share/VOL1/Public", "/share/X", 1}, {"/share/VOL1/snap", nullptr, 1}};
  for (const auto& r : roots) {
    EXPECT_EQ(r.allowed, is_allowed_real_path(r.path, r.within)) << (r.path ? r.path : "(null)");
  }
}
// Each virtual root fails while its package, export or mount is missing, then resolves.
TEST_F(Paths, ResolvesVirtualRoots) {
  const struct { const char* path; const char* out; int remote = 0; } cases[] = {
      {"/survix:/cam1/a.mp4", "/mnt/survix_recordings/cam1/a.mp4 3"},
      {"/ubuntu:/x", "/share/VOL1/ct/container-rootfs-home//x 1"}, {"/snapshot:/s1/a", "/mnt/snapexp/s1/a 3"},
      {"/snapshot_vault:/v/a", "/mnt/vaultexp/v/a 3"}, {"/zelm:/arc/f", "/share/VOL1/zelm/arc/f 3"},
      {"/remote:3@Backup/sub/f", "/share/VOL1/remote3/sub/f 3", 1}};
  for (const auto& c : cases) EXPECT_EQ("-1", resolved(c.path, c.remote)) << c.path;
  for (const char* file : {"/mnt/survix_recordings/cam1/a.mp4", "/mnt/snapexp/s1/a", "/mnt/vaultexp/v/a",
                           "/share/VOL1/zelm/arc/f", "/share/VOL1/remote3/sub/f", "/share/VOL1/ct/container-rootfs-home/x/f",
                           "/ZELM/var/f"})
    root_.write(file, "x");
  link(root_.path("/share/VOL1/zelm"), "/ZELM/var/mnt");
  root_.write("/etc/config/xpkg.conf", "[ubuntu-hd]\nInstall_Path = /share/VOL1/ct\n");
  root_.write("/etc/config/Korvix.conf",
              "[Snapshot]\nUnified Export = yes\nExport Path = /mnt/snapexp\nVault Export Path = /mnt/vaultexp\n");
  config("/etc/config/remote_folder.conf", "[3]\nName = Backup\nLocal Path = /share/VOL1/remote3\n");
  for (const auto& c : cases) EXPECT_EQ(c.out, resolved(c.path, c.remote)) << c.path;
  for (const char* bad : {"/remote:3@Other/sub/f", "/remote:", "/remote:4@Backup/sub"})
    EXPECT_EQ("-1", resolved(bad, 1)) << bad;
}
TEST_F(Paths, ExpandsLoginMacros) {
  auto expand = [](const char* text, const char* home, size_t size = 64) {
    char path[64];
    snprintf(path, sizeof path, "%s", text);
    expand_share_path_macros(path, size, home);
    return std::string(path);
  };
  auto who = [](const char* login) {  // "<domain>|<user>|<login>"
    set_login_identity(login);
    const LoginIdentity& i = login_identity();
    return std::string(i.domain) + "|" + i.user + "|" + i.login;
  };
  EXPECT_EQ("|dom+ann|DOM+Ann", who("DOM+Ann"));  // separator "\": no domain
  config("/etc/config/Korvix.conf", "[Samba]\nwinbind separator = +\n");
  EXPECT_EQ("DOM|ann|DOM+Ann", who("DOM+Ann"));
  EXPECT_EQ("/share/ann", expand("/share/%U", ""));
  EXPECT_EQ("/share/DOM+ann/x", expand("/share/%D+%U/x", ""));
  root_.mkdirs("/share/homes/ann/x");
  EXPECT_EQ("/share/homes/ann/x 1", resolved("/Home/x"));
  config("/etc/config/Korvix.conf", "[Samba]\nwinbind separator = \\\n");
  EXPECT_EQ("SALES|bob|sales\\Bob", who("sales\\Bob"));
  who("carol");
  EXPECT_EQ("/share/carol", expand("/share/%D\\%U", ""));  // no domain: its separator goes too
  EXPECT_EQ("/homes//root", expand("/homes/%H/tail", "root"));
  EXPECT_EQ("/homes/%H/tail", expand("/homes/%H/tail", "no-such-user-slt"));
  set_login_identity("a-very-long-login-name-that-overflows-the-buffer");
  EXPECT_EQ(15u, expand("/share/%U%U%U%U%U%U%U%U%U%U%U%U%U%U%U%U%U%U%U%U%U%U%U%U", "", 16).size());
}
}  // namespace
