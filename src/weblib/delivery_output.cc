#include "weblib/delivery_output.h"

#include <cstdarg>
#include <cstdio>

#include "platform/os.h"
#include "weblib/file_delivery.h"

namespace {
unsigned long long g_written = 0;
}

int delivery_printf(const char* format, ...) {
  va_list ap;
  va_start(ap, format);
  int n = vprintf(format, ap);
  va_end(ap);
  if (n > 0) g_written += static_cast<unsigned long long>(n);
  return n;
}

bool delivery_write(const void* data, size_t len) {
  if (len == 0) return true;
  size_t n = os.fwrite(data, 1, len, stdout);
  g_written += n;
  return n == len;
}

bool delivery_flush() { return fflush(stdout) == 0 && os.ferror(stdout) == 0; }

unsigned long long delivery_bytes_written() { return g_written; }

SentFile::~SentFile() {
  if (f_ != nullptr) os.fclose(f_);
}
