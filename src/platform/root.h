// The appliance root: where the appliance's file system lives for this process.
//
// When SHARELINK_ROOT is set and not empty, every absolute appliance path P
// ("/etc/config/...", "/tmp/...") names the file $SHARELINK_ROOT + P. Texts the
// program compares, stores, prints or passes on stay appliance paths; only the
// file-system call sees the rooted form. This is the one place that joins them.
#ifndef SLT_PLATFORM_ROOT_H_
#define SLT_PLATFORM_ROOT_H_

#include <cstddef>
#include <string>

// The root folder without a trailing slash, or "" when the appliance is the
// real file system.
std::string appliance_root();

// The file-system path of appliance path `path`: root + path for an absolute
// path under a root, else `path` unchanged. A null path gives "".
std::string rooted_path(const char* path);

// Turns a canonical file-system path back into an appliance path.
// On success writes the appliance path into out (bounded by size) and returns
// true; returns false when `real` lies outside the root or does not fit.
bool unrooted_path(const char* real, char* out, size_t size);

#endif  // SLT_PLATFORM_ROOT_H_
