// A run scope: the stretch of one command-line run during which the program
// takes the appliance's configuration files and folders as unchanging.
//
// The tool's runs are short and change neither; a mode that resolves tens of
// thousands of paths would otherwise look at the same files and folders again
// for each one. While a RunScope is alive:
//   - each profile (INI) file is looked at on the disk (stat, then parsed) at
//     most once; a file that was missing stays missing. The program's own
//     writes through the profile writers are still seen at once;
//   - fs_realpath keeps the canonical form of each folder it resolved, so a
//     path in a known folder costs one lstat instead of a walk over every
//     component; a path whose last component is a symbolic link is resolved
//     in full as before.
// Results are the same as without the scope as long as the appliance does
// not change during it. Scopes do not nest; opening and closing one starts
// from a clean state. Tests that change files between calls in one process
// run without a scope.
#ifndef SLT_PLATFORM_RUN_SCOPE_H_
#define SLT_PLATFORM_RUN_SCOPE_H_

#include <string>

class RunScope {
 public:
  RunScope();
  ~RunScope();
  RunScope(const RunScope&) = delete;
  RunScope& operator=(const RunScope&) = delete;
};

bool run_scope_active();

// For fs_realpath: realpath(3) of the file-system path `path`, using and
// filling the scope's folder forms. A malloc'ed text, or null with errno set.
char* run_scope_realpath(const std::string& path);

#endif  // SLT_PLATFORM_RUN_SCOPE_H_
