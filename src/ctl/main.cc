#include <cstdio>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "ctl/ctl.h"
#include "diag/debug_log.h"

namespace {

struct Entry {
  const char* usage;
  const char* summary;
  CtlHandler handler;
};

std::map<std::string, Entry>& commands() {
  static std::map<std::string, Entry> table;
  return table;
}

void print_help(FILE* to) {
  fprintf(to, "usage: sharelinkctl <command> [arguments]\n       sharelinkctl --version\n\ncommands:\n");
  for (const auto& c : commands()) {
    fprintf(to, "  %s %s\n      %s\n", c.first.c_str(), c.second.usage, c.second.summary);
  }
  fprintf(to, "\nThe appliance is the file system, or the folder named by SHARELINK_ROOT.\n");
}

}  // namespace

CtlCommand::CtlCommand(const char* name, const char* usage, const char* summary, CtlHandler handler) {
  commands()[name] = Entry{usage, summary, handler};
}

int ctl_usage_error(const char* name, const char* message) {
  if (message != nullptr && message[0] != '\0') fprintf(stderr, "sharelinkctl %s: %s\n", name, message);
  auto it = commands().find(name);
  if (it != commands().end()) fprintf(stderr, "usage: sharelinkctl %s %s\n", name, it->second.usage);
  return kCtlUsage;
}

int main(int argc, char** argv) {
  configure_debug_log_from_env();
  if (argc < 2) {
    print_help(stderr);
    return kCtlUsage;
  }
  if (strcmp(argv[1], "--help") == 0 || strcmp(argv[1], "-h") == 0 || strcmp(argv[1], "help") == 0) {
    print_help(stdout);
    return kCtlOk;
  }
  if (strcmp(argv[1], "--version") == 0) {
    printf("sharelinkctl %s\n", SLT_VERSION);
    return kCtlOk;
  }
  auto it = commands().find(argv[1]);
  if (it == commands().end()) {
    fprintf(stderr, "sharelinkctl: unknown command '%s'\n", argv[1]);
    print_help(stderr);
    return kCtlUsage;
  }
  std::vector<std::string> args(argv + 2, argv + argc);
  for (const std::string& a : args) {
    if (a == "--help" || a == "-h") {
      printf("usage: sharelinkctl %s %s\n  %s\n", argv[1], it->second.usage, it->second.summary);
      return kCtlOk;
    }
  }
  return it->second.handler(args);
}
