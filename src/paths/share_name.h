// The share a display path lies in: its first component.
#ifndef SLT_PATHS_SHARE_NAME_H_
#define SLT_PATHS_SHARE_NAME_H_

#include <cstddef>

// Copies the text between the leading slash (when there is one) and the next
// slash, or to the end, into out (bounded by size). Returns the length
// written, or -1 (out untouched) when an argument is missing.
int share_name_of(const char* path, char* out, size_t size);

#endif  // SLT_PATHS_SHARE_NAME_H_
