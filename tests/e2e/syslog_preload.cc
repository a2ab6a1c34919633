// The system log as a file, preloaded into the tool by end-to-end tests: each message becomes one line of
// $SHARELINK_ROOT/tmp/syslog.log, so a test can count what a run reported.
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <string>

static void append(const char* format, va_list ap) {
  const char* root = getenv("SHARELINK_ROOT");
  FILE* f = root == nullptr ? nullptr : fopen((std::string(root) + "/tmp/syslog.log").c_str(), "a");
  if (f == nullptr) return;
  vfprintf(f, format, ap);
  fputc('\n', f);
  fclose(f);
}

#define SLT_FORWARD(last) va_list ap; va_start(ap, last); append(last, ap); va_end(ap)
extern "C" void syslog(int, const char* format, ...) { SLT_FORWARD(format); }
extern "C" void __syslog_chk(int, int, const char* format, ...) { SLT_FORWARD(format); }
