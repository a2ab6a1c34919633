// The system log as a file: preloaded into the tool by end-to-end tests, it
// appends each message to $SHARELINK_ROOT/tmp/syslog.log (one line each), so
// a test can count what a run reported.
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace {

void append(const char* format, va_list ap) {
  const char* root = getenv("SHARELINK_ROOT");
  if (root == nullptr) return;
  std::string path = std::string(root) + "/tmp/syslog.log";
  FILE* f = fopen(path.c_str(), "a");
  if (f == nullptr) return;
  vfprintf(f, format, ap);
  fputc('\n', f);
  fclose(f);
}

}  // namespace

extern "C" void syslog(int, const char* format, ...) {
  va_list ap;
  va_start(ap, format);
  append(format, ap);
  va_end(ap);
}

extern "C" void __syslog_chk(int, int, const char* format, ...) {
  va_list ap;
  va_start(ap, format);
  append(format, ap);
  va_end(ap);
}
