#include <cstdio>
#include <cstring>
#include <new>
#include <string>

#include "diag/app_log.h"
#include "paths/display_path.h"
#include "paths/share_name.h"
#include "platform/facts.h"
#include "platform/profile.h"

namespace {

const char kQTypeConf[] = "/etc/smb.conf";
const char kXpkgConf[] = "/etc/config/xpkg.conf";

bool starts_with(const char* s, const char* prefix) {
  return strncmp(s, prefix, strlen(prefix)) == 0;
}

// The cloud-cache application only claims its shares while it is enabled.
bool cloud_cache_active() {
  return Is_XPKG_Installed("Skylet") &&
         Get_Private_Profile_Boolean("Skylet", "Enable", 0, kXpkgConf) != 0;
}

int classify(const char* path) {
  std::string copy = path[0] == '/' ? std::string(path) : "/" + std::string(path);
  if (copy == "/") return kPathShare;

  if (strchr(path, ':') != nullptr) {
    // "/snapshot:" is not a prefix of "/snapshot_vault:", so the order keeps
    // both reachable.
    static const struct {
      const char* prefix;
      int type;
    } kVirtualRoots[] = {
        {"/remote:", kPathRemoteFolder},        {"/ubuntu:", kPathContainerHome},
        {"/survix:", kPathSurveillance},        {"/snapshot:", kPathSnapshotExport},
        {"/snapshot_vault:", kPathSnapshotVault}, {"/zelm:", kPathHybridArchive},
    };
    for (const auto& root : kVirtualRoots) {
      if (starts_with(copy.c_str(), root.prefix)) return root.type;
    }
    if (starts_with(copy.c_str() + 1, "tfx://")) return kPathTeamFolder;
    return kPathShare;
  }

  size_t first_len = strcspn(copy.c_str() + 1, "/");
  std::string first = copy.substr(1, first_len);
  if (Get_Private_Profile_Integer(first.c_str(), "q type", 0, kQTypeConf) == 2) {
    return kPathQType2Share;
  }
  if (first.size() > 1 && cloud_cache_active() && Is_SK_Share(first.c_str())) {
    return kPathCloudCacheShare;
  }
  if (starts_with(copy.c_str(), "/mnt/snapshot")) return kPathSnapshotMount;

  char share[255];
  share_name_of(copy.c_str(), share, sizeof share);
  if (file_manager_verbosity() == 10) {
    APP_LOG("ret=%d, pShare_path=%s, sShareName=%s\n", 0, path, share);
  }
  if (strlen(share) <= 1) return kPathShare;
  if (Is_MTP_Share(share)) return kPathMtpShare;
  if (Is_ODD_Share(share)) return kPathOpticalShare;
  return kPathShare;
}

}  // namespace

int share_name_of(const char* path, char* out, size_t size) {
  if (path == nullptr || out == nullptr || size == 0) return -1;
  const char* p = path[0] == '/' ? path + 1 : path;
  size_t n = strcspn(p, "/");
  if (n > size - 1) n = size - 1;
  memcpy(out, p, n);
  out[n] = '\0';
  return static_cast<int>(n);
}

int kdx_check_file_ap_type(const char* path) {
  if (path == nullptr) return kPathInvalid;
  try {
    return classify(path);
  } catch (const std::bad_alloc&) {
    return kPathInvalid;
  }
}
