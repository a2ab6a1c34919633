#include "registry/append.h"

#include <cerrno>
#include <cstring>

#include "diag/syslog_report.h"
#include "platform/fs.h"
#include "platform/os.h"

namespace {

// One report per failed step; `format` names the step.
void report(const char* format, const char* data) {
  int err = errno;
  char message[2048];
  snprintf(message, sizeof message, format, "sf_appendData", data, err, strerror(err));
  errno = err;
  log_syslog_error("VEXA", message);
}

constexpr char kFopenFailed[] = "[%s][fopen]data=%s(%d:%s)";
constexpr char kFwriteFailed[] = "[%s][fwrite]data=%s(%d:%s)";
constexpr char kFerrorSet[] = "[%s][ferror]data=%s(%d:%s)";
constexpr char kFcloseFailed[] = "[%s][fclose]data=%s(%d:%s)";

}  // namespace

int sf_appendData(const char* path, const char* data) {
  if (data == nullptr) data = "";
  FILE* f = fs_fopen(path, "ab");
  if (f == nullptr) {
    report(kFopenFailed, data);
    return -1;
  }
  size_t len = strlen(data);
  if (os.fwrite(data, 1, len, f) < len) {
    report(kFwriteFailed, data);
    os.fclose(f);
    return -ENOENT;
  }
  if (os.ferror(f) != 0) {
    report(kFerrorSet, data);
    os.fclose(f);
    return -ESRCH;
  }
  if (os.fclose(f) == -1) {
    report(kFcloseFailed, data);
    return -EINTR;
  }
  return 1;
}

int append_to_stream(FILE* f, const char* data, size_t len) {
  if (data == nullptr) data = "";
  if (os.fwrite(data, 1, len, f) < len) {
    report(kFwriteFailed, data);
    return -ENOENT;
  }
  if (os.ferror(f) != 0) {
    report(kFerrorSet, data);
    return -ESRCH;
  }
  return 1;
}
