#include "platform/io_buffer.h"

#include <cstdlib>
#include <cstring>
#include <new>

struct HsIo {
  char* data = nullptr;
  size_t len = 0;
  size_t cap = 0;
};

HsIo* hs_io_create() { return new (std::nothrow) HsIo(); }

int hs_io_write(HsIo* io, const void* data, size_t len) {
  if (io == nullptr || (data == nullptr && len > 0)) return -1;
  if (io->len + len + 1 > io->cap) {
    size_t cap = io->cap ? io->cap : 256;
    while (cap < io->len + len + 1) {
      if (cap > (static_cast<size_t>(-1) >> 1)) return -1;
      cap *= 2;
    }
    char* grown = static_cast<char*>(realloc(io->data, cap));
    if (grown == nullptr) return -1;
    io->data = grown;
    io->cap = cap;
  }
  if (len > 0) memcpy(io->data + io->len, data, len);
  io->len += len;
  io->data[io->len] = '\0';
  return 0;
}

const char* hs_io_read(HsIo* io, size_t* len) {
  if (len != nullptr) *len = io ? io->len : 0;
  if (io == nullptr || io->data == nullptr) return "";
  return io->data;
}

size_t hs_io_size(const HsIo* io) { return io ? io->len : 0; }

void hs_io_free(HsIo* io) {
  if (io == nullptr) return;
  free(io->data);
  delete io;
}
