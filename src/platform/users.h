// The system's user database (not under the appliance root) and the process
// identity that team-folder resolution raises and restores.
#ifndef SLT_PLATFORM_USERS_H_
#define SLT_PLATFORM_USERS_H_

#include <sys/types.h>

#include <cstddef>
#include <vector>

// Home folder of user `name` into out. 0, or -1 for an unknown user.
int user_home_dir(const char* name, char* out, size_t size);
// Numeric id of user `name`. 0, or -1 for an unknown user.
int user_uid(const char* name, long* uid);

// Remembers the effective user, group and supplementary groups on
// construction and puts them back on destruction.
class SavedIdentity {
 public:
  SavedIdentity();
  ~SavedIdentity();
  SavedIdentity(const SavedIdentity&) = delete;
  SavedIdentity& operator=(const SavedIdentity&) = delete;

 private:
  uid_t euid_;
  gid_t egid_;
  std::vector<gid_t> groups_;
};

#endif  // SLT_PLATFORM_USERS_H_
