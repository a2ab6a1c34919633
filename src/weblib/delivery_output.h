// Standard output of the delivery functions: every header line and body
// chunk goes through here, so the bytes sent are counted and a failed write
// is seen.
#ifndef SLT_WEBLIB_DELIVERY_OUTPUT_H_
#define SLT_WEBLIB_DELIVERY_OUTPUT_H_

#include <cstddef>
#include <cstdio>

// printf to standard output. Returns what printf returned.
int delivery_printf(const char* format, ...) __attribute__((format(printf, 1, 2)));

// Writes len bytes to standard output. True when all of them were taken.
bool delivery_write(const void* data, size_t len);

// Flushes standard output. True on success.
bool delivery_flush();

// Closes a file being sent on every way out of the sender.
class SentFile {
 public:
  explicit SentFile(FILE* f) : f_(f) {}
  ~SentFile();
  SentFile(const SentFile&) = delete;
  SentFile& operator=(const SentFile&) = delete;
  FILE* get() const { return f_; }

 private:
  FILE* f_;
};

#endif  // SLT_WEBLIB_DELIVERY_OUTPUT_H_
