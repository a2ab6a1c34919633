#include "weblib/cgi_front.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "paths/display_path.h"
#include "weblib/db_handler.h"
#include "weblib/file_delivery.h"
#include "weblib/http_date.h"
#include "weblib/json_reply.h"
#include "weblib/mime_table.h"
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
bool resolve_file(const char* display, std::vector<char>* real) {
  if (display == nullptr) return false;
  real->assign(strlen(display) + kRealPathSlack, '\0');
  return sf_display_to_real_path(display, real->data(), real->size()) == kKindFile;
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

// Whether the named variant of the video at real_path exists.
bool variant_available(const char* real_path, const TranscodeVariant* variant) {
  const char* slash = strrchr(real_path, '/');
  if (slash == nullptr) return false;
  std::string dir(real_path, slash);
  TranscodeFlags flags;
  if (sf_transcode_availability(dir.c_str(), slash + 1, &flags) != 0) return false;
  return flags.*(variant->flag);
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
  if (func == nullptr) func = "";
  if (!authenticated()) {
    printf("Status: 403 Forbidden\r\n");
    print_json_header();
    print_status(kCgiStatusNotAdmin);
  } else if (strcmp(func, "mime_table") == 0) {
    print_json_header();
    print_mime_table();
  } else if (strcmp(func, "set_share_link_db") == 0) {
    print_json_header();
    sf_set_db_handler(request);
  } else if (strcmp(func, "download") == 0) {
    handle_download(request);
  } else if (strcmp(func, "transcode") == 0) {
    handle_transcode(request);
  } else {
    reply_status(kCgiStatusMissing);
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
