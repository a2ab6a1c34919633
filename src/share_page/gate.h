// The one gate of share.cgi: every request (page, download, listing, HEAD,
// archive) passes it before anything of the share is read or sent.
//
// In order: the link exists (store row by key, else the registry line whose
// first field is the ssid: no code, no limit) → it has not expired → the
// access code (cookie or a code just typed) → the download limit → the path
// resolves for the link's creator under an allowed root, and the requested
// file lies inside the share → the fid belongs to the link. What it resolved
// comes back opened, so nothing can be swapped between the check and the use.
#ifndef SLT_SHARE_PAGE_GATE_H_
#define SLT_SHARE_PAGE_GATE_H_

#include <sys/stat.h>

#include <ctime>
#include <string>
#include <utility>
#include <vector>

#include "platform/fs_beneath.h"
#include "share_page/request.h"

struct SharedLink {
  std::string pkey;
  std::string sharefile;  // display path (store) or real path (registry)
  std::string creator;
  long long expire = 0;   // 0: never
  std::string accesscode; // "" when the link has none
  int download_count = 0;
  int download_limit = 0; // 0 or less: none
  bool from_registry = false;
  std::vector<std::pair<std::string, std::string>> fids;  // fid, display path
};

enum class GateOutcome {
  kOpen,          // everything checked; the target is open
  kNotFound,      // 404: unknown link, or anything about the target refused
  kExpired,       // 410, link.expire says when
  kNeedsCode,     // the link has a code and this request has not proved it
  kLimitReached,  // 410
};

struct GateContext {
  time_t now = 0;
  std::string secret;          // cookie key; empty: no cookie is valid
  bool code_ok = false;        // the right code was posted with this request
  bool limit_exempt = false;   // this visitor's download of the item counted within the hour
};

struct GateResult {
  GateOutcome outcome = GateOutcome::kNotFound;
  SharedLink link;             // filled from kExpired on
  bool link_found = false;
  bool cookie_valid = false;
  bool multi = false;          // a multi-file link's own page: link.fids lists the files
  bool is_folder = false;      // `folder` is the target (listing or archive)
  UniqueFd folder;             // the link's folder or the subfolder named by path
  UniqueFd file;               // the regular file named by the request
  struct stat st {};           // of the target
  std::string name;            // base name of the target
  std::string real_path;       // appliance path of the target as resolved
};

// The request's item for counting and audit: "fid:F", "path:P" or "".
std::string share_item(const ShareRequest& req);

// Runs the gate. Never changes the store.
GateResult share_gate(const ShareRequest& req, const GateContext& ctx);

// The link by key, store first, then the registry. False when neither has it.
bool find_shared_link(const std::string& ssid, SharedLink* link);

// Adds one to the link's download count when its limit allows, atomically
// (BEGIN IMMEDIATE, one UPDATE). True when the row changed.
bool count_download(const std::string& pkey);

#endif  // SLT_SHARE_PAGE_GATE_H_
