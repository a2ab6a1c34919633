#include "listing/xml_row.h"

#include <libgen.h>

#include <cstdio>
#include <cstring>
#include <string>

#include "addressing/share_link_view.h"
#include "platform/exec.h"
#include "platform/io_buffer.h"

namespace {

constexpr size_t kDisplayPathSize = 4096;
constexpr size_t kFolderSourceSize = 1024;

const char* or_dashes(const char* text) { return text ? text : "---"; }

}  // namespace

void listing_display_path(const char* path, const char* link_name, char* out, size_t size) {
  if (size == 0) return;
  out[0] = '\0';
  if (path == nullptr) {
    snprintf(out, size, "%s", "---");
    return;
  }
  if (strncmp(path, "tfx://", 6) != 0) {
    snprintf(out, size, "%s", path);
    return;
  }
  HsIoGuard io;
  if (io.get() != nullptr) {
    const char* argv[] = {"/sbin/mirrasrv_tool", "-8", path, nullptr};
    _hs_secure_execv("/sbin/mirrasrv_tool", argv, io.get());
    size_t len = 0;
    const char* text = hs_io_read(io.get(), &len);
    if (len != 0 && strncmp(text, "/share", 6) == 0) snprintf(out, size, "%s", text);
  }
  if (out[0] == '\0') snprintf(out, size, "%s/%s", "Mirra", link_name ? link_name : "(null)");
}

void listing_folder_of(const char* display_path, char* out, size_t size) {
  char source[kFolderSourceSize];
  const char* hidden = strstr(display_path, ".Mirra");
  if (hidden != nullptr) {
    snprintf(source, sizeof source, "%s%s", "Mirra", hidden + strlen(".Mirra"));
  } else {
    snprintf(source, sizeof source, "%s", display_path);
  }
  snprintf(out, size, "%s", dirname(source));
}

void listing_basename(const char* text, char* out, size_t size) {
  std::string copy(text);
  snprintf(out, size, "%s", __xpg_basename(&copy[0]));
}

void print_share_link_row(const ShareLinkView* v) {
  char display[kDisplayPathSize];
  char folder[kFolderSourceSize];
  char name[kDisplayPathSize];
  display[0] = '\0';
  puts("\t\t<log>");
  printf("\t\t\t<ssid><![CDATA[%s]]></ssid>\n", or_dashes(v->ssid));
  listing_display_path(v->path, v->link_name, display, sizeof display);
  listing_folder_of(display, folder, sizeof folder);
  printf("\t\t\t<path><![CDATA[%s]]></path>\n", folder);
  listing_basename(display, name, sizeof name);
  printf("\t\t\t<filename><![CDATA[%s]]></filename>\n", name);
  printf("\t\t\t<download_link><![CDATA[%s]]></download_link>\n", or_dashes(v->download_link));
  if (v->link_name != nullptr) {
    std::string link_name_copy(v->link_name);
    printf("\t\t\t<link_name><![CDATA[%s]]></link_name>\n", __xpg_basename(&link_name_copy[0]));
  } else {
    printf("\t\t\t<link_name><![CDATA[%s]]></link_name>\n", "---");
  }
  printf("\t\t\t<start_time><![CDATA[%ld]]></start_time>\n", static_cast<long>(v->createtic));
  printf("\t\t\t<expire_time><![CDATA[%d]]></expire_time>\n", v->expire);
  printf("\t\t\t<addressee><![CDATA[%s]]></addressee>\n", or_dashes(v->useraddr));
  if (v->creator == nullptr) {
    printf("\t\t\t<creator><![CDATA[%s]]></creator>\n", "Unknown");
  } else {
    char prefix[16];
    snprintf(prefix, sizeof prefix, "%s:", "Mirra");
    const char* after = strstr(v->creator, prefix);
    printf("\t\t\t<creator><![CDATA[%s]]></creator>\n", after ? after + strlen(prefix) : v->creator);
  }
  printf("\t\t\t<download_count><![CDATA[%d]]></download_count>\n", v->download_count);
  puts("\t\t</log>");
}
