// The store's own files: its folder and everything in it (the store, its
// journals, the share page's access file, the appliance secret, lock files;
// in /etc/config the appliance's configuration too). Wherever the
// configuration puts the store, and whatever hard links point at them, no
// web answer ever serves, lists or archives one of them.
#ifndef SLT_SHARELINK_DB_STORE_FILES_H_
#define SLT_SHARELINK_DB_STORE_FILES_H_

#include <sys/stat.h>

#include <set>
#include <utility>

using FileIdSet = std::set<std::pair<dev_t, ino_t>>;

struct StoreFiles {
  FileIdSet ids;  // device and inode of the folder and of each entry in it
  bool contains(const struct stat& st) const { return ids.count({st.st_dev, st.st_ino}) != 0; }
};

// Reads the store's folder (no link followed). A folder that cannot be read
// leaves only what could be seen; an empty set means the folder is gone.
StoreFiles sf_store_files();

#endif  // SLT_SHARELINK_DB_STORE_FILES_H_
