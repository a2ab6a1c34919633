// Where the program's shipped read-only files (page templates, examples) are.
//
// These are the project's own files, not appliance files: SHARELINK_ROOT does
// not apply. An installed program finds them under <prefix>/share/sharelink;
// a program run from the build tree finds the source tree's data/ folder.
#ifndef SLT_PLATFORM_DATA_DIR_H_
#define SLT_PLATFORM_DATA_DIR_H_

#include <string>

// The folder without a trailing slash. SHARELINK_DATA_DIR, when set and not
// empty, wins over every other place.
std::string slt_data_dir();

#endif  // SLT_PLATFORM_DATA_DIR_H_
