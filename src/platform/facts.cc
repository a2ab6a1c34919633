#include "platform/facts.h"

#include <strings.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "platform/profile.h"

namespace {

const char kSmbConf[] = "/etc/config/smb.conf";
const char kXpkgConf[] = "/etc/config/xpkg.conf";
const char kRemoteFolderConf[] = "/etc/config/remote_folder.conf";

bool share_kind_is(const char* share, const char* kind) {
  if (share == nullptr || share[0] == '\0') return false;
  char value[64];
  Get_Private_Profile_String(share, "share kind", "", value, sizeof value, kSmbConf);
  return strcasecmp(value, kind) == 0;
}

int snapshot_path(const char* key, char* out, int size) {
  char value[4096];
  Get_Private_Profile_String("Snapshot", key, "", value, sizeof value, kSystemConfigPath);
  if (value[0] == '\0') return -1;
  if (out != nullptr && size > 0) snprintf(out, static_cast<size_t>(size), "%s", value);
  return 0;
}

}  // namespace

int Get_Web_Access_Port() {
  return Get_Private_Profile_Integer("System", "Web Access Port", 8080, kSystemConfigPath);
}

int Get_Web_Access_SSL_Port() {
  return Get_Private_Profile_Integer("Stunnel", "Port", 443, kSystemConfigPath);
}

int Get_Service_External_Port(int ssl) {
  if (ssl == 0) {
    return Get_Private_Profile_Integer("System", "External Web Port", Get_Web_Access_Port(),
                                       kSystemConfigPath);
  }
  return Get_Private_Profile_Integer("System", "External SSL Port", Get_Web_Access_SSL_Port(),
                                     kSystemConfigPath);
}

int Get_Default_Volume_Path(char* out, int size) {
  return Get_Private_Profile_String("Storage", "Default Volume", "", out, size, kSystemConfigPath);
}

int Is_MTP_Share(const char* share) { return share_kind_is(share, "mtp") ? 1 : 0; }
int Is_ODD_Share(const char* share) { return share_kind_is(share, "odd") ? 1 : 0; }
int Is_SK_Share(const char* share) { return share_kind_is(share, "skylet") ? 1 : 0; }

int Is_XPKG_Installed(const char* name) {
  if (name == nullptr || name[0] == '\0') return 0;
  char path[512];
  Get_Private_Profile_String(name, "Install_Path", "", path, sizeof path, kXpkgConf);
  return path[0] != '\0' ? 1 : 0;
}

int Remote_Folder_Get_Local(int id, const char* name, char** local) {
  if (local == nullptr) return -1;
  *local = nullptr;
  char section[16];
  snprintf(section, sizeof section, "%d", id);
  char folder[256];
  Get_Private_Profile_String(section, "Name", "", folder, sizeof folder, kRemoteFolderConf);
  if (name == nullptr || strcmp(folder, name) != 0) return -1;
  char path[4096];
  Get_Private_Profile_String(section, "Local Path", "", path, sizeof path, kRemoteFolderConf);
  if (path[0] == '\0') return -1;
  *local = strdup(path);
  return *local != nullptr ? 0 : -1;
}

int NAS_Snapshot_Is_Unified_Export_Enabled() {
  return Get_Private_Profile_Boolean("Snapshot", "Unified Export", 0, kSystemConfigPath);
}

int NAS_Snapshot_Get_Unified_Export_Path(char* out, int size) {
  return snapshot_path("Export Path", out, size);
}

int NAS_Snapshot_Get_Unified_Export_Vault_Path(char* out, int size) {
  return snapshot_path("Vault Export Path", out, size);
}

int Get_Alert_SMTP_Server_IP(char* out, int size) {
  return Get_Private_Profile_String("Alert", "SMTP Server", "", out, size, kSystemConfigPath);
}

int Is_SMTP_Enable() {
  return Get_Private_Profile_Boolean("Alert", "SMTP Enable", 0, kSystemConfigPath);
}

void Become_ROOT() {
  if (setegid(0) != 0) {
    // Not fatal: an unprivileged test run keeps its own identity.
  }
  if (seteuid(0) != 0) {
  }
}
