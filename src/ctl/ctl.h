// sharelinkctl: the operator's program over the share-link libraries.
//
// Each command lives in its own file and registers itself with a static
// CtlCommand; main() finds it by name. Exit statuses: 0 success, 1 the work
// failed (a message on standard error), 2 a usage error (usage on standard
// error).
#ifndef SLT_CTL_CTL_H_
#define SLT_CTL_CTL_H_

#include <string>
#include <vector>

using CtlHandler = int (*)(const std::vector<std::string>& args);

struct CtlCommand {
  // Registers `name`; `usage` is the argument synopsis, `summary` one line.
  CtlCommand(const char* name, const char* usage, const char* summary, CtlHandler handler);
};

constexpr int kCtlOk = 0;
constexpr int kCtlFailed = 1;
constexpr int kCtlUsage = 2;

// Prints "usage: sharelinkctl <name> <usage>" on standard error; returns 2.
int ctl_usage_error(const char* name, const char* message);

#endif  // SLT_CTL_CTL_H_
