// sharelinkctl discover / resolve: the host addresses the appliance is known
// by, and what a display path stands for on disk.
#include <cstdio>
#include <string>
#include <vector>

#include "addressing/host_address.h"
#include "ctl/ctl.h"
#include "paths/display_path.h"

namespace {

int cmd_discover(const std::vector<std::string>& args) {
  if (!args.empty()) return ctl_usage_error("discover", "takes no arguments");
  discover_host_addresses(nullptr, nullptr);
  return kCtlOk;
}

int cmd_resolve(const std::vector<std::string>& args) {
  if (args.empty() || args.size() > 2) return ctl_usage_error("resolve", "expects a display path");
  const char* creator = args.size() > 1 ? args[1].c_str() : "";
  char real[4096] = "";
  int kind = resolve_display_path(0, args[0].c_str(), real, sizeof real, creator);
  if (kind < 0) {
    fprintf(stderr, "sharelinkctl resolve: cannot resolve '%s': %d\n", args[0].c_str(), kind);
    return kCtlFailed;
  }
  printf("%s\n%d\n", real, kind);
  return kCtlOk;
}

const CtlCommand kDiscover("discover", "",
                           "print the host-address JSON document of discovery", cmd_discover);
const CtlCommand kResolve("resolve", "DISPLAY_PATH [CREATOR]",
                          "print the real path of a display path, then its kind "
                          "(3 file, 1 folder, 0 other)",
                          cmd_resolve);

}  // namespace
