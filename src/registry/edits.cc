#include "registry/edits.h"

#include <fcntl.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "diag/app_log.h"
#include "platform/fs.h"
#include "platform/os.h"
#include "registry/fields.h"
#include "registry/refresh.h"
#include "registry/registry_lock.h"
#include "registry/rewrite.h"
#include "registry/run_context.h"
#include "registry/share_url.h"
#include "registry/slots.h"

namespace {

// A tab, CR or LF in a value would split the registry's fields or lines.
bool has_break(const char* text) { return text != nullptr && strpbrk(text, "\t\r\n") != nullptr; }
bool has_break(const std::string& text) { return text.find_first_of("\t\r\n") != std::string::npos; }

// One item of mode 2's URL list, taken apart once per run.
struct UrlItem {
  bool readable = false;  // get_field found it and it fits in 255 bytes
  ShareUrlParts parts;
};

// Item i is what get_field(i + 1) reads, but the list is walked once: asking
// get_field for each item in turn rescans the list from its start, which
// made a list of 64K commas take tens of seconds.
std::vector<UrlItem> split_url_list(const RunContext& ctx, uint16_t count) {
  std::vector<UrlItem> items(count);
  if (ctx.edit_input == nullptr) return items;
  const char* p = ctx.edit_input;
  const char* end = p + strnlen(p, static_cast<size_t>(ctx.edit_input_len));
  char item[256];
  for (uint16_t i = 0; i < count; ++i) {
    while (p < end && *p == ',') ++p;
    if (p == end) break;  // no item left: the rest stay unreadable
    const char* start = p;
    const void* comma = memchr(p, ',', static_cast<size_t>(end - p));
    p = comma != nullptr ? static_cast<const char*>(comma) : end;
    if (get_field(item, sizeof item, 1, start, static_cast<size_t>(p - start), ",") != 1) continue;
    items[i].readable = true;
    split_share_url(item, &items[i].parts);
  }
  return items;
}

// Mode 2's ids by value, each with the index of its first item. Writing an
// id over the previous one replaces it whole when the earlier text is no
// longer than the new id: that holds for every write of a run when all items
// carry ids of one length and the id buffer's text is not already longer.
// Then a line goes exactly when its field 1 is one of the ids, and one lookup
// replaces the walk over the items. Otherwise (or with an unreadable item)
// there is no index and the walk replays the writes item by item.
using IdIndex = std::unordered_map<std::string_view, uint16_t>;

bool index_ids(const std::vector<UrlItem>& items, const RunContext& ctx, IdIndex* index) {
  if (items.empty()) return false;
  const size_t len = items[0].parts.ssid.size();
  if (len >= sizeof ctx.ssid || ctx.ssid[len] != '\0') return false;
  for (const UrlItem& item : items) {
    if (!item.readable || !item.parts.has_ssid || item.parts.ssid.size() != len ||
        has_break(item.parts.ssid)) {
      return false;
    }
  }
  index->reserve(items.size());
  for (uint16_t i = 0; i < items.size(); ++i) index->emplace(items[i].parts.ssid, i);
  return true;
}

// What writing items 1..k leaves at the start of RunContext's host and id,
// worked out once per k, so that a looked-up line's writes cost one copy per
// output and RunContext stays exactly as the walk would leave it.
class ItemWrites {
 public:
  explicit ItemWrites(const std::vector<UrlItem>& items) : items_(items) {}

  void apply(uint16_t k, RunContext& ctx) {
    auto it = done_.find(k);
    if (it == done_.end()) {
      Written w{};
      for (uint16_t i = 0; i < k; ++i) {
        apply_share_url(items_[i].parts, w.host, sizeof w.host, w.ssid, sizeof w.ssid);
      }
      it = done_.emplace(k, w).first;
    }
    const Written& w = it->second;
    // The writes never put a terminator, so their extent is the text's length.
    memcpy(ctx.url_host, w.host, strnlen(w.host, sizeof w.host));
    memcpy(ctx.ssid, w.ssid, strnlen(w.ssid, sizeof w.ssid));
  }

 private:
  struct Written {
    char host[sizeof RunContext::url_host];
    char ssid[sizeof RunContext::ssid];
  };
  const std::vector<UrlItem>& items_;
  std::unordered_map<uint16_t, Written> done_;
};

// One step of mode 4: field n of line becomes value. The work buffer's
// content replaces the line even when nothing was written (the line then
// becomes empty and is dropped); a result too long for the buffer leaves
// the line as it was.
void rewrite_field(char* line, size_t line_size, int n, const char* value) {
  char work[1024];
  memset(work, 0, sizeof work);
  if (replace_field(work, sizeof work, value, n, line, strlen(line), "\t", 1) == kFieldTooLong) {
    return;
  }
  snprintf(line, line_size, "%s", work);
}

}  // namespace

int delete_registry_links() {
  RunContext& ctx = g_run_context;
  RegistryLock lock(kShareRegistryPath);
  if (!lock.held()) return -1;
  RegistryReader registry;
  if (!registry.open(kShareRegistryPath)) return -1;

  char del[256];
  snprintf(del, sizeof del, "%s", registry_del_path(kShareRegistryPath).c_str());
  int fd = fs_open(del, O_RDONLY | O_CREAT, 0644);
  close_fd(&fd);
  RegistryRewrite out;
  if (!out.open(del, "ab")) return -1;

  uint16_t count = 0;
  count_fields(&count, ctx.edit_input, static_cast<size_t>(ctx.edit_input_len), ",", 1);
  const std::vector<UrlItem> items = split_url_list(ctx, count);
  IdIndex index;
  const bool indexed = index_ids(items, ctx, &index);
  ItemWrites writes(items);

  char line[10240];
  char id[256];
  while (registry.next(line, sizeof line)) {
    size_t len = strlen(line);
    if (len == 0) continue;
    if (get_field(id, sizeof id, 1, line, len, "\t") != 1) {
      out.discard();
      return -1;
    }
    if (count == 0) continue;
    if (indexed) {
      auto hit = index.find(std::string_view(id));
      writes.apply(hit == index.end() ? count : static_cast<uint16_t>(hit->second + 1), ctx);
      if (hit == index.end() && !out.append(line, len)) {
        out.discard();
        return -1;
      }
      continue;
    }
    // Each item is written over the parser's outputs in turn, exactly as
    // parsing it again would, so the id compared keeps any earlier tail.
    for (uint16_t i = 0; i < count; ++i) {
      if (!items[i].readable) {
        out.discard();
        return -1;
      }
      apply_share_url(items[i].parts, ctx.url_host, sizeof ctx.url_host, ctx.ssid, sizeof ctx.ssid);
      if (strcmp(id, ctx.ssid) == 0 && !has_break(ctx.ssid)) break;
      if (i + 1 == count && !out.append(line, len)) {
        out.discard();
        return -1;
      }
    }
  }
  if (registry.failed()) {
    out.discard();
    return -1;
  }
  registry.close();
  return out.commit(kShareRegistryPath, "delete_registry_links");
}

int rewrite_registry_link() {
  RunContext& ctx = g_run_context;
  // The host is the URL's, whatever the registry holds.
  ShareUrlParts url;
  split_share_url(ctx.edit_input, &url);
  if ((ctx.field9_value[0] != '\0' && has_break(ctx.field9_value)) || has_break(url.host) ||
      ctx.new_expire_breaks != 0) {
    APP_LOG("refused: a value, host or expiry holds a tab, CR or LF\n");
    return -1;
  }
  RegistryLock lock(kShareRegistryPath);
  if (!lock.held()) return -1;
  char tmp[512];
  snprintf(tmp, sizeof tmp, "%s", registry_temp_template(kShareRegistryPath).c_str());
  if (vexa_mktmpname(tmp) != 0) return -1;
  RegistryRewrite out;
  if (!out.open(tmp, "wb")) {
    out.discard();
    return -1;
  }
  RegistryReader registry;
  if (!registry.open(kShareRegistryPath)) {
    out.discard();
    return -1;
  }

  parse_share_url(ctx.edit_input, ctx.url_host, sizeof ctx.url_host, ctx.ssid, sizeof ctx.ssid);
  const bool https = ctx.edit_input != nullptr && strstr(ctx.edit_input, "https") != nullptr;
  char expire[32];
  snprintf(expire, sizeof expire, "%d", static_cast<int32_t>(ctx.new_expire));

  char line[1024];
  char id[256];
  while (registry.next(line, sizeof line)) {
    if (get_field(id, sizeof id, 1, line, strlen(line), "\t") != 1) {
      out.discard();
      return -1;
    }
    if (strcmp(id, ctx.ssid) == 0) {
      if (ctx.new_ssl == 1) rewrite_field(line, sizeof line, 4, https ? "1" : "0");
      if (ctx.field9_value[0] != '\0') rewrite_field(line, sizeof line, 9, ctx.field9_value);
      if (strcmp(ctx.url_host, "HOSTNAME") != 0) rewrite_field(line, sizeof line, 2, ctx.url_host);
      if (ctx.new_expire != 1) rewrite_field(line, sizeof line, 7, expire);
    }
    if (!out.append(line, strlen(line))) {
      out.discard();
      return -1;
    }
  }
  if (registry.failed()) {
    out.discard();
    return -1;
  }
  registry.close();
  return out.commit(kShareRegistryPath, "rewrite_registry_link");
}

int scan_registry() {
  RegistryReader registry;
  if (!registry.open(kShareRegistryPath)) return -1;
  char line[1024];
  while (registry.next(line, sizeof line)) {
  }
  return 1;
}
