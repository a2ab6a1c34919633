// The one gate of share.cgi: every request (page, download, listing, HEAD,
// archive) passes it before anything of the share is read or sent, and it
// decides everything about the request in one call.
//
// In order: the access file can record → the link exists (store row by key;
// the registry line whose first field is the ssid only when the store says
// there is no such key; a store that cannot be read refuses) → it has not
// expired → the access code (cookie, or a code typed into a same-site form
// with its token, checked and recorded in one transaction with the
// throttle) → the download limit (a visitor whose download of the item
// counted within the hour may resume) → the path resolves for the link's
// creator under an allowed root, outside the store's folder and the
// appliance's system folders, and the requested file lies inside the share
// → the fid belongs to the link → preview bots get pages only → whether this
// answer counts, and the count itself, before any byte. What it resolved
// comes back opened, so nothing can be swapped between the check and the use.
#ifndef SLT_SHARE_PAGE_GATE_H_
#define SLT_SHARE_PAGE_GATE_H_

#include <sys/stat.h>

#include <ctime>
#include <string>
#include <utility>
#include <vector>

#include "platform/fs_beneath.h"
#include "share_page/access_db.h"
#include "share_page/file_send.h"
#include "share_page/request.h"
#include "sharelink_db/link_lookup.h"
#include "sharelink_db/store_files.h"

// A link as the gate sees it: a store row, or a registry line (no code, no
// limit, no files).
struct SharedLink : LinkRow {
  bool from_registry = false;
};

// The link by key: the store first; the registry only when the store answers
// that it has no such key. kUnreadable when the store cannot be read.
LinkLookup find_shared_link(const std::string& ssid, SharedLink* link);

// What the gate opened.
struct Target {
  bool multi = false;      // a multi-file link's own page: link.fids lists the files
  bool is_folder = false;  // `folder` is the target (listing or archive)
  UniqueFd folder;         // the link's folder or the subfolder named by path
  UniqueFd file;           // the regular file named by the request
  struct stat st {};       // of the target
  std::string name;        // base name of the target
  std::string real_path;   // appliance path of the target as resolved
};

enum class AnswerKind {
  kPage,        // a page with one sentence (refusals) or the code form
  kRedirect,    // 303 to the same address with the code's cookie
  kFolderPage,  // the listing of a folder or of a multi-file link
  kFilePage,    // a file's page
  kFile,        // the file's bytes (or 304, 416): `plan` says which
  kZip,         // the archive; it counts when it starts
};

struct Verdict {
  AnswerKind kind = AnswerKind::kPage;
  int status = 200;
  std::string sentence;             // kPage: the sentence, or the code form's message
  bool code_form = false;           // kPage: the code form instead of the error page
  std::string form_token;           // the code form's token
  std::vector<std::string> headers; // "Name: value", already safe
  std::string event;                // audit event still to record ("" when none)
  SharedLink link;
  Target target;
  StoreFiles store;                 // never served, listed or archived
  std::string visitor;              // for the repeat rule: "c:" code cookie, "v:" visit cookie
  std::string address_visitor;      // "a:" address and agent, for resumes without cookies
  std::string new_visit_cookie;     // the visit cookie to set with a counted download
  std::string ua_hash;
  FilePlan plan;                    // kFile
};

// Decides the request. Writes only through `access`: throttle rows, the
// code's audit rows, and a counted download with its records.
Verdict share_gate(const ShareRequest& req, AccessDb* access);

// The answer when something the request needs cannot be read or recorded:
// 503 with Retry-After.
Verdict share_unavailable();

// A file of the link's fids, opened with the same confinement as a request
// for it. False when it is not a regular file inside the allowed roots.
bool open_link_file(const SharedLink& link, const StoreFiles& store, const std::string& fid,
                    Target* out);

// The request's item for counting and audit: "fid:F", "path:P" or "".
std::string share_item(const ShareRequest& req);

#endif  // SLT_SHARE_PAGE_GATE_H_
