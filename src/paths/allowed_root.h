// The roots a resolved path may lie under: the shares ("/share/..."), the
// snapshot mounts, the surveillance recordings and the snapshot exports.
// Anything else, and anything that leaves them through ".." or a symbolic
// link, is refused before a file is looked at.
#ifndef SLT_PATHS_ALLOWED_ROOT_H_
#define SLT_PATHS_ALLOWED_ROOT_H_

// path and base are appliance paths. With a base, a share path is allowed only
// when base does not lie inside it. Returns 1 allowed, 0 refused.
int is_allowed_real_path(const char* path, const char* base);

#endif  // SLT_PATHS_ALLOWED_ROOT_H_
