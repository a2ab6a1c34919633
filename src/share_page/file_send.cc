#include "share_page/file_send.h"

#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "crypto/digest.h"
#include "paths/display_path.h"
#include "platform/fs.h"
#include "platform/fs_beneath.h"
#include "platform/os.h"
#include "platform/signals.h"
#include "platform/terminal_text.h"
#include "sharelink_db/store.h"
#include "share_page/page.h"
#include "weblib/delivery_output.h"
#include "weblib/http_date.h"
#include "weblib/mime_table.h"
#include "weblib/range.h"

namespace {

bool etag_listed(const char* list, const std::string& etag) {
  std::string s(list);
  size_t pos = 0;
  while (pos < s.size()) {
    size_t comma = s.find(',', pos);
    if (comma == std::string::npos) comma = s.size();
    std::string item = s.substr(pos, comma - pos);
    size_t a = item.find_first_not_of(" \t");
    size_t b = item.find_last_not_of(" \t");
    item = a == std::string::npos ? "" : item.substr(a, b - a + 1);
    if (item.compare(0, 2, "W/") == 0) item.erase(0, 2);
    if (item == "*" || item == etag) return true;
    pos = comma + 1;
  }
  return false;
}

std::string lower(std::string s) {
  for (char& c : s) c = static_cast<char>(tolower(static_cast<unsigned char>(c)));
  return s;
}

// X-Sendfile hands the server a path, which it opens by name and by its own
// rules: it percent-decodes it, folds "//", "." and ".." as text and follows
// symbolic links. So it gets a name share.cgi made and nobody else can
// change: a hard link to the very file the gate opened, in a private folder
// beside the store, under a name of digits, letters and "-", whose text the
// server takes as it is. The link lives until the server has opened it.
constexpr int kHandOverWaitMs = 5000;
constexpr long long kLeftoverAge = 60;  // seconds: a run killed before its clean-up

// Bytes the server's decoding and folding leave alone (the canonical form
// rules out "//", "." and "..").
bool plain_path(const std::string& p) {
  for (unsigned char c : p) {
    if (!isalnum(c) && c != '/' && c != '.' && c != '_' && c != '-' && c != '@') return false;
  }
  return !p.empty();
}

// "<unix time>-<32 hex digits>": the time of the link, for the sweep.
bool hand_over_time(const std::string& name, long long* when) {
  const size_t dash = name.find('-');
  if (dash == 0 || dash == std::string::npos || dash > 19 || name.size() != dash + 33) return false;
  for (size_t i = 0; i < name.size(); ++i) {
    if (i < dash ? !isdigit(static_cast<unsigned char>(name[i]))
                 : i > dash && !isxdigit(static_cast<unsigned char>(name[i]))) {
      return false;
    }
  }
  *when = atoll(name.c_str());
  return true;
}

// One hand-over, from before its link exists until it is gone again; the
// server's SIGTERM, which comes as soon as it has the file, waits for that.
class HandOver {
 public:
  HandOver(int fd, const std::string& appliance_folder, time_t now) {
    std::string folder;
    dir_.reset(fs_open_private_dir(appliance_folder.c_str(), &folder));
    if (dir_.get() < 0 || !plain_path(folder)) return;
    for (const std::string& n : fs_list_names(dir_.get())) {
      long long t = 0;
      if (hand_over_time(n, &t) && (now - t > kLeftoverAge || t - now > kLeftoverAge)) {
        fs_unlink_at(dir_.get(), n.c_str());
      }
    }
    watch_.reset(fs_watch_opens(dir_.get()));
    if (watch_.get() < 0) return;
    for (int attempt = 0; attempt < 3; ++attempt) {
      unsigned char r[16];
      if (os.getrandom(r, sizeof r, 0) != static_cast<ssize_t>(sizeof r)) return;
      std::string name = std::to_string(static_cast<long long>(now)) + "-";
      for (unsigned char c : r) name += "0123456789abcdef"[c >> 4], name += "0123456789abcdef"[c & 15];
      if (fs_link_open_file(fd, dir_.get(), name.c_str()) == 0) {
        name_ = name;
        path_ = folder + "/" + name;
        return;
      }
      if (errno != EEXIST) return;
    }
  }
  ~HandOver() { drop(); }
  HandOver(const HandOver&) = delete;
  HandOver& operator=(const HandOver&) = delete;

  // The file-system path to hand over, or "" when no link could be made.
  const std::string& path() const { return path_; }

  // After the header went out: waits until the server has opened the link,
  // a few seconds at most, and removes it.
  void finish() {
    if (!fs_wait_opened(watch_.get(), name_.c_str(), kHandOverWaitMs)) {
      fprintf(stderr, "share.cgi: the web server did not open %s within %d s; is its folder in "
                      "cgi.x-sendfile-docroot?\n", path_.c_str(), kHandOverWaitMs / 1000);
    }
    drop();
  }

 private:
  void drop() {
    if (!name_.empty()) fs_unlink_at(dir_.get(), name_.c_str());
    name_.clear();
  }

  HeldSignals held_;  // first in, last out
  UniqueFd dir_, watch_;
  std::string name_, path_;
};

}  // namespace

std::string xsend_folder(const char* configured) {
  if (configured == nullptr) return std::string();
  const std::string f = configured;
  if (f.size() < 2 || f[0] != '/' || f.back() != '/') return std::string();
  const std::string dir = f.substr(0, f.size() - 1);
  if (!display_path_is_clean(dir.c_str())) return std::string();
  if (f.compare(0, 12, "/etc/config/") != 0 && f.find("/.@") == std::string::npos) return std::string();
  return dir;
}

FilePlan plan_file_answer(const struct stat& st, const char* if_none_match,
                          const char* if_modified_since, const char* if_range, const char* range) {
  FilePlan p;
  p.etag = "\"" +
           sha256_hex(std::to_string(st.st_dev) + ":" + std::to_string(st.st_ino) + ":" +
                      std::to_string(st.st_size) + ":" + std::to_string(st.st_mtim.tv_sec) + ":" +
                      std::to_string(st.st_mtim.tv_nsec))
               .substr(0, 24) +
           "\"";
  const unsigned long long size = static_cast<unsigned long long>(st.st_size);
  p.end = size - 1;
  if (if_none_match != nullptr) {
    if (etag_listed(if_none_match, p.etag)) p.answer = FileAnswer::kNotModified;
    if (p.answer == FileAnswer::kNotModified) return p;
  } else if (if_modified_since != nullptr) {
    time_t since = 0;
    if (parse_http_date(if_modified_since, &since) && st.st_mtime <= since) {
      p.answer = FileAnswer::kNotModified;
      return p;
    }
  }
  if (range == nullptr || strncmp(range, "bytes=", 6) != 0) return p;
  if (if_range != nullptr) {
    time_t when = 0;
    bool same = if_range[0] == '"' ? p.etag == if_range
                                   : parse_http_date(if_range, &when) && when == st.st_mtime;
    if (!same) return p;  // changed since: the whole file
  }
  switch (parse_share_range(range + 6, size, &p.start, &p.end)) {
    case RangeOutcome::kWhole: break;
    case RangeOutcome::kPartial: p.answer = FileAnswer::kPartial; break;
    default: p.answer = FileAnswer::kRefused; break;
  }
  return p;
}

RangeOutcome parse_share_range(const char* spec, unsigned long long size, unsigned long long* start,
                               unsigned long long* end) {
  *start = 0;
  *end = size - 1;
  if (strchr(spec, ',') != nullptr) return RangeOutcome::kMultiple;
  // Digits only: no sign, no blank, no second dash.
  auto number = [](const char** p, unsigned long long* out) {
    const char* q = *p;
    unsigned long long v = 0;
    for (; *q >= '0' && *q <= '9'; ++q) v = v > (~0ULL - 9) / 10 ? ~0ULL : v * 10 + (*q - '0');
    if (q == *p) return false;
    *out = v;
    *p = q;
    return true;
  };
  const char* p = spec;
  unsigned long long first = 0, last = 0;
  if (*p == '-') {  // the last N bytes
    ++p;
    if (!number(&p, &last) || *p != '\0') return RangeOutcome::kWhole;
    if (last == 0 || size == 0) return RangeOutcome::kUnsatisfiable;
    *start = last >= size ? 0 : size - last;
    return RangeOutcome::kPartial;
  }
  if (!number(&p, &first) || *p++ != '-') return RangeOutcome::kWhole;
  const bool open_end = *p == '\0';
  if (!open_end && (!number(&p, &last) || *p != '\0')) return RangeOutcome::kWhole;
  if (size == 0 || first >= size || (!open_end && last < first)) return RangeOutcome::kUnsatisfiable;
  *start = first;
  *end = open_end || last >= size ? size - 1 : last;
  return RangeOutcome::kPartial;
}

std::string safe_content_type(const std::string& name) {
  char type[kMimeTypeSize] = "";
  mime_type_of(name.c_str(), type);
  std::string t = lower(type);
  if (t.empty() || t.find("html") != std::string::npos || t.find("xml") != std::string::npos ||
      t.find("svg") != std::string::npos || t.find("script") != std::string::npos) {
    return "application/octet-stream";
  }
  return t;
}

std::string content_disposition(const std::string& stored_name, bool want_inline) {
  // Bidi and other hidden controls would make the saved name read otherwise
  // than it is ("photo<U+202E>gpj.exe" shows as "photoexe.jpg").
  const std::string name = without_hidden_controls(stored_name);
  bool is_inline = false;
  if (want_inline) {
    std::string t = safe_content_type(name);
    int cls = file_class_of(name.c_str());
    is_inline = t != "application/octet-stream" &&
                (cls == kClassImage || cls == kClassPdf || cls == kClassAudio || cls == kClassVideo);
  }
  std::string ascii;
  for (unsigned char c : name) {
    if (c < 0x20 || c == 0x7f || c == '"' || c == '\\') continue;
    ascii += c < 0x80 ? static_cast<char>(c) : '_';
  }
  if (ascii.empty()) ascii = "download";
  return std::string(is_inline ? "inline" : "attachment") + "; filename=\"" + ascii +
         "\"; filename*=UTF-8''" + url_encode(name);
}

bool send_shared_file(int fd, const struct stat& st, const std::string& name,
                      const FilePlan& plan, bool head, bool want_inline,
                      const std::string& hand_over_folder,
                      const std::vector<std::string>& extra) {
  const unsigned long long size = static_cast<unsigned long long>(st.st_size);
  std::string h;
  char date[kHttpDateSize];
  format_http_date(st.st_mtime, date, sizeof date);
  if (plan.answer == FileAnswer::kNotModified) {
    h = "Status: 304 Not Modified\r\n" + security_headers(false) + "ETag: " + plan.etag +
        "\r\nLast-Modified: " + date + "\r\nCache-Control: private, no-cache\r\n\r\n";
    return delivery_write(h.data(), h.size()) && delivery_flush();
  }
  if (plan.answer == FileAnswer::kRefused) {
    h = "Status: 416 Range Not Satisfiable\r\n" + security_headers(false) +
        "Content-Range: bytes */" + std::to_string(size) + "\r\nContent-Length: 0\r\n" +
        "Cache-Control: no-store\r\n\r\n";
    return delivery_write(h.data(), h.size()) && delivery_flush();
  }
  const bool partial = plan.answer == FileAnswer::kPartial;
  const unsigned long long start = partial ? plan.start : 0;
  const unsigned long long length = size == 0 ? 0 : (partial ? plan.end : size - 1) - start + 1;
  h = partial ? "Status: 206 Partial Content\r\n" : "Status: 200 OK\r\n";
  h += security_headers(false);
  h += "Content-Type: " + safe_content_type(name) + "\r\n";
  h += "Content-Disposition: " + content_disposition(name, want_inline) + "\r\n";
  h += "Accept-Ranges: bytes\r\nETag: " + plan.etag + "\r\nLast-Modified: " + date +
       "\r\nCache-Control: private, no-cache\r\n";
  if (partial) {
    h += "Content-Range: bytes " + std::to_string(start) + "-" + std::to_string(plan.end) + "/" +
         std::to_string(size) + "\r\n";
  }
  for (const std::string& line : extra) h += line + "\r\n";
  if (!hand_over_folder.empty() && !partial && !head && size > 0) {  // no empty file is opened
    HandOver hand_over(fd, hand_over_folder, os.time(nullptr));
    if (!hand_over.path().empty()) {
      h += "X-Sendfile: " + hand_over.path() + "\r\n\r\n";
      if (!delivery_write(h.data(), h.size()) || !delivery_flush()) return false;
      hand_over.finish();
      return true;
    }
  }
  h += "Content-Length: " + std::to_string(length) + "\r\n\r\n";
  if (!delivery_write(h.data(), h.size())) return false;
  if (head) return delivery_flush();
  if (!delivery_flush()) return false;
  unsigned long long pos = start;
  unsigned long long left = length;
  // The kernel copies the body to the server's pipe without passing it
  // through this process; where it cannot (stdout of a kind sendfile does
  // not take), the loop below copies it.
  fs_widen_pipe(1, 1 << 20);
  uint64_t sent = 0;
  const FsSend r = fs_send_file(1, fd, pos, left, &sent);
  if (r == FsSend::kFailed) return false;
  if (r == FsSend::kShort) return true;  // the file shrank: the client sees a short body
  pos += sent;
  left -= sent;
  std::vector<char> buf(left > 0 ? 64 * 1024 : 0);
  while (left > 0) {
    size_t want = left < buf.size() ? static_cast<size_t>(left) : buf.size();
    ssize_t got = pread(fd, buf.data(), want, static_cast<off_t>(pos));
    if (got <= 0) break;  // the file shrank: the client sees a short body
    if (!delivery_write(buf.data(), static_cast<size_t>(got))) return false;
    pos += static_cast<unsigned long long>(got);
    left -= static_cast<unsigned long long>(got);
  }
  return delivery_flush();
}
