// Releasing a descriptor or a heap block held in a slot, so that a slot can
// be released any number of times and from any early return.
#ifndef SLT_REGISTRY_SLOTS_H_
#define SLT_REGISTRY_SLOTS_H_

// Closes *fd_slot when it is 0 or more and sets it to -1. A null slot is
// accepted.
void close_fd(int* fd_slot);

// Frees (free()) the block in *slot when it is set and sets it to null. A
// null slot is accepted.
void free_slot(void** slot);

template <typename T>
void free_slot(T** slot) {
  if (slot == nullptr) return;
  void* block = *slot;
  free_slot(&block);
  *slot = nullptr;
}

#endif  // SLT_REGISTRY_SLOTS_H_
