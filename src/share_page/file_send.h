// A shared file's bytes as the answer: validators (strong ETag,
// Last-Modified), conditional requests (If-None-Match, If-Modified-Since,
// If-Range), one byte range, and the headers that keep a shared file from
// running as a page of this origin.
#ifndef SLT_SHARE_PAGE_FILE_SEND_H_
#define SLT_SHARE_PAGE_FILE_SEND_H_

#include <sys/stat.h>

#include <string>
#include <vector>

#include "weblib/range.h"

enum class FileAnswer { kNotModified, kWhole, kPartial, kRefused };

struct FilePlan {
  FileAnswer answer = FileAnswer::kWhole;
  unsigned long long start = 0;
  unsigned long long end = 0;  // inclusive
  std::string etag;            // with its quotes
};

// Decides the answer from the request headers (each null when absent).
FilePlan plan_file_answer(const struct stat& st, const char* if_none_match,
                          const char* if_modified_since, const char* if_range, const char* range);

// One byte range of share.cgi's answers (RFC 9110), from the text after
// "bytes=": "A-B", "A-" or the suffix "-N" (the last N bytes), digits only.
// kPartial fills start..end inside the file; a comma gives kMultiple and a
// range outside the file kUnsatisfiable (416); text of any other form is
// no range at all (kWhole: the whole file).
RangeOutcome parse_share_range(const char* spec, unsigned long long size, unsigned long long* start,
                               unsigned long long* end);

// The Content-Disposition value for name: inline only when asked and the
// type is a raster image, PDF, audio or video; otherwise attachment. Both
// names leave out hidden controls (platform/terminal_text.h: bidi, format,
// C0 and C1 controls); the quoted fallback keeps printable ASCII without
// quote and backslash.
std::string content_disposition(const std::string& name, bool want_inline);

// The Content-Type for name; types a browser would run (HTML, SVG, XML,
// scripts) become application/octet-stream.
std::string safe_content_type(const std::string& name);

// The hand-over folder named by the server's configuration (an appliance
// path ending in "/"), or "" when there is none that may be used: it must be
// absolute, clean, and "/etc/config/..." or inside an appliance ".@" folder,
// which share.cgi never serves.
std::string xsend_folder(const char* configured);

// Writes the answer of `plan` for the open file fd: headers, then (unless
// head) the body. With a hand-over folder a whole non-empty body goes to the
// web server instead (X-Sendfile): the path handed over is a hard link to fd
// in that private folder, removed once the server has opened it (or after a
// few seconds); where no such link can be made, or its path is not plain
// text, the body is sent as without one. `extra` header lines ("Name:
// value", already safe) go with a 200 or 206. True when everything was
// written.
bool send_shared_file(int fd, const struct stat& st, const std::string& name,
                      const FilePlan& plan, bool head, bool want_inline,
                      const std::string& hand_over_folder,
                      const std::vector<std::string>& extra = {});

#endif  // SLT_SHARE_PAGE_FILE_SEND_H_
