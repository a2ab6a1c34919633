#include "weblib/file_delivery.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "platform/cgi.h"
#include "platform/fs.h"
#include "platform/os.h"
#include "weblib/delivery_output.h"
#include "weblib/download_name.h"
#include "weblib/http_date.h"
#include "weblib/mime_table.h"
#include "weblib/range.h"

namespace {

constexpr time_t kCacheSeconds = 604800;
constexpr size_t kChunk = 8192;

// The variant file suffixes that mark a transcoded file as MP4 video.
const char* const kVideoMarks[] = {".mobile240p", ".mobile360p", ".mobile480p", ".ipad720p",
                                   ".mobile720p", ".mobile1080p", ".original"};

void content_type_of(const char* path, const char* base, int transcoded, char* type) {
  type[0] = '\0';
  if (transcoded == 1) {
    for (const char* mark : kVideoMarks) {
      if (strstr(path, mark) != nullptr) {
        snprintf(type, kMimeTypeSize, "%s", "video/mp4");
        return;
      }
    }
    return;
  }
  mime_type_of(base, type);
  if (strcmp(type, "text/html") == 0 || strcmp(type, "text/xml") == 0) {
    snprintf(type, kMimeTypeSize, "%s", "text/plain");
  } else if (type[0] == '\0') {
    snprintf(type, kMimeTypeSize, "%s", "application/force-download");
  }
}

// IF_MODIFIED_SINCE holds seconds; only an exact match of mtime counts.
bool not_modified_since(const char* value, time_t mtime) {
  unsigned long long seconds = 0;
  int used = read_decimal_ull(value, &seconds);
  if (used == 0 || value[used] != '\0' || value[0] < '0' || value[0] > '9') return false;
  return seconds == static_cast<unsigned long long>(mtime);
}

}  // namespace

FILE* sf_open_real_file(const char* real_path) {
  if (real_path == nullptr || real_path[0] == '\0') {
    errno = ENOENT;
    return nullptr;
  }
  return fs_fopen(real_path, "rb");
}

void send_not_modified() {
  delivery_printf("Status: 304\r\n");
  delivery_printf("Content-Length: 0\r\n\r\n");
}

void send_cache_headers(time_t mtime) {
  char date[kHttpDateSize];
  delivery_printf("Cache-Control: private, max-age=604800, pre-check=604800\n");
  delivery_printf("Pragma: private\n");
  format_http_date(os.time(nullptr) + kCacheSeconds, date, sizeof date);
  delivery_printf("Expires: %s\n", date);
  if (mtime > 0) {
    format_http_date(mtime, date, sizeof date);
    delivery_printf("Last-Modified: %s\n", date);
  }
}

int send_file_with_ranges(const char* real_path, int transcoded) {
  struct stat st;
  if (real_path == nullptr || fs_stat(real_path, &st) != 0) return -1;
  // A folder or device opens but cannot be served as one body.
  if (!S_ISREG(st.st_mode)) return -1;
  SentFile file(sf_open_real_file(real_path));
  if (file.get() == nullptr) return -4;

  const char* slash = strrchr(real_path, '/');
  const char* base = slash != nullptr ? slash + 1 : real_path;
  char type[kMimeTypeSize];
  content_type_of(real_path, base, transcoded, type);
  std::string name;
  url_escape_name(base, &name);

  const unsigned long long size = static_cast<unsigned long long>(st.st_size);
  const time_t mtime = st.st_mtime;

  const char* since = cgi_env("IF_MODIFIED_SINCE");
  if (since == nullptr) {
    send_cache_headers(mtime);
  } else if (not_modified_since(since, mtime)) {
    send_not_modified();
    return delivery_flush() ? 0 : -1;
  }

  unsigned long long start = 0;
  unsigned long long end = 0;
  switch (parse_byte_range(cgi_env("HTTP_RANGE"), size, &start, &end)) {
    case RangeOutcome::kWhole:
      delivery_printf("Accept-Ranges: bytes\r\n");
      delivery_printf("Content-Length: %llu\r\n", size);
      delivery_printf("Content-Disposition: inline; filename=\"%s\"; filename*=utf-8''%s\r\n",
                      name.c_str(), name.c_str());
      delivery_printf("Content-Transfer-Encoding: binary\r\n");
      delivery_printf("Content-Type: %s\r\n\r\n", type);
      break;
    case RangeOutcome::kMultiple:
      delivery_printf("Status: 416\n");
      delivery_printf("Content-Range: bytes %llu-%llu/%llu\r\n\r\n", start, end, size);
      delivery_flush();
      return -1;
    case RangeOutcome::kUnsatisfiable:
      delivery_printf("Status: 416\r\n");
      delivery_printf("Content-Range: bytes %llu-%llu/%llu\r\n\r\n", start, end, size);
      delivery_flush();
      return -1;
    case RangeOutcome::kPartial:
      delivery_printf("Status: 206\n");
      delivery_printf("Content-Transfer-Encoding: binary\r\n");
      delivery_printf("Content-Type: %s\r\n", type);
      delivery_printf("Content-Disposition: inline; filename=\"%s\"; filename*=utf-8''%s\r\n",
                      name.c_str(), name.c_str());
      delivery_printf("Accept-Ranges: bytes\r\n");
      delivery_printf("Content-Range: bytes %llu-%llu/%llu\r\n", start, end, size);
      delivery_printf("Content-Length: %llu\r\n\r\n", end - start + 1);
      if (start != 0 && fseeko(file.get(), static_cast<off_t>(start), SEEK_SET) != 0) {
        delivery_flush();
        return -1;
      }
      break;
  }

  // end - start + 1 wraps to 0 for the whole of an empty file.
  unsigned long long remaining = end - start + 1;
  char buf[kChunk];
  while (remaining > 0) {
    size_t want = remaining < kChunk ? static_cast<size_t>(remaining) : kChunk;
    size_t got = fread(buf, 1, want, file.get());
    if (got == 0) {
      if (ferror(file.get())) {
        delivery_flush();
        return -1;
      }
      break;  // the file shrank since stat
    }
    if (!delivery_write(buf, got)) return -1;
    remaining -= got;
  }
  return delivery_flush() ? 0 : -1;
}
