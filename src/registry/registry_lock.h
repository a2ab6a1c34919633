// The registry's writer lock.
//
// Guards every read-modify-write of the share registry: the refresh, modes 2
// and 4, and appends of new lines. Each takes an exclusive flock on
// "<registry>.lock", a file beside the registry, before it reads and keeps it
// until its companion file has been renamed over the registry (or removed).
// Writers therefore take turns instead of overwriting each other's work;
// they wait for the lock and never fail because of each other.
//
// While a writer holds the lock, no other writer is at work, so a companion
// of the registry found then ("<registry>.tmpXXXXXX", the mode-2
// "<registry>.del") was left by a writer that was killed: the lock holder
// removes it. Files with other names are never touched.
#ifndef SLT_REGISTRY_REGISTRY_LOCK_H_
#define SLT_REGISTRY_REGISTRY_LOCK_H_

#include <string>

class RegistryLock {
 public:
  // Waits for the lock on the registry at the appliance path `registry`,
  // then removes the leftovers of killed writers.
  explicit RegistryLock(const char* registry);
  ~RegistryLock();
  RegistryLock(const RegistryLock&) = delete;
  RegistryLock& operator=(const RegistryLock&) = delete;

  // False when the lock file could not be opened or locked: the caller must
  // not rewrite the registry then.
  bool held() const { return fd_ >= 0; }

 private:
  int fd_ = -1;
};

// The companion names of a registry: "<registry>.tmpXXXXXX" (the template
// for vexa_mktmpname), "<registry>.del" and "<registry>.lock".
std::string registry_temp_template(const char* registry);
std::string registry_del_path(const char* registry);
std::string registry_lock_path(const char* registry);

// Removes the companions of `registry` that a killed writer left: temporary
// files of the registry's template and the ".del" file. Only to be called
// with the lock held. Returns the number of files removed.
int remove_registry_leftovers(const char* registry);

#endif  // SLT_REGISTRY_REGISTRY_LOCK_H_
