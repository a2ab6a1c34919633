// sharelinkctl audit: what share.cgi recorded about the links' visitors.
#include <cstdio>
#include <string>
#include <vector>

#include "ctl/ctl.h"
#include "share_page/access_db.h"

namespace {

int cmd_audit(const std::vector<std::string>& args) {
  if (args.size() > 1) return ctl_usage_error("audit", "at most one KEY");
  AccessDb access(AccessDb::Mode::kInspect);
  if (access.print_audit(args.empty() ? std::string() : args[0], stdout) != 0) {
    fprintf(stderr, "sharelinkctl audit: the access file could not be read\n");
    return kCtlFailed;
  }
  return kCtlOk;
}

const CtlCommand kAudit("audit", "[KEY]",
                        "print the share page's audit trail (time, key, item, client, agent hash, "
                        "event), of one link with KEY",
                        cmd_audit);

}  // namespace
