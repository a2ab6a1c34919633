// Where the store may be relocated: the configuration folder, or a system folder of a volume that
// no share serves (canonical paths compared).
#include <gtest/gtest.h>
#include <unistd.h>
#include <string>
#include "paths/relocation_target.h"
#include "platform/profile.h"
#include "support/appliance.h"

namespace {
TEST(RelocationTarget, OnlySystemFoldersNoShareServes) {
  ApplianceRoot root;
  ScopedEnv env{{{"SHARELINK_ROOT", root.dir()}}};
  for (const char* f : {"/etc/config", "/share/VOL1/Public/.links", "/share/VOL1/Public/.@x",
                        "/share/VOL1/.@kdx/share_link_db", "/share/VOL1/.db", "/share/VOL2/.@kdx/share_link_db",
                        "/share/VOL2/data/.@kdx", "/share/homes/.@kdx", "/share/.@sys", "/real/.@kdx"}) {
    root.mkdirs(f);
  }
  // The link's canonical form is /share/VOL2/data: the share is compared by where it leads.
  ASSERT_EQ(0, symlink(root.path("/share/VOL2/data").c_str(), root.path("/share/VOL1/Linked").c_str()));
  root.write("/etc/config/smb.conf", "[Public]\npath = /share/VOL1/Public/\n[Data]\npath = /share/VOL1/Linked\n"
                                     "[Home]\npath = /share/homes/%U\n[global]\nworkgroup = W\n");
  const struct { const char* folder; bool allowed; } cases[] = {
      {"/etc/config", true},
      {"/share/VOL1/.@kdx/share_link_db", true},           // the volume's own folder
      {"/share/VOL2/.@kdx/share_link_db", true},
      {"/share/.@sys", true},
      {"/share/VOL1/Public/.links", false},                // the attack: served by the share Public
      {"/share/VOL1/Public/.@x", false},                   // a system name inside a share
      {"/share/VOL1/Public", false},
      {"/share/VOL2/data/.@kdx", false},                   // shared through the link's target
      {"/share/homes/.@kdx", false},                       // under the per-user share's folder
      {"/share/VOL1/.db", false},                          // no system folder
      {"/share/VOL1/Linked", false}, {"/share/VOL1/.@kdx/../.@kdx/share_link_db", false},
      {"/share/VOL1/.@kdx/missing", false}, {"/real/.@kdx", false}, {"/etc", false}, {"/share", false},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(c.allowed, relocation_folder_allowed(c.folder)) << c.folder;
    EXPECT_EQ(c.allowed, relocation_target_allowed((std::string(c.folder) + "/s.db").c_str())) << c.folder;
  }
  // A share configuration that cannot be read allows no volume folder; a missing one has no shares.
  root.remove("/etc/config/smb.conf"); root.mkdirs("/etc/config/smb.conf"); profile_cache_clear();
  EXPECT_FALSE(relocation_folder_allowed("/share/VOL1/.@kdx/share_link_db"));
  EXPECT_TRUE(relocation_folder_allowed("/etc/config"));
  rmdir(root.path("/etc/config/smb.conf").c_str()); profile_cache_clear();
  EXPECT_TRUE(relocation_folder_allowed("/share/VOL1/Public/.@x"));
  // A share of one whole volume, or a per-user path that leaves no folder, takes everything it reaches.
  root.write("/etc/config/smb.conf", "[All]\npath = /share/VOL1\n"); profile_cache_clear();
  EXPECT_EQ((std::pair<bool, bool>(false, true)),
            std::make_pair(relocation_folder_allowed("/share/VOL1/.@kdx/share_link_db"),
                           relocation_folder_allowed("/share/VOL2/.@kdx/share_link_db")));
  root.write("/etc/config/smb.conf", "[U]\npath = /share/VOL2/%U/files\n"); profile_cache_clear();
  EXPECT_EQ((std::pair<bool, bool>(true, false)),
            std::make_pair(relocation_folder_allowed("/share/VOL1/.@kdx/share_link_db"),
                           relocation_folder_allowed("/share/VOL2/.@kdx/share_link_db")));
  root.write("/etc/config/smb.conf", "[H]\npath = %H\n"); profile_cache_clear();
  EXPECT_FALSE(relocation_folder_allowed("/share/VOL2/.@kdx/share_link_db"));
  EXPECT_EQ((std::pair<bool, bool>(true, false)),
            std::make_pair(relocation_volume_allowed("/share/VOL1"), relocation_volume_allowed("/share/VOL1/Linked")));
}
}  // namespace
