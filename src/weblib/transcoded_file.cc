// Transcoded variants as attachments, and the display-path resolution that
// delivery requests go through.
#include <sys/stat.h>

#include <cstring>
#include <string>
#include <vector>

#include "paths/display_path.h"
#include "platform/cgi.h"
#include "platform/fs.h"
#include "weblib/delivery_output.h"
#include "weblib/download_name.h"
#include "weblib/file_delivery.h"
#include "weblib/transcode.h"

namespace {

int g_path_kind = -1;

constexpr size_t kFileNameSize = 256;      // "/" and the name, at most 255 characters
constexpr size_t kIeNameSize = 1024;
constexpr size_t kDownloadNameSize = 257;  // at most 256 characters
constexpr size_t kCopyChunk = 4096;

// Copies the whole stream to standard output. True when all went out.
bool copy_to_output(FILE* f) {
  char buf[kCopyChunk];
  for (;;) {
    size_t got = fread(buf, 1, sizeof buf, f);
    if (got == 0) return ferror(f) == 0;
    if (!delivery_write(buf, got)) return false;
  }
}

}  // namespace

int sf_current_path_kind() { return g_path_kind; }

int sf_display_to_real_path(const char* display_path, char* out, size_t out_size) {
  if (out == nullptr || out_size == 0) return -1;
  out[0] = '\0';
  g_path_kind = kdx_check_file_ap_type(display_path);
  if (g_path_kind < 0) return -1;
  const char* user = cgi_env("REMOTE_USER");
  int remote = g_path_kind == kPathRemoteFolder ? 1 : 0;
  int kind = resolve_display_path(remote, display_path, out, out_size, user != nullptr ? user : "");
  if (kind < 0) {
    out[0] = '\0';
    return -1;
  }
  return kind;
}

int send_transcoded_file(const char* display_path, const char* variant_name) {
  if (display_path == nullptr) return -1;
  const size_t real_size = strlen(display_path) + kRealPathSlack;
  std::vector<char> real(real_size, '\0');
  if (sf_display_to_real_path(display_path, real.data(), real_size) < 0) return -1;

  // The file name keeps its "/"; the folder is what stands before it.
  const char* slash = strrchr(real.data(), '/');
  char file_name[kFileNameSize];
  snprintf(file_name, sizeof file_name, "%s", slash != nullptr ? slash : real.data());
  std::string dir = slash != nullptr ? std::string(static_cast<const char*>(real.data()), slash) : std::string();
  const char* name = file_name[0] == '/' ? file_name + 1 : file_name;

  TranscodeFlags flags;
  sf_transcode_availability(dir.c_str(), name, &flags);
  std::vector<char> variant_path(strlen(real.data()) + kVariantPathSlack, '\0');
  for (size_t i = 0; i < kTranscodeVariants; ++i) {
    const TranscodeVariant& v = transcode_variants()[i];
    if (flags.*(v.flag) && variant_name != nullptr && strcmp(v.name, variant_name) == 0) {
      transcode_variant_path(dir.c_str(), name, &v, variant_path.data(), variant_path.size());
      break;
    }
  }

  char download[kDownloadNameSize];
  if (is_ie_user_agent(cgi_env("HTTP_USER_AGENT"))) {
    char ie[kIeNameSize];
    CGI_Handle_IE_Filename(name, ie, sizeof ie);
    snprintf(download, sizeof download, "%.*s", static_cast<int>(sizeof download - 1), ie);
  } else {
    snprintf(download, sizeof download, "%s", name);
  }
  std::string escaped;
  url_escape_name(download, &escaped);

  if (cgi_env("HTTP_RANGE") != nullptr) {
    return send_file_with_ranges(variant_path.data(), 1) == 0 ? 1 : -1;
  }

  delivery_printf("Content-Disposition: attachment; filename=\"%s\"; filename*=utf-8''%s\r\n",
                  escaped.c_str(), escaped.c_str());
  struct stat st;
  bool readable = variant_path[0] != '\0' && fs_stat(variant_path.data(), &st) == 0 &&
                  S_ISREG(st.st_mode);
  if (readable) {
    delivery_printf("Content-Length: %llu\r\n", static_cast<unsigned long long>(st.st_size));
  } else {
    delivery_printf("Content-Length: 0\r\n");
  }
  delivery_printf("Content-Type: application/force-download\r\n\r\n");
  if (!readable) {
    delivery_flush();
    return -1;
  }
  SentFile file(sf_open_real_file(variant_path.data()));
  if (file.get() == nullptr) {
    delivery_flush();
    return -1;
  }
  bool ok = copy_to_output(file.get());
  return delivery_flush() && ok ? 1 : -1;
}
