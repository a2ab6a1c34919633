// The growing output buffer that captures a child program's standard output.
//
// hs_io_read hands out the content with a terminating NUL added, so callers
// may treat it as text; the length excludes that NUL.
#ifndef SLT_PLATFORM_IO_BUFFER_H_
#define SLT_PLATFORM_IO_BUFFER_H_

#include <cstddef>

struct HsIo;

// A new empty buffer, or null when memory runs out.
HsIo* hs_io_create();
// Appends len bytes. 0, or -1 when memory runs out (the buffer is unchanged).
int hs_io_write(HsIo* io, const void* data, size_t len);
// The content (NUL-terminated, valid until the next write or free); *len gets
// its length when len is given. An empty buffer gives "".
const char* hs_io_read(HsIo* io, size_t* len);
size_t hs_io_size(const HsIo* io);
void hs_io_free(HsIo* io);

// Owns an HsIo for one scope.
class HsIoGuard {
 public:
  HsIoGuard() : io_(hs_io_create()) {}
  ~HsIoGuard() { hs_io_free(io_); }
  HsIoGuard(const HsIoGuard&) = delete;
  HsIoGuard& operator=(const HsIoGuard&) = delete;
  HsIo* get() const { return io_; }

 private:
  HsIo* io_;
};

#endif  // SLT_PLATFORM_IO_BUFFER_H_
