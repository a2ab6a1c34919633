// Display paths ("/Public/docs/a.txt", "/remote:...", "tfx://Team/...") to
// real paths on the appliance.
//
// kdx_check_file_ap_type classifies a display path by its prefix (PathType);
// resolve_display_path turns it into the real path, checks that the result
// lies under an allowed root and reports the kind of file found there.
#ifndef SLT_PATHS_DISPLAY_PATH_H_
#define SLT_PATHS_DISPLAY_PATH_H_

#include <cstddef>

enum PathType {
  kPathInvalid = -1,
  kPathShare = 0,
  kPathMtpShare = 1,
  kPathQType2Share = 2,
  kPathOpticalShare = 3,
  kPathRemoteFolder = 4,
  kPathContainerHome = 5,
  kPathSurveillance = 6,
  kPathSnapshotExport = 7,
  kPathSnapshotVault = 8,
  kPathHybridArchive = 9,
  kPathTeamFolder = 10,
  kPathSnapshotMount = 11,
  kPathCloudCacheShare = 12,
};

// File kinds reported by a successful resolution.
enum FileKind { kKindOther = 0, kKindDirectory = 1, kKindSymlink = 2, kKindFile = 3 };

int kdx_check_file_ap_type(const char* path);

// False when a component of `path` (between slashes) is "." or "..", or holds
// a backslash (the separator of Windows clients, "..\\x"): such a path could
// climb out of the root it names, so it never resolves.
bool display_path_is_clean(const char* path);

// Resolves `path` for the link creator `creator` (a leading "Mirra:" is
// removed to name the user). On success out holds the real path (an
// appliance path) and the result is a FileKind; otherwise a negative value
// (-1 for a bad path, a refused root or a failed resolution). A path that
// is not clean (display_path_is_clean) gives -1 in both modes; a share
// result must canonicalise under the allowed roots, a remote-folder result
// under its folder's mount point.
int resolve_display_path(int remote_mode, const char* path, char* out, size_t out_size,
                         const char* creator);

#endif  // SLT_PATHS_DISPLAY_PATH_H_
