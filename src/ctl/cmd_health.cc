// sharelinkctl health: whether the store, the share page's access file and
// the appliance secret can be used, for the operator who was told by the log
// that share.cgi refused requests.
#include <cstdio>
#include <string>
#include <vector>

#include "crypto/secret.h"
#include "ctl/ctl.h"
#include "share_page/access_db.h"
#include "sharelink_db/event_rows.h"
#include "sharelink_db/result_codes.h"
#include "sharelink_db/store.h"

namespace {

int cmd_health(const std::vector<std::string>& args) {
  if (!args.empty()) return ctl_usage_error("health", "no arguments expected");
  char path[256];
  sf_get_db_path(path, sizeof path);
  const int links = sf_event_count();
  const std::string store = links >= 0 ? "ok, " + std::to_string(links) + " links"
                                       : std::string("cannot be read: ") + sf_result_text(links);
  AccessDb access(AccessDb::Mode::kInspect);
  const std::string file = access.health();
  const std::string secret = secret_health();
  printf("store %s: %s\n", path, store.c_str());
  printf("access file %s: %s\n", sf_beside_store(kAccessFileName).c_str(), file.c_str());
  printf("secret %s: %s\n", sf_beside_store(kSecretFileName).c_str(), secret.c_str());
  auto usable = [](const std::string& what) { return what == "ok" || what.compare(0, 7, "missing") == 0; };
  const bool ok = links >= 0 && usable(file) && usable(secret);
  return ok ? kCtlOk : kCtlFailed;
}

const CtlCommand kHealth("health", "",
                         "report whether the store, the share page's access file and the "
                         "appliance secret can be used (exit status 1 when one cannot)",
                         cmd_health);

}  // namespace
