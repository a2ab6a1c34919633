// Planning and reading a folder beneath its open descriptor.
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <zlib.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <string>

#include "platform/os.h"
#include "zipstream/zipstream.h"

namespace {

// Big enough for full pipe writes, small enough for the 8 MiB budget.
constexpr size_t kChunk = 192 * 1024;

struct DirCloser {
  void operator()(DIR* d) const { closedir(d); }
};

// Adds the folder's children; `prefix` is its name in the plan ("" or "a/").
bool list_into(int fd, const std::string& prefix, ZipPlan* plan) {
  std::unique_ptr<DIR, DirCloser> d(fdopendir(fd));
  if (!d) {
    os.close(fd);
    return false;
  }
  std::string name;
  while (dirent* e = readdir(d.get())) {
    if (strcmp(e->d_name, ".") == 0 || strcmp(e->d_name, "..") == 0) continue;
    struct stat st;
    if (fstatat(dirfd(d.get()), e->d_name, &st, AT_SYMLINK_NOFOLLOW) != 0) continue;
    if (!S_ISDIR(st.st_mode) && !S_ISREG(st.st_mode)) continue;
    name.assign(prefix).append(e->d_name);
    if (S_ISDIR(st.st_mode)) name.push_back('/');
    if (!plan->add(name.data(), name.size(), S_ISDIR(st.st_mode),
                   static_cast<uint64_t>(st.st_size), st.st_mtime)) {
      return false;
    }
  }
  return true;
}

}  // namespace

int open_beneath_nofollow(int dirfd, const char* rel, size_t len, int flags) {
  int cur = dirfd;
  size_t start = 0;
  std::string part;
  for (;;) {
    const void* slash = memchr(rel + start, '/', len - start);
    size_t end = slash != nullptr ? static_cast<size_t>(static_cast<const char*>(slash) - rel) : len;
    part.assign(rel + start, end - start);
    const bool last = end == len;
    int fd = part.empty() || part == "." || part == ".."
                 ? (errno = EXDEV, -1)
                 : os.openat(cur, part.c_str(),
                             (last ? flags : O_RDONLY | O_DIRECTORY) | O_NOFOLLOW | O_CLOEXEC, 0);
    if (cur != dirfd) os.close(cur);
    if (fd < 0 || last) return fd;
    cur = fd;
    start = end + 1;
  }
}

bool plan_folder(int dirfd, ZipPlan* plan) {
  int self = os.openat(dirfd, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC, 0);
  if (self < 0 || !list_into(self, "", plan)) return false;
  // Folders are appended as found; reading them in plan order lists each
  // once, with one folder open at a time.
  std::string prefix;
  for (size_t i = 0; i < plan->count(); ++i) {
    if (!plan->entry(i).dir) continue;
    prefix.assign(plan->name(i), plan->entry(i).name_len);
    int fd = open_beneath_nofollow(dirfd, prefix.data(), prefix.size() - 1, O_RDONLY | O_DIRECTORY);
    // A folder that vanished since it was listed stays an empty entry.
    if (fd >= 0 && !list_into(fd, prefix, plan)) return false;
  }
  return true;
}

bool send_file_bytes(int fd, uint64_t size, ZipSink* sink, uint32_t* crc, CrcCache* crcs) {
  struct stat st;
  if (fstat(fd, &st) != 0 || !S_ISREG(st.st_mode) || static_cast<uint64_t>(st.st_size) != size) {
    return false;
  }
  const bool big = crcs != nullptr && size >= kSpliceMin;
  if (big && crcs->find(st, crc)) {
    switch (sink->splice_file(fd, size, st)) {
      case ZipSink::Splice::kSent: return true;
      case ZipSink::Splice::kFailed: return false;
      case ZipSink::Splice::kCannot: break;
    }
  }
  // A change after this moment gets a later change time than the file has
  // now, so a CRC kept under that time cannot outlive the content it sums.
  const bool settled = st.st_ctim.tv_sec + 2 < os.time(nullptr);
  std::unique_ptr<unsigned char[]> buf(new unsigned char[kChunk]);
  uLong c = crc32(0L, Z_NULL, 0);
  uint64_t left = size;
  while (left > 0) {
    size_t want = left < kChunk ? static_cast<size_t>(left) : kChunk;
    ssize_t n = os.read(fd, buf.get(), want);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;  // shrank while being sent
    c = crc32(c, buf.get(), static_cast<uInt>(n));
    if (!sink->write(buf.get(), static_cast<size_t>(n))) return false;
    left -= static_cast<uint64_t>(n);
  }
  // Grown (or cut and regrown) while being sent: the headers would lie.
  struct stat after;
  if (fstat(fd, &after) != 0 || static_cast<uint64_t>(after.st_size) != size) return false;
  *crc = static_cast<uint32_t>(c);
  if (big && settled && same_file_state(after, st)) crcs->keep(st, *crc);
  return true;
}

bool FolderSource::send(const ZipPlan& plan, size_t i, ZipSink* sink, uint32_t* crc) {
  int fd = open_beneath_nofollow(dirfd_, plan.name(i), plan.entry(i).name_len, O_RDONLY | O_NONBLOCK);
  if (fd < 0) return false;
  bool ok = send_file_bytes(fd, plan.entry(i).size, sink, crc, crcs_);
  os.close(fd);
  return ok;
}
