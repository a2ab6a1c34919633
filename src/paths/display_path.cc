#include "paths/display_path.h"

#include <sys/stat.h>

#include <cstdio>
#include <cstring>
#include <new>
#include <string>
#include <vector>

#include "paths/allowed_root.h"
#include "paths/path_macros.h"
#include "paths/remote_folder.h"
#include "paths/team_folder.h"
#include "platform/facts.h"
#include "platform/fs.h"
#include "platform/profile.h"

namespace {

const char kShareConf[] = "/etc/config/smb.conf";
const char kXpkgConf[] = "/etc/config/xpkg.conf";
const char kSurveillanceRoot[] = "/mnt/survix_recordings";
const char kHybridArchiveRoot[] = "/ZELM/var/mnt";

// The web user of the request; the command-line tool serves none.
const char* current_web_user() { return ""; }

int file_kind_of(const char* real) {
  struct stat st;
  if (fs_stat(real, &st) != 0) return -1;
  if (S_ISREG(st.st_mode)) return kKindFile;
  if (S_ISDIR(st.st_mode)) return kKindDirectory;
  if (S_ISLNK(st.st_mode)) return kKindSymlink;
  return kKindOther;
}

int container_home(const char* rest, char* out, size_t out_size) {
  char install[256];
  Get_Private_Profile_String("ubuntu-hd", "Install_Path", "", install, sizeof install, kXpkgConf);
  if (install[0] == '\0') return -2;
  if (rest != nullptr) {
    snprintf(out, out_size, "%s%s/%s%s", install, "/container-rootfs-home", current_web_user(),
             rest);
  } else {
    snprintf(out, out_size, "%s%s/%s", install, "/container-rootfs-home", current_web_user());
  }
  return 0;
}

int snapshot_export(bool vault, const char* rest, char* out, size_t out_size) {
  char root[4096] = "";
  int r = vault ? NAS_Snapshot_Get_Unified_Export_Vault_Path(root, sizeof root)
                : NAS_Snapshot_Get_Unified_Export_Path(root, sizeof root);
  if (r != 0 || root[0] == '\0') return -2;
  snprintf(out, out_size, "%s%s", root, rest != nullptr ? rest : "");
  return 0;
}

int hybrid_archive(const char* rest, char* out, size_t out_size) {
  std::string mount = std::string(kHybridArchiveRoot) + (rest != nullptr ? rest : "");
  return fs_realpath(mount.c_str(), out, out_size) ? 0 : -5;
}

int team_folder(const char* path, const char* user, char* out, size_t out_size) {
  // The classification ignores one leading slash; so does the resolution.
  const char* uri = path[0] == '/' ? path + 1 : path;
  std::vector<char> copy(uri, uri + strlen(uri) + 1);
  return resolve_team_folder(copy.data(), copy.size(), user, out, out_size) == 1 ? 0 : -1;
}

// The share's configured path with the display path's rest appended. A share
// path that ends in "/" loses that slash and the rest lands behind the
// terminator: callers have always seen the bare share path then.
void share_path(const char* path, const char* rest, const char* user, char* out,
                size_t out_size) {
  const char* p = path + strspn(path, "/");
  size_t share_len = strcspn(p, "/");
  std::string share(p, share_len);
  const char* q = p + share_len;
  q += strspn(q, "/");
  bool second_token = *q != '\0';

  char configured[256];
  Conf_Get_Field_NoLock(kShareConf, share.c_str(), "path", configured, sizeof configured);
  if (configured[0] == '\0') snprintf(configured, sizeof configured, "%s", "MD0_DATA");
  expand_share_path_macros(configured, sizeof configured, user);

  snprintf(out, out_size, "%s", configured);
  if (!second_token || rest == nullptr) return;
  size_t len = strlen(configured);
  if (len > 0 && len - 1 < out_size && out[len - 1] == '/') out[len - 1] = '\0';
  if (len < out_size) snprintf(out + len, out_size - len, "%s", rest);
}

int resolve(const char* path, char* out, size_t out_size, const char* creator) {
  char user[255] = "";
  if (creator != nullptr) {
    snprintf(user, sizeof user, "%s", strncmp(creator, "Mirra:", 6) == 0 ? creator + 6 : creator);
  }
  const char* rest = path[0] != '\0' ? strchr(path + 1, '/') : nullptr;

  int type = kdx_check_file_ap_type(path);
  if (type < 0) return -1;
  int r = 0;
  switch (type) {
    case kPathContainerHome:
      r = container_home(rest, out, out_size);
      break;
    case kPathSurveillance:
      snprintf(out, out_size, "%s%s", kSurveillanceRoot, rest != nullptr ? rest : "");
      break;
    case kPathSnapshotExport:
      r = snapshot_export(false, rest, out, out_size);
      break;
    case kPathSnapshotVault:
      r = snapshot_export(true, rest, out, out_size);
      break;
    case kPathHybridArchive:
      r = hybrid_archive(rest, out, out_size);
      break;
    case kPathTeamFolder:
      r = team_folder(path, user, out, out_size);
      break;
    default:
      share_path(path, rest, user, out, out_size);
      break;
  }
  if (r < 0) return -1;
  if (!is_allowed_real_path(out, nullptr)) return -1;
  return file_kind_of(out);
}

}  // namespace

bool display_path_is_clean(const char* path) {
  if (path == nullptr) return false;
  for (const char* p = path; *p != '\0';) {
    size_t n = strcspn(p, "/");
    if ((n == 1 && p[0] == '.') || (n == 2 && p[0] == '.' && p[1] == '.') ||
        memchr(p, '\\', n) != nullptr) {
      return false;
    }
    p += n;
    if (*p == '/') ++p;
  }
  return true;
}

int resolve_display_path(int remote_mode, const char* path, char* out, size_t out_size,
                         const char* creator) {
  if (path == nullptr || out == nullptr || out_size == 0) return -1;
  out[0] = '\0';
  if (!display_path_is_clean(path)) return -1;
  try {
    if (remote_mode != 0) {
      int r = kdx_Get_RemoteFolder_Path(path, out, out_size);
      if (r != 0 || out[0] == '\0') return r < 0 ? r : -1;
      return file_kind_of(out);
    }
    return resolve(path, out, out_size, creator);
  } catch (const std::bad_alloc&) {
    return -1;
  }
}
