// The share registry file and its refresh.
//
// "/etc/config/shareFileEx.ini" holds one tab-separated line per share link
// handed out: field 1 the share-link id, 2 the host, 4 the https flag, 5 the
// shared path, 7 the expiry (epoch seconds, 0 never), 9 a text value; the
// other fields ride along. Before a mode acts, the refresh drops the lines
// whose shared path has vanished or whose expiry has passed.
#ifndef SLT_REGISTRY_REFRESH_H_
#define SLT_REGISTRY_REFRESH_H_

extern const char kShareRegistryPath[];  // "/etc/config/shareFileEx.ini"

// Creates the registry (empty, mode 0644) when it is missing. Always 1.
int ensure_registry_exists();

// Rewrites the registry without its stale lines: a line is dropped when its
// field 5 cannot be stat'ed, or when its field 7 (read as a signed 32-bit
// number) is not 0 and lies in the past (a negative expiry never passes).
// 1 when the registry was rewritten. -1 when it could not be read, a line
// lacks field 5 or (with an existing path) field 7, a field is 256 bytes or
// longer, or the new file could not be written or put in place: the
// registry is then exactly as it was and no temporary file is left.
int load_registry();

// The step before every mode's action: ensure_registry_exists, then
// load_registry. 1 when the mode may run, -1 otherwise.
int refresh_registry();

#endif  // SLT_REGISTRY_REFRESH_H_
