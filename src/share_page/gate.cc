#include "share_page/gate.h"

#include <fcntl.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "crypto/digest.h"
#include "crypto/form_token.h"
#include "crypto/secret.h"
#include "diag/app_log.h"
#include "paths/allowed_root.h"
#include "paths/display_path.h"
#include "platform/fs.h"
#include "platform/os.h"
#include "platform/root.h"
#include "registry/fields.h"
#include "registry/refresh.h"
#include "share_page/bots.h"
#include "share_page/cookie.h"
#include "share_page/page.h"
#include "sharelink_db/link_lookup.h"
#include "sharelink_db/store.h"
#include "weblib/same_site.h"

namespace {

constexpr size_t kRealPathSize = 4097 + 545;
constexpr long kUnavailableRetry = 60;
constexpr char kVisitCookie[] = "slt_visit";
constexpr size_t kVisitIdBytes = 16;
constexpr long kVisitCookieLifetime = 24 * 60 * 60;

const char kNotFound[] = "This link does not exist or is no longer shared.";
const char kLimitReached[] = "This link has reached its download limit.";
const char kUnavailable[] =
    "This link cannot be served right now; please try again in a few minutes.";

// ---- the link ----

LinkLookup from_store(const std::string& ssid, SharedLink* link) {
  LinkLookup r = sf_lookup_link(ssid, link);
  if (r == LinkLookup::kUnreadable) {
    char path[256];
    sf_get_db_path(path, sizeof path);
    APP_LOG("share.cgi: the store %s cannot be read\n", path);
  }
  return r;
}

bool from_registry(const std::string& ssid, SharedLink* link) {
  FILE* f = fs_fopen(kShareRegistryPath, "r");
  if (f == nullptr) return false;
  char line[2048];
  bool found = false;
  while (!found && fgets(line, sizeof line, f) != nullptr) {
    FieldReader r(line, strlen(line), '\t');
    char id[2048], path[256], expiry[64];
    if (r.get(id, sizeof id, 1) != 1 || ssid != id) continue;
    if (r.get(path, sizeof path, 5) != 1 || r.get(expiry, sizeof expiry, 7) != 1) continue;
    link->pkey = ssid;
    link->sharefile = path;
    // The registry's own reading: a 32-bit value, compared unsigned.
    link->expire = static_cast<int32_t>(strtol(expiry, nullptr, 10));
    link->from_registry = true;
    found = true;
  }
  fclose(f);
  return found;
}

bool expired(long long expire, time_t now) {
  return expire != 0 &&
         static_cast<unsigned long long>(now) > static_cast<unsigned long long>(expire);
}

// ---- the target ----

// A ".@" component: the appliance's own folders are never served.
bool in_system_folder(const std::string& real) {
  return real.find("/.@") != std::string::npos;
}

// The link's own path as a real appliance path and its kind; -1 refused.
int resolve_link_path(const SharedLink& link, const std::string& display, std::string* real) {
  std::vector<char> buf(kRealPathSize);
  int kind;
  if (link.from_registry) {
    if (!fs_realpath(display.c_str(), buf.data(), buf.size())) return -1;
    if (is_allowed_real_path(buf.data(), nullptr) != 1) return -1;
    struct stat st;
    if (fs_stat(buf.data(), &st) != 0) return -1;
    kind = S_ISDIR(st.st_mode) ? kKindDirectory : S_ISREG(st.st_mode) ? kKindFile : kKindOther;
  } else {
    kind = resolve_display_path(0, display.c_str(), buf.data(), buf.size(), link.creator.c_str());
  }
  if (kind < 0 || in_system_folder(buf.data())) return -1;
  *real = buf.data();
  return kind;
}

std::string base_name(const std::string& path) {
  size_t end = path.find_last_not_of('/');
  if (end == std::string::npos) return path;
  size_t slash = path.rfind('/', end);
  return path.substr(slash == std::string::npos ? 0 : slash + 1,
                     end - (slash == std::string::npos ? 0 : slash + 1) + 1);
}

std::string parent_of(const std::string& path) {
  size_t slash = path.rfind('/');
  return slash == std::string::npos ? "." : slash == 0 ? "/" : path.substr(0, slash);
}

// A regular file by its real path; a link in its last component, a device,
// a pipe or a file of the store's folder is refused (O_NONBLOCK: opening a
// pipe must not wait).
bool open_file(const std::string& real, const StoreFiles& store, Target* t) {
  struct stat parent;
  if (fs_stat(parent_of(real).c_str(), &parent) != 0 || store.contains(parent)) return false;
  UniqueFd fd(fs_open(real.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  if (fd.get() < 0 || os.fstat(fd.get(), &t->st) != 0 || !S_ISREG(t->st.st_mode) ||
      store.contains(t->st)) {
    return false;
  }
  t->file = std::move(fd);
  t->real_path = real;
  t->name = base_name(real);
  return true;
}

// `rel` beneath the link's open folder: a subfolder, or a regular file whose
// folder is not the store's.
bool open_beneath(const std::string& real, UniqueFd folder, const std::string& rel,
                  const StoreFiles& store, Target* t) {
  UniqueFd fd(fs_open_beneath(folder.get(), rel.c_str(), O_RDONLY | O_NONBLOCK));
  if (fd.get() < 0 || os.fstat(fd.get(), &t->st) != 0 || store.contains(t->st)) return false;
  t->real_path = real + "/" + rel;
  t->name = base_name(rel);
  if (S_ISDIR(t->st.st_mode)) {
    t->folder = std::move(fd);
    t->is_folder = true;
    return true;
  }
  if (!S_ISREG(t->st.st_mode)) return false;
  const size_t slash = rel.rfind('/');
  UniqueFd dir(slash == std::string::npos
                   ? fs_dup(folder.get())
                   : fs_open_beneath(folder.get(), rel.substr(0, slash).c_str(),
                                     O_RDONLY | O_DIRECTORY));
  struct stat parent;
  if (dir.get() < 0 || os.fstat(dir.get(), &parent) != 0 || store.contains(parent)) return false;
  t->file = std::move(fd);
  return true;
}

bool open_target(const ShareRequest& req, const SharedLink& link, const StoreFiles& store,
                 Target* t) {
  if (!req.fid.empty()) return req.path.empty() && open_link_file(link, store, req.fid, t);
  // A multi-file link shares its files, not the folder its own path names.
  if (!link.fids.empty() && !req.path.empty()) return false;
  if (!link.fids.empty()) {
    t->multi = true;
    t->name = link.sharefile.empty() ? link.pkey : base_name(link.sharefile);
    return true;
  }
  std::string real;
  int kind = resolve_link_path(link, link.sharefile, &real);
  if (kind == kKindFile) return req.path.empty() && open_file(real, store, t);
  if (kind != kKindDirectory) return false;
  UniqueFd folder(fs_open_dir(real.c_str()));
  struct stat st;
  if (folder.get() < 0 || os.fstat(folder.get(), &st) != 0 || store.contains(st)) return false;
  if (!req.path.empty()) return open_beneath(real, std::move(folder), req.path, store, t);
  t->st = st;
  t->folder = std::move(folder);
  t->is_folder = true;
  t->real_path = real;
  t->name = base_name(real);
  return true;
}

// ---- answers ----

Verdict page(int status, const std::string& sentence, const std::string& event) {
  Verdict v;
  v.status = status;
  v.sentence = sentence;
  v.event = event;
  return v;
}

Verdict unavailable() { return share_unavailable(); }

Verdict throttled(long wait) {
  Verdict v = page(429, "Too many wrong codes were tried from your network; please wait and try "
                        "again later.",
                   "refused:throttled");
  v.headers.push_back("Retry-After: " + std::to_string(wait));
  return v;
}

// The code form's token is bound to the link and the client: a page of
// another site cannot have one for its visitor's address.
std::string form_subject(const ShareRequest& req) { return "share:" + req.ssid + "\n" + req.client; }

Verdict code_form(const ShareRequest& req, const std::string& secret, int status,
                  const std::string& message, const std::string& event) {
  Verdict v = page(status, message, event);
  v.code_form = true;
  v.form_token = make_form_token(secret, form_subject(req), req.now);
  return v;
}

// The visitor for the repeat rule: the browser's visit cookie, or a new
// one set with its first counted download (so that colleagues behind one
// address with one browser build are visitors of their own).
bool visitor_from_cookie(const ShareRequest& req, Verdict* v) {
  const std::string value = cookie_value(req.cookies, kVisitCookie);
  if (value.size() == 2 * kVisitIdBytes && value.find_first_not_of("0123456789abcdef") == std::string::npos) {
    v->visitor = "v:" + value;
    return true;
  }
  unsigned char id[kVisitIdBytes];
  if (!random_bytes(id, sizeof id)) return false;
  v->new_visit_cookie = hex_of(id, sizeof id);
  v->visitor = "v:" + v->new_visit_cookie;
  return true;
}

// An unknown link: recorded (a failure of its own tier and an audit row)
// up to the tier's count an hour, then answered alike without a record, so
// that anonymous requests cannot grow the access file without bound. A 429
// would only tell misses from the hits that keep answering.
Verdict unknown_link(const ShareRequest& req, AccessDb* access) {
  AccessDb::Write txn(access);
  long wait = 0;
  if (!txn.begun() || !access->unknown_wait(req.now, req.client, &wait)) return unavailable();
  Verdict v = page(404, kNotFound, "");
  if (wait > 0) return v;
  if (!access->record_failure(req.now, req.client, req.ssid, FailureKind::kUnknownLink) ||
      !access->audit(req.now, req.ssid, share_item(req), req.client, sha256_hex(req.ua).substr(0, 16),
                     "refused:unknown") ||
      !txn.commit()) {
    return unavailable();
  }
  return v;
}

// A typed code: the throttle's check, the comparison and their records in
// one transaction, so that parallel guesses cannot pass the limit. True when
// the code was right (its audit row recorded); otherwise *out is the answer.
bool typed_code(const ShareRequest& req, const Verdict& v, const std::string& secret,
                AccessDb* access, Verdict* out) {
  AccessDb::Write txn(access);
  long wait = 0;
  if (!txn.begun() || !access->code_wait(req.now, req.client, req.ssid, &wait)) {
    *out = unavailable();
    return false;
  }
  // A code from another site's page, or without this form's token, is not
  // checked: no page can spend a visitor's attempts.
  const bool form_ok =
      same_site_request(req.origin.empty() ? nullptr : req.origin.c_str(),
                        req.fetch_site.empty() ? nullptr : req.fetch_site.c_str(), req.host.c_str(),
                        req.https) &&
      form_token_valid(secret, form_subject(req), req.form_token, req.now);
  const bool right = wait == 0 && form_ok && share_code_matches(req.code, v.link.accesscode);
  if (wait > 0) {
    *out = throttled(wait);
  } else if (!form_ok) {
    *out = code_form(req, secret, 403, "The form has expired; please enter the code again.",
                     "refused:form");
  } else if (!right) {
    *out = code_form(req, secret, 403, "That code is not right.", "bad-code");
  }
  const bool failure = wait == 0 && form_ok && !right;
  if ((failure && !access->record_failure(req.now, req.client, req.ssid, FailureKind::kCode)) ||
      !access->audit(req.now, req.ssid, share_item(req), req.client, v.ua_hash,
                     right ? "code-accepted" : out->event) ||
      !txn.commit()) {
    *out = unavailable();
    return false;
  }
  out->event.clear();
  return right;
}

std::string cookie_header(const ShareRequest& req, const SharedLink& link,
                          const std::string& secret) {
  return "Set-Cookie: " + share_cookie_name(link.pkey) + "=" +
         make_share_cookie(secret, link.pkey, link.accesscode, req.now) +
         "; Max-Age=" + std::to_string(kCookieLifetime) +
         "; Path=/share.cgi; HttpOnly; SameSite=Lax" + (req.https ? "; Secure" : "");
}

// The access code. True when the request may go on (a valid cookie, or the
// right code just typed: then *set_cookie holds the header to send).
bool code_passes(const ShareRequest& req, Verdict* v, AccessDb* access, std::string* set_cookie,
                 Verdict* out) {
  std::string secret;
  if (!appliance_secret(&secret)) {
    *out = unavailable();
    return false;
  }
  const std::string cookie = cookie_value(req.cookies, share_cookie_name(v->link.pkey));
  if (!cookie.empty() &&
      share_cookie_valid(secret, v->link.pkey, v->link.accesscode, cookie, req.now)) {
    v->visitor = "c:" + sha256_hex(cookie);
    v->new_visit_cookie.clear();
    return true;
  }
  if (req.has_code) {
    if (!typed_code(req, *v, secret, access, out)) return false;
    *set_cookie = cookie_header(req, v->link, secret);
    return true;
  }
  long wait = 0;
  if (!access->code_wait(req.now, req.client, req.ssid, &wait)) {
    *out = unavailable();
  } else if (wait > 0) {
    *out = throttled(wait);
  } else {
    *out = code_form(req, secret, req.dl || req.zip ? 403 : 200, "", "code-asked");
  }
  return false;
}

bool limit_reached(const SharedLink& link) {
  return link.download_limit > 0 && link.download_count >= link.download_limit;
}

// Whether this request continues a download that counted within the hour:
// the same browser (its visitor or code cookie), or a client without cookies
// (same address and agent) asking for the rest from a byte after the first.
bool resumes(const ShareRequest& req, const Verdict& v, AccessDb* access, bool* yes) {
  const std::string item = share_item(req);
  if (!access->counted_recently(req.now, v.visitor, req.ssid, item, yes)) return false;
  if (*yes || v.plan.answer != FileAnswer::kPartial || v.plan.start == 0) return true;
  return access->counted_recently(req.now, v.address_visitor, req.ssid, item, yes);
}

std::string visit_cookie_header(const ShareRequest& req, const std::string& value) {
  return "Set-Cookie: " + std::string(kVisitCookie) + "=" + value + "; Max-Age=" +
         std::to_string(kVisitCookieLifetime) + "; Path=/share.cgi; HttpOnly; SameSite=Lax" +
         (req.https ? "; Secure" : "");
}

// The file's bytes: 304, 416 or the body; counted when a visitor's first
// bytes of the item go out, whatever the range start.
Verdict file_answer(const ShareRequest& req, Verdict v, AccessDb* access) {
  v.plan = plan_file_answer(v.target.st, req.if_none_match.get(), req.if_modified_since.get(),
                            req.if_range.get(), req.range.get());
  v.kind = AnswerKind::kFile;
  bool resumed = false;
  if (!resumes(req, v, access, &resumed)) return unavailable();
  if (limit_reached(v.link) && !resumed) return page(410, kLimitReached, "refused:limit");
  const bool bytes = v.plan.answer == FileAnswer::kWhole || v.plan.answer == FileAnswer::kPartial;
  if (req.head || !bytes || v.link.from_registry || resumed) return v;
  CountedVisit visit{req.now, v.link.pkey, v.visitor, v.address_visitor, share_item(req),
                     req.client, v.ua_hash, "download"};
  switch (access->count_download(visit)) {
    case CountOutcome::kCounted:
      if (!v.new_visit_cookie.empty()) v.headers.push_back(visit_cookie_header(req, v.new_visit_cookie));
      return v;
    case CountOutcome::kLimitReached: return page(410, kLimitReached, "refused:limit");
    case CountOutcome::kFailed: break;
  }
  return unavailable();
}

// After the link and its code: limit, target, bots, and the answer's kind.
Verdict target_answer(const ShareRequest& req, Verdict v, AccessDb* access,
                      const std::string& set_cookie) {
  // A download may resume past the limit; that is decided with its range.
  if (!req.dl && limit_reached(v.link)) return page(410, kLimitReached, "refused:limit");
  v.store = sf_store_files();
  if (req.path_bad || !open_target(req, v.link, v.store, &v.target)) {
    return page(404, kNotFound, "refused:not-found");
  }
  if (!set_cookie.empty()) {
    // Back to the same address by GET, so a reload does not post the code again.
    Verdict r = page(303, "", "");
    r.kind = AnswerKind::kRedirect;
    r.headers = {set_cookie, "Location: " + share_self_url(req)};
    return r;
  }
  if ((req.dl || req.zip) && is_preview_bot(req.ua.c_str())) {
    return page(403, "Downloads start only when a person opens this link.", "refused:bot");
  }
  v.event = "view";
  if (v.target.multi || v.target.is_folder) {
    if (req.dl || req.zip) {
      if (req.dl) return page(404, kNotFound, "refused:not-found");
      v.kind = AnswerKind::kZip;
      v.event.clear();
      return v;
    }
    v.kind = AnswerKind::kFolderPage;
    return v;
  }
  if (!req.dl) {
    v.kind = AnswerKind::kFilePage;
    return v;
  }
  v.event.clear();
  return file_answer(req, std::move(v), access);
}

}  // namespace

Verdict share_unavailable() {
  Verdict v = page(503, kUnavailable, "");
  v.headers.push_back("Retry-After: " + std::to_string(kUnavailableRetry));
  return v;
}

LinkLookup find_shared_link(const std::string& ssid, SharedLink* link) {
  if (ssid.empty()) return LinkLookup::kNoSuchKey;
  LinkLookup r = from_store(ssid, link);
  if (r != LinkLookup::kNoSuchKey) return r;
  return from_registry(ssid, link) ? LinkLookup::kFound : LinkLookup::kNoSuchKey;
}

bool open_link_file(const SharedLink& link, const StoreFiles& store, const std::string& fid,
                    Target* out) {
  for (const auto& f : link.fids) {
    if (f.first != fid) continue;
    std::string real;
    if (resolve_link_path(link, f.second, &real) != kKindFile) return false;
    return open_file(real, store, out);
  }
  return false;
}

std::string share_item(const ShareRequest& req) {
  if (!req.fid.empty()) return "fid:" + req.fid;
  if (!req.path.empty()) return "path:" + req.path;
  return std::string();
}

Verdict share_gate(const ShareRequest& req, AccessDb* access) {
  if (req.method != "GET" && req.method != "HEAD" && req.method != "POST") {
    Verdict v = page(405, "This address only answers GET, HEAD and POST.", "");
    v.headers.push_back("Allow: GET, HEAD, POST");
    return v;
  }
  if (!access->ok() || !access->prune(req.now)) return unavailable();
  if (!req.path_info.empty()) return page(404, kNotFound, "refused:not-found");
  Verdict v;
  v.ua_hash = sha256_hex(req.ua).substr(0, 16);
  v.address_visitor = "a:" + sha256_hex(req.client + "\n" + req.ua);
  if (!visitor_from_cookie(req, &v)) return unavailable();
  switch (find_shared_link(req.ssid, &v.link)) {
    case LinkLookup::kUnreadable: return unavailable();
    case LinkLookup::kNoSuchKey: return unknown_link(req, access);
    case LinkLookup::kFound: break;
  }
  if (expired(v.link.expire, req.now)) {
    return page(410, "This link expired on " + human_time(static_cast<time_t>(v.link.expire)) + ".",
                "refused:expired");
  }
  std::string set_cookie;
  if (!v.link.accesscode.empty()) {
    Verdict refusal;
    if (!code_passes(req, &v, access, &set_cookie, &refusal)) return refusal;
  }
  return target_answer(req, std::move(v), access, set_cookie);
}
