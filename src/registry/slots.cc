#include "registry/slots.h"

#include <cstdlib>

#include "platform/os.h"

void close_fd(int* fd_slot) {
  if (fd_slot == nullptr) return;
  if (*fd_slot >= 0) os.close(*fd_slot);
  *fd_slot = -1;
}

void free_slot(void** slot) {
  if (slot == nullptr) return;
  if (*slot != nullptr) free(*slot);
  *slot = nullptr;
}
