#include "sharelink_db/companions.h"

#include <fcntl.h>
#include <sqlite3.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "diag/app_log.h"
#include "platform/fs.h"
#include "platform/fs_beneath.h"
#include "platform/os.h"
#include "platform/root.h"
#include "sharelink_db/store_internal.h"

const char kSfAccessDbName[] = "share_link_access.db";
const char kSfSecretName[] = "share_link_secret";

namespace {

constexpr int kBusyTimeoutMs = 20000;
const char* const kAccessDbSuffixes[] = {"", "-wal", "-shm", "-journal"};

std::string in(const char* folder, const char* name, const char* suffix = "") {
  return std::string(folder) + "/" + name + suffix;
}

// Mode and, where allowed, owner of the original; a process that is not the
// super-user keeps its own files as they are made.
void same_mode_and_owner(const std::string& path, const struct stat& original) {
  fs_chown(path.c_str(), original.st_uid, original.st_gid);
  fs_chmod(path.c_str(), original.st_mode & 07777);
}

// Absent counts as done; any other failure of stat does not.
bool absent(const std::string& path, struct stat* st) {
  if (fs_stat(path.c_str(), st) == 0) return false;
  return errno == ENOENT;
}

bool copy_plain_file(const std::string& from, const std::string& to) {
  struct stat st;
  if (absent(from, &st)) return true;
  UniqueFd src(fs_open(from.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW));
  if (src.get() < 0) return false;
  UniqueFd dst(fs_open(to.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0600));
  if (dst.get() < 0) return false;
  char buf[8192];
  for (;;) {
    ssize_t n = os.read(src.get(), buf, sizeof buf);
    if (n == 0) break;
    if (n < 0) return false;
    for (ssize_t off = 0; off < n;) {
      ssize_t w = os.write(dst.get(), buf + off, static_cast<size_t>(n - off));
      if (w <= 0) return false;
      off += w;
    }
  }
  if (os.fsync(dst.get()) != 0) return false;
  same_mode_and_owner(to, st);
  return true;
}

// A consistent copy of the access file, whatever its journal holds.
bool copy_access_db(const std::string& from, const std::string& to) {
  struct stat st;
  if (absent(from, &st)) return true;
  sf_internal::DbGuard src;
  sf_internal::DbGuard dst;
  if (sqlite3_open_v2(rooted_path(from.c_str()).c_str(), src.out(), SQLITE_OPEN_READWRITE,
                      nullptr) != SQLITE_OK ||
      sqlite3_open_v2(rooted_path(to.c_str()).c_str(), dst.out(),
                      SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr) != SQLITE_OK) {
    return false;
  }
  sqlite3_busy_timeout(src.get(), kBusyTimeoutMs);
  sqlite3_backup* backup = sqlite3_backup_init(dst.get(), "main", src.get(), "main");
  if (backup == nullptr) return false;
  int step = sqlite3_backup_step(backup, -1);
  int finish = sqlite3_backup_finish(backup);
  if (step != SQLITE_DONE || finish != SQLITE_OK) return false;
  same_mode_and_owner(to, st);
  return true;
}

}  // namespace

bool sf_remove_companions(const char* folder) {
  bool all = true;
  for (const char* suffix : kAccessDbSuffixes) {
    std::string path = in(folder, kSfAccessDbName, suffix);
    if (fs_unlink(path.c_str()) != 0 && errno != ENOENT) all = false;
  }
  std::string secret = in(folder, kSfSecretName);
  if (fs_unlink(secret.c_str()) != 0 && errno != ENOENT) all = false;
  return all;
}

bool sf_copy_companions(const char* from, const char* to) {
  char real_from[4096];
  char real_to[4096];
  if (fs_realpath(from, real_from, sizeof real_from) && fs_realpath(to, real_to, sizeof real_to) &&
      strcmp(real_from, real_to) == 0) {
    return false;  // one folder: clearing the target would remove the originals
  }
  // Leftovers in the new folder belong to no store in use; they must not mix
  // with the copies (a stale -wal beside a copied access file would be read
  // as part of it).
  if (!sf_remove_companions(to)) return false;
  bool copied = copy_access_db(in(from, kSfAccessDbName), in(to, kSfAccessDbName)) &&
                copy_plain_file(in(from, kSfSecretName), in(to, kSfSecretName)) &&
                fs_sync_parent_dir(in(to, kSfSecretName).c_str()) == 0;
  if (!copied) {
    APP_LOG("the companions of the store could not be copied from %s to %s\n", from, to);
    sf_remove_companions(to);
  }
  return copied;
}
