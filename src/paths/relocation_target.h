// Where the share-link store may be moved to.
//
// The store holds every access code in clear and sits beside the appliance
// secret, so its folder must never be one a share serves. A relocation names
// a new store file; the folder of the file must already exist, be reached
// without a symbolic link (its canonical form is itself) and be either the
// configuration folder or an appliance system folder on a volume: under
// "/share/", with a component that begins ".@" (as the volume's own
// ".@kdx/share_link_db"), and not at or under the folder of any share of
// "/etc/config/smb.conf".
#ifndef SLT_PATHS_RELOCATION_TARGET_H_
#define SLT_PATHS_RELOCATION_TARGET_H_

// True when `folder` (an appliance path) is an allowed store folder: absolute,
// without ".", ".." or backslash components, an existing directory that is
// its own canonical form, and "/etc/config" or a system folder under
// "/share/" that no share reaches (canonical paths compared; a share
// configuration that exists but cannot be read allows none).
bool relocation_folder_allowed(const char* folder);

// True when `path` is absolute, has no ".", ".." or backslash component,
// and its folder is allowed.
bool relocation_target_allowed(const char* path);

// True when `volume` may hold a relocated store's folder: absolute, clean, an
// existing directory that is its own canonical form, under "/share/". The
// folder made in it must still pass relocation_folder_allowed.
bool relocation_volume_allowed(const char* volume);

#endif  // SLT_PATHS_RELOCATION_TARGET_H_
