// Where the share-link store may be moved to.
//
// A relocation names a new store file; removing or creating that file must
// stay inside the appliance's own folders. The folder of the file must
// already exist, be reached without a symbolic link (its canonical form is
// itself) and be the configuration folder or lie under a volume ("/share/").
#ifndef SLT_PATHS_RELOCATION_TARGET_H_
#define SLT_PATHS_RELOCATION_TARGET_H_

// True when `folder` (an appliance path) is an allowed store folder: absolute,
// without ".", ".." or backslash components, an existing directory that is
// its own canonical form, and "/etc/config" or under "/share/".
bool relocation_folder_allowed(const char* folder);

// True when `path` is absolute, has no ".", ".." or backslash component,
// and its folder is allowed.
bool relocation_target_allowed(const char* path);

#endif  // SLT_PATHS_RELOCATION_TARGET_H_
