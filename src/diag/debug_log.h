// The levelled, module-masked debug log.
//
// A message passes when its level is 0 (fatal) or at most the threshold and
// its mask shares a bit with the module mask. Destinations: 0 standard error,
// 1 the system log, 2 a file (each message written twice there, once with the
// process id). A fatal message also goes to standard error with "Aborting"
// and ends the process with status 1. The defaults (threshold 0, mask all,
// standard error) print only fatal messages.
#ifndef SLT_DIAG_DEBUG_LOG_H_
#define SLT_DIAG_DEBUG_LOG_H_

#include <cstdint>

enum DebugDestination { kDebugToStderr = 0, kDebugToSyslog = 1, kDebugToFile = 2 };

constexpr uint32_t kDebugAlwaysOn = 0x80000000u;
constexpr uint32_t kDebugFileManager = 0x00000001u;  // every file-manager message

void debug_log(int level, uint32_t mask, const char* format, ...)
    __attribute__((format(printf, 3, 4)));

// Switches the destination: `name` is the syslog identity (kind 1) or the file
// path (kind 2, an appliance path). A file that cannot be opened ends the
// process with status 1 after "Error opening %s: %s" on standard error.
void set_debug_destination(const char* name, int kind);

// Applies a comma-separated module list (changed in place). 0, or 1 at the
// first unknown name; a null list does nothing.
int set_debug_modules(char* list);

void set_debug_level(int level);
int debug_level();

// Deployment hook: SHARELINK_DEBUG_LEVEL (a number), SHARELINK_DEBUG_MODULES
// (a module list) and SHARELINK_DEBUG_FILE (an appliance path, selects the
// file destination) from the environment. Unset variables change nothing.
void configure_debug_log_from_env();

#endif  // SLT_DIAG_DEBUG_LOG_H_
