#include "weblib/cgi_front.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "crypto/form_token.h"
#include "crypto/secret.h"
#include "diag/app_log.h"
#include "paths/display_path.h"
#include "platform/fs.h"
#include "sharelink_db/store_files.h"
#include "platform/os.h"
#include "weblib/db_handler.h"
#include "weblib/file_delivery.h"
#include "weblib/http_date.h"
#include "weblib/json_reply.h"
#include "weblib/mime_table.h"
#include "weblib/same_site.h"
#include "weblib/transcode.h"

namespace {


void reply_status(int status) {
  print_json_header();
  print_status(status);
}

// The first value of `name` when it is not empty and holds no NUL: a decoded
// "%00" would otherwise cut the path that is checked short of the one asked.
const char* non_empty_param(const CgiRequest* request, const char* name) {
  for (const auto& param : request->params) {
    if (param.first != name) continue;
    const std::string& v = param.second;
    return !v.empty() && v.find('\0') == std::string::npos ? v.c_str() : nullptr;
  }
  return nullptr;
}

// Only requests the web server authenticated get in.
bool authenticated() {
  const char* user = cgi_env("REMOTE_USER");
  return user != nullptr && user[0] != '\0';
}

// Resolves the request's display path to a regular file. False when the
// path is missing, does not resolve or names something else.
// The store's own files (a hard link to them in a share included) are
// never delivered.
bool resolve_file(const char* display, std::vector<char>* real) {
  if (display == nullptr) return false;
  real->assign(strlen(display) + kRealPathSlack, '\0');
  if (sf_display_to_real_path(display, real->data(), real->size()) != kKindFile) return false;
  struct stat st;
  return fs_stat(real->data(), &st) == 0 && !sf_store_files().contains(st);
}

void handle_download(const CgiRequest* request) {
  std::vector<char> real;
  if (!resolve_file(non_empty_param(request, "path"), &real)) {
    reply_status(kCgiStatusMissing);
    return;
  }
  unsigned long long before = delivery_bytes_written();
  int r = send_file_with_ranges(real.data(), 0);
  if (r < 0 && delivery_bytes_written() == before) {
    reply_status(r == -4 ? kCgiStatusFailed : kCgiStatusMissing);
  }
}

// True when `path` below `dir` is a regular file reached without any
// symbolic link and is none of the store's files: a variant planted as a
// link must not lead out of the video's folder.
bool plain_file_below(const std::string& dir, const std::string& path) {
  if (path.compare(0, dir.size() + 1, dir + "/") != 0) return false;
  struct stat st;
  for (size_t at = path.find('/', dir.size() + 1);; at = path.find('/', at + 1)) {
    const std::string part = at == std::string::npos ? path : path.substr(0, at);
    if (fs_lstat(part.c_str(), &st) != 0 || S_ISLNK(st.st_mode)) return false;
    if (at == std::string::npos) break;
  }
  return S_ISREG(st.st_mode) && !sf_store_files().contains(st);
}

// Whether the named variant of the video at real_path exists as a plain file.
bool variant_available(const char* real_path, const TranscodeVariant* variant) {
  const char* slash = strrchr(real_path, '/');
  if (slash == nullptr) return false;
  std::string dir(real_path, slash);
  TranscodeFlags flags;
  if (sf_transcode_availability(dir.c_str(), slash + 1, &flags) != 0 || !(flags.*(variant->flag))) {
    return false;
  }
  std::vector<char> path(strlen(real_path) + kVariantPathSlack, '\0');
  return transcode_variant_path(dir.c_str(), slash + 1, variant, path.data(), path.size()) &&
         plain_file_below(dir, path.data());
}

void handle_transcode(const CgiRequest* request) {
  const char* display = non_empty_param(request, "path");
  const char* name = non_empty_param(request, "variant");
  const TranscodeVariant* variant = find_transcode_variant(name);
  std::vector<char> real;
  // A missing variant would go out as an empty attachment; refuse it here.
  if (variant == nullptr || !resolve_file(display, &real) ||
      !variant_available(real.data(), variant)) {
    reply_status(kCgiStatusMissing);
    return;
  }
  unsigned long long before = delivery_bytes_written();
  if (send_transcoded_file(display, name) < 0 && delivery_bytes_written() == before) {
    reply_status(kCgiStatusMissing);
  }
}

void refuse(const char* status, int json_status) {
  printf("Status: %s\r\n", status);
  reply_status(json_status);
}

// The appliance secret; on failure the request is refused with 503 and the
// operator told, never answered without it.
bool secret_or_refuse(std::string* secret) {
  if (appliance_secret(secret)) return true;
  APP_LOG("the appliance secret cannot be read or made: form tokens refused\n");
  printf("Status: 503 Service Unavailable\r\nRetry-After: 60\r\n");
  reply_status(kCgiStatusFailed);
  return false;
}

// Same site as the request's own host, or refused with 403.
bool same_site_or_refuse() {
  if (same_site_cgi_request()) return true;
  refuse("403 Forbidden", kCgiStatusNotAdmin);
  return false;
}

void handle_form_token(const CgiRequest*) {
  std::string secret;
  if (!same_site_or_refuse() || !secret_or_refuse(&secret)) return;
  printf("Cache-Control: no-store\r\n");
  print_json_header();
  print_status_result(kCgiStatusDone, make_form_token(secret, cgi_env("REMOTE_USER"), os.time(nullptr)).c_str());
}

void handle_mime_table(const CgiRequest*) {
  print_json_header();
  print_mime_table();
}

void handle_set_share_link_db(const CgiRequest* request) {
  print_json_header();
  sf_set_db_handler(request);
}

// A function that changes state runs only on a POST from the appliance's
// own pages with the user's form token in the body. Anything else is
// answered here (405 or 403, or 503 without the secret) and changes nothing.
bool may_change_state(const CgiRequest* request) {
  const char* method = cgi_env("REQUEST_METHOD");
  if (method == nullptr || strcmp(method, "POST") != 0) {
    printf("Status: 405 Method Not Allowed\r\nAllow: POST\r\n");
    reply_status(kCgiStatusMissing);
    return false;
  }
  if (!same_site_or_refuse()) return false;
  // The token counts only from the body: in the address it would land in
  // logs and Referer headers.
  CgiRequest in_address;
  const char* query = cgi_env("QUERY_STRING");
  if (query != nullptr) cgi_parse_params(query, strlen(query), &in_address);
  const char* token = CGI_Find_Parameter(request, kFormTokenParam);
  if (token == nullptr || CGI_Find_Parameter(&in_address, kFormTokenParam) != nullptr) {
    refuse("403 Forbidden", kCgiStatusNotAdmin);
    return false;
  }
  std::string secret;
  if (!secret_or_refuse(&secret)) return false;
  if (!form_token_valid(secret, cgi_env("REMOTE_USER"), token, os.time(nullptr))) {
    refuse("403 Forbidden", kCgiStatusNotAdmin);
    return false;
  }
  return true;
}

struct FrontFunction {
  const char* name;
  bool changes_state;  // POST only, same site, form token (may_change_state)
  void (*handle)(const CgiRequest*);
};

const FrontFunction kFunctions[] = {
    {"mime_table", false, handle_mime_table},
    {"form_token", false, handle_form_token},
    {"set_share_link_db", true, handle_set_share_link_db},
    {"download", false, handle_download},
    {"transcode", false, handle_transcode},
};

const FrontFunction* find_function(const char* name) {
  for (const FrontFunction& f : kFunctions) {
    if (strcmp(f.name, name) == 0) return &f;
  }
  return nullptr;
}

}  // namespace

bool translate_if_modified_since() {
  const char* value = cgi_env("HTTP_IF_MODIFIED_SINCE");
  time_t when = 0;
  if (value == nullptr || !parse_http_date(value, &when)) {
    unsetenv("IF_MODIFIED_SINCE");
    return false;
  }
  char seconds[32];
  snprintf(seconds, sizeof seconds, "%llu", static_cast<unsigned long long>(when));
  return setenv("IF_MODIFIED_SINCE", seconds, 1) == 0;
}

int handle_cgi_request(const CgiRequest* request) {
  const char* func = CGI_Find_Parameter(request, "func");
  const FrontFunction* f = find_function(func != nullptr ? func : "");
  if (!authenticated()) {
    refuse("403 Forbidden", kCgiStatusNotAdmin);
  } else if (f == nullptr) {
    reply_status(kCgiStatusMissing);
  } else if (f->changes_state) {
    if (may_change_state(request)) f->handle(request);
  } else {
    f->handle(request);
  }
  fflush(stdout);
  return 0;
}

int sharelink_cgi_main() {
  // A client that goes away must end the copy with a failed write, not a signal.
  signal(SIGPIPE, SIG_IGN);
  CgiRequest request = cgi_read_request();
  translate_if_modified_since();
  return handle_cgi_request(&request);
}
