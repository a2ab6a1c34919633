// Remote folders: "/remote:<id>@<name>/<path>" display paths of folders that
// the appliance mounts from other machines.
#ifndef SLT_PATHS_REMOTE_FOLDER_H_
#define SLT_PATHS_REMOTE_FOLDER_H_

#include <cstddef>

// Looks the folder up and, on success, writes its local mount point followed
// by the path's part from its first "/" on into out (bounded by out_size).
// Returns 0 on success; -1 for a path shorter than nine bytes, a path with
// a ".", ".." or backslash component, or an unknown folder (out untouched),
// and for a result that does not lie under the mount point once canonical
// (out emptied).
int kdx_Get_RemoteFolder_Path(const char* path, char* out, size_t out_size);

#endif  // SLT_PATHS_REMOTE_FOLDER_H_
