#include "sharelink_db/store_files.h"

#include <dirent.h>
#include <fcntl.h>

#include <cstring>
#include <string>

#include "platform/fs.h"
#include "sharelink_db/store.h"

StoreFiles sf_store_files() {
  StoreFiles files;
  std::string dir = sf_beside_store("");
  if (dir.size() > 1) dir.pop_back();  // the trailing "/"
  struct stat st;
  if (fs_lstat(dir.c_str(), &st) != 0) return files;
  files.ids.insert({st.st_dev, st.st_ino});
  DIR* d = fs_opendir(dir.c_str());
  if (d == nullptr) return files;
  while (dirent* e = readdir(d)) {
    if (strcmp(e->d_name, ".") == 0 || strcmp(e->d_name, "..") == 0) continue;
    if (fstatat(dirfd(d), e->d_name, &st, AT_SYMLINK_NOFOLLOW) == 0) {
      files.ids.insert({st.st_dev, st.st_ino});
    }
  }
  closedir(d);
  return files;
}
