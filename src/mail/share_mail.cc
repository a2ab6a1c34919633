#include "mail/share_mail.h"

#include <cstdarg>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <string>

#include "addressing/share_link_url.h"
#include "mail/mail_delivery.h"
#include "platform/io_buffer.h"
#include "platform/os.h"
#include "registry/fields.h"
#include "sharelink_db/event_rows.h"

namespace {

constexpr int kEventFieldExpire = 7;  // delete-by-field code of the expire column
constexpr int kSortBySharefile = 6;
constexpr size_t kUrlSize = 512;
constexpr size_t kIdSize = 41;  // ids are at most 40 characters

// The mail body: a text block of a size fixed up front. Every write lands at a
// given position and is cut to the room left there, as a bounded write into a
// zero-filled block of that size would be; only the written part is held.
class MailBody {
 public:
  explicit MailBody(size_t size) : size_(size) {}
  size_t length() const { return text_.size(); }
  const char* c_str() const { return text_.c_str(); }

  // Writes the formatted text at pos, replacing everything from pos on.
  void write_at(size_t pos, const char* format, ...) __attribute__((format(printf, 3, 4))) {
    if (pos >= size_ || pos > text_.size()) return;
    va_list ap;
    va_start(ap, format);
    va_list again;
    va_copy(again, ap);
    int need = vsnprintf(nullptr, 0, format, ap);
    va_end(ap);
    if (need >= 0) {
      size_t room = size_ - pos;
      size_t keep = static_cast<size_t>(need) < room ? static_cast<size_t>(need) : room - 1;
      text_.resize(pos + keep);
      vsnprintf(&text_[pos], keep + 1, format, again);
    }
    va_end(again);
  }

 private:
  size_t size_;
  std::string text_;
};

size_t text_length(const char* text) { return text != nullptr ? strlen(text) : 0; }

// The text after the last "/" of path (all of it without one).
const char* last_component(const char* path) {
  const char* slash = strrchr(path, '/');
  return slash != nullptr ? slash + 1 : path;
}

struct FreeDeleter {
  void operator()(char* p) const { free(p); }
};

int compose(RunContext* ctx) {
  int n = count_link_ids(ctx->link_ids);
  if (n < 1) return -20;
  if (ctx->link_count != n) ctx->link_count = n;

  const bool no_mail = ctx->recipients != nullptr && strcmp(ctx->recipients, "none@none") == 0;
  std::unique_ptr<MailBody> body;
  if (!no_mail) {
    const size_t count = static_cast<size_t>(ctx->link_count);
    const size_t size = count * (text_length(ctx->mail_line2) + 1 + text_length(ctx->mail_line1) + 1 + 32) +
                        count * 512 + text_length(ctx->message) + 1 + 199;
    body.reset(new MailBody(size));
    std::unique_ptr<char, FreeDeleter> message(newlines_to_br(ctx->message, ctx->message_len));
    if (!message) return -1;
    body->write_at(0, "%s<br>\n", message.get());
  }

  const char* line1 = ctx->mail_line1;
  const bool line1_set = line1 != nullptr && line1[0] != '\0' && strcmp(line1, "----") != 0;
  const char* line2 = ctx->mail_line2;
  const bool line2_set = line2 != nullptr && line2[0] != '\0';
  // Item i is the first item after item i-1: each is read from where the last
  // one ended, so a long list is walked once rather than once per item.
  const char* next_id = ctx->link_ids;
  const char* ids_end = next_id + strlen(next_id);

  std::unique_ptr<ShareLinkRecord> record(new ShareLinkRecord());
  char url[kUrlSize];
  bool no_link = false;
  int result = 0;
  for (int i = 1; i <= ctx->link_count; ++i) {
    memset(ctx->ssid, 0, sizeof ctx->ssid);
    while (next_id < ids_end && *next_id == ',') ++next_id;
    const char* id_end = static_cast<const char*>(memchr(next_id, ',', ids_end - next_id));
    if (id_end == nullptr) id_end = ids_end;
    if (get_field(ctx->ssid, kIdSize, 1, next_id, id_end - next_id, ",") != 1 ||
        ctx->ssid[0] == '\0') {
      return -1;
    }
    next_id = id_end;
    memset(url, 0, sizeof url);
    if (strcmp(ctx->ssid, "NULL") != 0) {
      memset(record.get(), 0, sizeof *record);
      int r = get_share_link(ctx->ssid, url, sizeof url, record.get());
      if (r < 0) return -2;
      result = r;
    } else {
      snprintf(url, sizeof url, "%s", "Share to You !");
      no_link = true;
      result = 1;
    }
    if (!body) continue;
    const size_t pos = body->length();

    const char* name = i == 1 ? record->link_name : last_component(record->sharefile);
    if (no_link || record->link_name[0] == '\0') {
      body->write_at(pos, "<a href=\"%s\"> </a><br>\n", url);
    } else if (ctx->link_count != 1) {
      body->write_at(pos, "%d. <a href=\"%s\">%s</a><br>\n", i, url, name);
    } else {
      body->write_at(pos, "<a href=\"%s\">%s</a><br>\n", url, name);
    }
    // Detail lines replace the link line: a pass leaves one line, the last.
    if (line1_set) body->write_at(pos, "%s<br>\n", line1);
    if (ctx->append_line2 != 0 && line2_set) body->write_at(pos, "%s<br>\n", line2);
  }

  if (no_mail) return result;
  int r = deliver_share_mail(ctx->subject, body->c_str(), "", ctx->sender, ctx);
  return r == -20 ? -20 : result;
}

}  // namespace

int count_link_ids(const char* text) {
  if (text == nullptr) return 0;
  std::string copy(text);
  int n = 0;
  char* save = nullptr;
  for (char* item = strtok_r(&copy[0], ",", &save); item != nullptr;
       item = strtok_r(nullptr, ",", &save)) {
    ++n;
  }
  return n;
}

char* newlines_to_br(const char* text, int length) {
  if (text == nullptr) return nullptr;
  HsIoGuard io;
  if (io.get() == nullptr) return nullptr;
  size_t n = length > 0 ? strnlen(text, static_cast<size_t>(length)) : 0;
  size_t start = 0;
  bool ok = true;
  for (size_t i = 0; i < n && ok; ++i) {
    if (text[i] != '\n') continue;
    ok = hs_io_write(io.get(), text + start, i - start) == 0 && hs_io_write(io.get(), "<br>", 4) == 0;
    start = i + 1;
  }
  if (ok && start < n) ok = hs_io_write(io.get(), text + start, n - start) == 0;
  if (!ok) return nullptr;
  size_t len = 0;
  const char* data = hs_io_read(io.get(), &len);
  char* copy = static_cast<char*>(malloc(len + 1));
  if (copy == nullptr) return nullptr;
  memcpy(copy, data, len);
  copy[len] = '\0';
  return copy;
}

int get_share_link(const char* id, char* url_out, size_t url_size, ShareLinkRecord* record_out) {
  if (id == nullptr || url_out == nullptr || url_size == 0) return -1;
  std::unique_ptr<ShareLinkRecord> filter(new ShareLinkRecord());
  sf_filter_reset(filter.get());
  int32_t now = static_cast<int32_t>(os.time(nullptr));
  filter->expire = now;
  int expired = sf_event_count_filter(filter.get());
  if (expired < 0) return -1;
  if (expired > 0) {
    sf_event_delete_by_field(kEventFieldExpire, &now);
    os.usleep(10 * 1000);
  }

  sf_filter_reset(filter.get());
  snprintf(filter->pkey, sizeof filter->pkey, "%s", id);
  if (sf_event_count_filter(filter.get()) < 1) return -1;

  std::unique_ptr<ShareLinkRecord> record(new ShareLinkRecord());
  int r = sf_event_select_filter(sf_fill_record_single, filter.get(), kSortBySharefile, 0, 1,
                                 record.get());
  if (r != 0) return r;
  // Removed by another process between the count and the select.
  if (record->pkey[0] == '\0') return -1;
  char port[11] = {0};
  compose_share_link(record->ssl, record->host, record->pkey, nullptr, url_out, url_size, port,
                     sizeof port);
  if (record_out != nullptr) *record_out = *record;
  return 0;
}

int compose_share_mail(RunContext* ctx) {
  if (ctx == nullptr) return -20;
  try {
    return compose(ctx);
  } catch (const std::bad_alloc&) {
    return -1;
  }
}
