// sharelinkctl commands over the share-link store: start-up, relocation,
// adding one link with its files and recipients, and listing links.
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "ctl/ctl.h"
#include "diag/db_error_log.h"
#include "platform/terminal_text.h"
#include "sharelink_db/cleanup.h"
#include "sharelink_db/event_rows.h"
#include "sharelink_db/fid_rows.h"
#include "sharelink_db/records.h"
#include "sharelink_db/result_codes.h"
#include "sharelink_db/store.h"
#include "sharelink_db/user_rows.h"

namespace {

// Reports a failed store call on standard error and in the store's error
// report; the command then exits 1.
int store_failure(const char* command, const char* what, int code, const char* key,
                  const char* fid) {
  sf_debug_db_error_log(code, key, fid);
  fprintf(stderr, "sharelinkctl %s: %s: %d (%s)\n", command, what, code, sf_result_text(code));
  return kCtlFailed;
}

// Copies an argument into a record buffer; false when it is longer than the
// column allows (the store would cut it).
template <size_t N>
bool set_text(char (&dst)[N], const std::string& value) {
  if (value.size() > N - 1 || value.find('\0') != std::string::npos) return false;
  snprintf(dst, N, "%s", value.c_str());
  return true;
}

bool parse_int32(const std::string& text, int32_t* out) {
  if (text.empty()) return false;
  errno = 0;
  char* end = nullptr;
  long v = strtol(text.c_str(), &end, 10);
  if (errno != 0 || end == nullptr || *end != '\0' || v < INT32_MIN || v > INT32_MAX) return false;
  *out = static_cast<int32_t>(v);
  return true;
}

// Stored texts may hold anything; each prints as one inert field.
std::string escaped(const char* text) { return terminal_safe(text); }

int cmd_init(const std::vector<std::string>& args) {
  if (!args.empty()) return ctl_usage_error("init", "no arguments expected");
  int outcome = sf_startup();
  if (outcome == kSfStartupNotLocked || outcome == kSfStartupNotMade) {
    fprintf(stderr, "sharelinkctl init: %s\n", sf_startup_problem());
    return kCtlFailed;
  }
  char path[256];
  sf_get_db_path(path, sizeof path);
  const char* why = "";
  int code = sf_first_sqlite_error(&why);
  if (outcome == kSfStartupKept || outcome == kSfStartupNotSetAside) {
    fprintf(stderr, "sharelinkctl init: %s could not be initialised: %s (SQLite %d); %s\n",
            escaped(path).c_str(), why, code,
            outcome == kSfStartupKept ? "the file is kept"
                                      : "it is damaged and could not be set aside");
    return kCtlFailed;
  }
  int count = sf_event_count();
  if (count < 0) return store_failure("init", "the store could not be made", count, "", nullptr);
  if (outcome == kSfStartupSetAside) {
    fprintf(stderr, "sharelinkctl init: %s could not be initialised; set aside as %s.1, new store made\n",
            escaped(path).c_str(), escaped(path).c_str());
  }
  return kCtlOk;
}

int cmd_relocate(const std::vector<std::string>& args) {
  if (!args.empty()) return ctl_usage_error("relocate", "no arguments expected");
  int rc = sf_relocate_pass();
  if (rc == 1) return kCtlOk;
  if (rc < 0) return store_failure("relocate", "the relay host rewrite failed", rc, "", nullptr);
  const char* why = sf_relocate_problem();
  fprintf(stderr, "sharelinkctl relocate: the store could not be relocated%s%s\n",
          why[0] != '\0' ? ": " : "", why);
  return kCtlFailed;
}

struct AddRequest {
  std::unique_ptr<ShareLinkRecord> link{new ShareLinkRecord()};
  std::vector<ShareLinkFidRecord> fids;
  std::vector<ShareLinkUserRecord> users;
};

// Fills the request from the arguments; an empty string on success, else the
// usage message.
std::string parse_add(const std::vector<std::string>& args, AddRequest* req) {
  ShareLinkRecord* r = req->link.get();
  memset(r, 0, sizeof *r);
  snprintf(r->misc, sizeof r->misc, "%s", "00000001");
  std::vector<std::string> positional;
  for (size_t i = 0; i < args.size(); ++i) {
    const std::string& a = args[i];
    if (a.size() < 2 || a.compare(0, 2, "--") != 0) {
      positional.push_back(a);
      continue;
    }
    if (i + 1 >= args.size()) return a + " needs a value";
    const std::string& v = args[++i];
    bool ok = true;
    if (a == "--creator") ok = set_text(r->creator, v);
    else if (a == "--host") ok = set_text(r->host, v);
    else if (a == "--link-name") ok = set_text(r->link_name, v);
    else if (a == "--title") ok = set_text(r->title, v);
    else if (a == "--accesscode") ok = set_text(r->accesscode, v);
    else if (a == "--useraddr") ok = set_text(r->useraddr, v);
    else if (a == "--ssl") ok = parse_int32(v, &r->ssl);
    else if (a == "--expire") ok = parse_int32(v, &r->expire);
    else if (a == "--createtic") ok = parse_int32(v, &r->createtic);
    else if (a == "--download-limit") ok = parse_int32(v, &r->download_limit) && r->download_limit >= 0;
    else if (a == "--fid" || a == "--recipient") {
      size_t colon = v.find(':');
      if (colon == std::string::npos || colon == 0) return a + " takes " + (a == "--fid" ? "FID:PATH" : "USER:EMAIL");
      if (a == "--fid") {
        ShareLinkFidRecord f{};
        ok = set_text(f.fid, v.substr(0, colon)) && set_text(f.sharefile, v.substr(colon + 1));
        req->fids.push_back(f);
      } else {
        ShareLinkUserRecord u{};
        ok = set_text(u.user, v.substr(0, colon)) && set_text(u.email, v.substr(colon + 1));
        req->users.push_back(u);
      }
    } else {
      return "unknown option " + a;
    }
    if (!ok) return "bad value for " + a + ": " + v;
  }
  if (positional.size() != 2) return "KEY and SHAREFILE are required";
  if (positional[0].empty() || !set_text(r->pkey, positional[0])) return "bad KEY: " + positional[0];
  if (!set_text(r->sharefile, positional[1])) return "bad SHAREFILE";
  for (auto& f : req->fids) snprintf(f.pkey, sizeof f.pkey, "%s", r->pkey);
  for (auto& u : req->users) snprintf(u.pkey, sizeof u.pkey, "%s", r->pkey);
  return std::string();
}

int cmd_add(const std::vector<std::string>& args) {
  AddRequest req;
  std::string problem = parse_add(args, &req);
  if (!problem.empty()) return ctl_usage_error("add", problem.c_str());
  ShareLinkRecord* r = req.link.get();

  int part = 0;
  int rc = sf_add_link(r, req.fids.data(), static_cast<int>(req.fids.size()), req.users.data(),
                       static_cast<int>(req.users.size()), &part);
  if (rc == kSfLinkExists) {
    fprintf(stderr, "sharelinkctl add: a link with key %s exists already\n", r->pkey);
    return kCtlFailed;
  }
  if (rc == 0) return kCtlOk;
  if (part == 1) {
    return store_failure("add", "the files could not be added", rc, r->pkey,
                         req.fids.empty() ? nullptr : req.fids[0].fid);
  }
  return store_failure("add", part == 2 ? "the recipients could not be added"
                                        : "the link could not be added",
                       rc, r->pkey, nullptr);
}

int print_link(void* user_data, int ncols, char** values, char** names) {
  auto* record = static_cast<ShareLinkRecord*>(user_data);
  if (ncols != 19) return 0;
  sf_fill_record_single(record, ncols, values, names);
  printf("%s\t%s\t%d\t%s\t%s\n", escaped(record->pkey).c_str(), escaped(record->creator).c_str(),
         record->expire, escaped(record->sharefile).c_str(), escaped(record->link_name).c_str());
  return 0;
}

int cmd_list(const std::vector<std::string>& args) {
  std::unique_ptr<ShareLinkRecord> filter(new ShareLinkRecord());
  sf_filter_reset(filter.get());
  for (size_t i = 0; i < args.size(); ++i) {
    if (args[i] != "--user") return ctl_usage_error("list", ("unknown argument " + args[i]).c_str());
    if (i + 1 >= args.size()) return ctl_usage_error("list", "--user needs a value");
    const std::string& user = args[++i];
    if (user.empty() || !set_text(filter->creator, user)) {
      return ctl_usage_error("list", ("bad value for --user: " + user).c_str());
    }
  }
  std::unique_ptr<ShareLinkRecord> row(new ShareLinkRecord());
  int rc = sf_event_select_filter(print_link, filter.get(), 0, 0, 0, row.get());
  if (rc != 0) return store_failure("list", "the links could not be read", rc, filter->creator, nullptr);
  return kCtlOk;
}

const CtlCommand kInit("init", "", "start-up initialisation of the share-link store", cmd_init);
const CtlCommand kRelocate("relocate", "",
                           "rewrite the relay host and move the store onto the default volume",
                           cmd_relocate);
const CtlCommand kAdd("add",
                      "KEY SHAREFILE [--creator C] [--host H] [--ssl N] [--expire T] "
                      "[--createtic T] [--link-name N] [--title T] [--accesscode A] [--useraddr U] "
                      "[--download-limit N] "
                      "[--fid FID:PATH]... [--recipient USER:EMAIL]...",
                      "add one share link with its files and recipients", cmd_add);
const CtlCommand kList("list", "[--user U]",
                       "list links (key, creator, expiry, shared path, link name), sorted by key; "
                       "--user U: links of U and of Mirra:U",
                       cmd_list);

}  // namespace
