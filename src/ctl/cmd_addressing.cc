// sharelinkctl discover / url / resolve: the host addresses the appliance is
// known by, the download link of a stored share link, and what a display path
// stands for on disk.
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "addressing/host_address.h"
#include "addressing/share_link_url.h"
#include "ctl/ctl.h"
#include "paths/display_path.h"
#include "platform/terminal_text.h"
#include "sharelink_db/event_rows.h"
#include "sharelink_db/records.h"
#include "sharelink_db/result_codes.h"

namespace {

int cmd_discover(const std::vector<std::string>& args) {
  if (!args.empty()) return ctl_usage_error("discover", "takes no arguments");
  discover_host_addresses(nullptr, nullptr);
  return kCtlOk;
}

// The link as the share mail writes it: the row's ssl, host and key, no file.
int cmd_url(const std::vector<std::string>& args) {
  if (args.size() != 1 || args[0].empty()) return ctl_usage_error("url", "expects one link key");
  ShareLinkRecord filter;
  sf_filter_reset(&filter);
  if (args[0].size() >= sizeof filter.pkey) {
    fprintf(stderr, "sharelinkctl url: no share link '%s'\n", terminal_safe(args[0]).c_str());
    return kCtlFailed;
  }
  snprintf(filter.pkey, sizeof filter.pkey, "%s", args[0].c_str());
  int count = sf_event_count_filter(&filter);
  if (count < 0) {
    fprintf(stderr, "sharelinkctl url: %s (%d)\n", sf_result_text(count), count);
    return kCtlFailed;
  }
  if (count < 1) {
    fprintf(stderr, "sharelinkctl url: no share link '%s'\n", terminal_safe(args[0]).c_str());
    return kCtlFailed;
  }
  ShareLinkRecord record;
  memset(&record, 0, sizeof record);
  int r = sf_event_select_filter(sf_fill_record_single, &filter, 6, 0, 1, &record);
  if (r != 0) {
    fprintf(stderr, "sharelinkctl url: %s (%d)\n", sf_result_text(r), r);
    return kCtlFailed;
  }
  char url[512] = "";
  char port[11] = "";
  compose_share_link(record.ssl, record.host, record.pkey, nullptr, url, sizeof url, port,
                     sizeof port);
  printf("%s\n", terminal_safe(url).c_str());  // host and key are stored texts
  return kCtlOk;
}

int cmd_resolve(const std::vector<std::string>& args) {
  if (args.empty() || args.size() > 2) return ctl_usage_error("resolve", "expects a display path");
  const char* creator = args.size() > 1 ? args[1].c_str() : "";
  char real[4096] = "";
  int kind = resolve_display_path(0, args[0].c_str(), real, sizeof real, creator);
  if (kind < 0) {
    fprintf(stderr, "sharelinkctl resolve: cannot resolve '%s': %d\n", terminal_safe(args[0]).c_str(), kind);
    return kCtlFailed;
  }
  printf("%s\n%d\n", terminal_safe(real).c_str(), kind);  // names on disk are anyone's
  return kCtlOk;
}

const CtlCommand kDiscover("discover", "",
                           "print the host-address JSON document of discovery", cmd_discover);
const CtlCommand kUrl("url", "KEY", "print the download link of the share link KEY", cmd_url);
const CtlCommand kResolve("resolve", "DISPLAY_PATH [CREATOR]",
                          "print the real path of a display path, then its kind "
                          "(3 file, 1 folder, 0 other)",
                          cmd_resolve);

}  // namespace
