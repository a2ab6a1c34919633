#include "addressing/share_link_view.h"

#include <sys/stat.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>

#include "addressing/share_link_url.h"
#include "paths/display_path.h"
#include "platform/fs.h"
#include "sharelink_db/fid_rows.h"

namespace {

constexpr size_t kViewPortSize = 10;
constexpr size_t kRealPathSize = 4096;

// Record texts are copied only up to their buffer's end, terminated or not.
template <size_t N>
std::string field(const char (&text)[N]) {
  return std::string(text, strnlen(text, N));
}

template <size_t N>
char* copy_field(const char (&text)[N]) {
  return strndup(text, N);
}

void release(char*& text) {
  free(text);
  text = nullptr;
}

void fill_file_facts(ShareLinkView* v, const std::string& sharefile, const std::string& creator,
                     const std::string& ssid) {
  char real[kRealPathSize];
  int kind = resolve_display_path(0, sharefile.c_str(), real, sizeof real, creator.c_str());
  if (kind < 0) return;
  struct stat st;
  v->filesize = fs_lstat(real, &st) == 0 ? static_cast<int64_t>(st.st_size) : 0;
  ShareLinkFidRecord filter;
  memset(&filter, 0, sizeof filter);
  snprintf(filter.pkey, sizeof filter.pkey, "%s", ssid.c_str());
  if (sf_fid_count_filter(&filter) >= 2) {
    v->multi_file = 1;
  } else if (kind == kKindDirectory) {
    v->is_dir = 1;
  }
}

void build_view(ShareLinkView* v, const ShareLinkRecord& r, char* port) {
  std::string ssid = field(r.pkey);
  std::string host = field(r.host);
  std::string sharefile = field(r.sharefile);
  std::string creator = field(r.creator);

  v->ssid = copy_field(r.pkey);
  v->ssl = r.ssl;
  v->host = copy_field(r.host);
  v->download_link = static_cast<char*>(calloc(kDownloadLinkSize, 1));
  compose_share_link(r.ssl, host.c_str(), ssid.c_str(), nullptr, v->download_link,
                     v->download_link != nullptr ? kDownloadLinkSize : 0, port, kViewPortSize);
  v->path = copy_field(r.sharefile);
  v->useraddr = copy_field(r.useraddr);
  if (!creator.empty()) fill_file_facts(v, sharefile, creator, ssid);

  v->expire = r.expire;
  v->creator = copy_field(r.creator);
  v->accesscode = copy_field(r.accesscode);
  v->download_count = r.download_count;
  v->download_limit = r.download_limit;
  v->misc = copy_field(r.misc);
  v->title = copy_field(r.title);
  v->description = copy_field(r.description);
  v->type = r.type;
  v->trailing_a = r.trailing_a;
  v->trailing_b = r.trailing_b;

  std::string name = field(r.link_name);
  if (!name.empty() && name != "----") {
    v->link_name = strdup(name.c_str());
  } else {
    size_t slash = sharefile.rfind('/');
    v->link_name = strdup(slash == std::string::npos ? sharefile.c_str()
                                                     : sharefile.c_str() + slash + 1);
  }
}

}  // namespace

int build_share_link_views(ShareLinkView* views, int count, const ShareLinkRecord* records) {
  if (count < 1 || views == nullptr || records == nullptr) return 0;
  char port[kViewPortSize];
  memset(port, 0, sizeof port);
  int skipped = 0;
  for (int i = 0; i < count; ++i) {
    views[i].createtic = records[i].createtic;
    if (records[i].pkey[0] == '\0') {
      ++skipped;
      continue;
    }
    try {
      build_view(&views[i], records[i], port);
    } catch (const std::bad_alloc&) {
      // What could not be copied stays null.
    }
  }
  return skipped;
}

void free_share_link_views(int count, ShareLinkView* views) {
  if (views == nullptr) return;
  for (int i = count - 1; i >= 0; --i) {
    ShareLinkView& v = views[i];
    release(v.ssid);
    release(v.host);
    release(v.path);
    release(v.accesscode);
    release(v.download_link);
    release(v.useraddr);
    release(v.creator);
    release(v.misc);
    release(v.title);
    release(v.description);
    release(v.link_name);
  }
  free(views);
}
