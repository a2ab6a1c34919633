// sharelinkctl mime: the request library's MIME table as the web pages read it.
#include <cstdio>

#include "ctl/ctl.h"
#include "weblib/mime_table.h"

namespace {

int cmd_mime(const std::vector<std::string>& args) {
  if (!args.empty()) return ctl_usage_error("mime", "takes no arguments");
  if (print_mime_table() != 0 || fflush(stdout) != 0) {
    fprintf(stderr, "sharelinkctl mime: could not print the table\n");
    return kCtlFailed;
  }
  return kCtlOk;
}

const CtlCommand kMime("mime", "", "print the MIME table (extension and MIME type of every row) as JSON",
                       cmd_mime);

}  // namespace
