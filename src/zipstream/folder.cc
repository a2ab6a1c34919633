// Planning and reading a folder beneath its open descriptor.
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <zlib.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <string>

#include "platform/fs.h"
#include "platform/os.h"
#include "zipstream/zipstream.h"

namespace {

// Big enough for full pipe writes, small enough for the 8 MiB budget.
constexpr size_t kChunk = 192 * 1024;
// Entries listed between two questions whether the client is still there.
constexpr size_t kStopEvery = 256;

struct DirCloser {
  void operator()(DIR* d) const { closedir(d); }
};

// Opens the entry `name` of the folder open at parent without following a
// link, refusing what the walk excludes. A descriptor, or -1.
int open_child(int parent, const char* name, int flags, const FolderWalk* walk) {
  int fd = os.openat(parent, name, flags | O_NOFOLLOW | O_CLOEXEC, 0);
  if (fd < 0 || walk == nullptr || walk->excluded.empty()) return fd;
  struct stat st;
  if (fstat(fd, &st) != 0 || walk->skips(st)) {
    os.close(fd);
    errno = EACCES;
    return -1;
  }
  return fd;
}

// One depth-first walk: each folder's entries are added and sorted, then its
// subfolders are walked in that order from the folder's own descriptor.
class Planner {
 public:
  Planner(ZipPlan* plan, const FolderWalk& walk) : plan_(plan), walk_(walk) {}
  // The folder open at fd, named `prefix` in the plan ("" or "a/b/"),
  // `depth` levels beneath the top.
  PlanStatus folder(int fd, const std::string& prefix, int depth);

 private:
  PlanStatus list(int fd, const std::string& prefix);
  bool stopped() const { return walk_.stop && walk_.stop(); }
  ZipPlan* plan_;
  const FolderWalk& walk_;
};

PlanStatus Planner::list(int fd, const std::string& prefix) {
  // A second descriptor for the listing: fd stays open for the subfolders.
  int copy = fs_dup(fd);
  std::unique_ptr<DIR, DirCloser> d(copy >= 0 ? fdopendir(copy) : nullptr);
  if (!d) {
    if (copy >= 0) os.close(copy);
    return PlanStatus::kFailed;
  }
  rewinddir(d.get());  // the copy shares fd's offset, which a listing may have moved
  const size_t first = plan_->count();
  std::string name;
  size_t seen = 0;
  while (dirent* e = readdir(d.get())) {
    if (++seen % kStopEvery == 0 && stopped()) return PlanStatus::kStopped;
    if (e->d_name[0] == '.') continue;  // hidden, the system's ".@" folders, "." and ".."
    struct stat st;
    if (fstatat(fd, e->d_name, &st, AT_SYMLINK_NOFOLLOW) != 0) continue;
    if ((!S_ISDIR(st.st_mode) && !S_ISREG(st.st_mode)) || walk_.skips(st)) continue;
    name.assign(prefix).append(e->d_name);
    if (S_ISDIR(st.st_mode)) name.push_back('/');
    if (!plan_->add(name.data(), name.size(), S_ISDIR(st.st_mode),
                    static_cast<uint64_t>(st.st_size), st.st_mtime)) {
      return PlanStatus::kFailed;
    }
  }
  plan_->sort_tail(first, prefix.size());
  return PlanStatus::kPlanned;
}

PlanStatus Planner::folder(int fd, const std::string& prefix, int depth) {
  const size_t first = plan_->count();
  PlanStatus s = list(fd, prefix);
  const size_t end = plan_->count();
  std::string name;
  for (size_t i = first; i < end && s == PlanStatus::kPlanned; ++i) {
    if (!plan_->entry(i).dir) continue;
    if (depth >= kMaxFolderDepth) return PlanStatus::kTooDeep;
    if (stopped()) return PlanStatus::kStopped;
    name.assign(plan_->name(i), plan_->entry(i).name_len);
    const std::string base = name.substr(prefix.size(), name.size() - prefix.size() - 1);
    UniqueFd sub(open_child(fd, base.c_str(), O_RDONLY | O_DIRECTORY, &walk_));
    // A folder gone (or swapped for a link) since it was listed stays empty.
    if (sub.get() >= 0) s = folder(sub.get(), name, depth + 1);
  }
  return s;
}

}  // namespace

PlanStatus plan_folder(int dirfd, ZipPlan* plan, const FolderWalk& walk) {
  struct stat st;
  if (fstat(dirfd, &st) != 0 || !S_ISDIR(st.st_mode) || walk.skips(st)) return PlanStatus::kFailed;
  return Planner(plan, walk).folder(dirfd, "", 0);
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

bool FolderSource::enter(const char* dir, size_t len) {
  // Keep the open folders both paths share, whole names only.
  size_t same = 0, depth = 0;
  for (size_t i = 0; i < len && i < path_.size() && dir[i] == path_[i]; ++i) {
    if (dir[i] == '/') same = i + 1, ++depth;
  }
  open_.resize(depth);
  path_.resize(same);
  while (path_.size() < len) {
    const char* from = dir + path_.size();
    const char* slash = static_cast<const char*>(memchr(from, '/', len - path_.size()));
    if (slash == nullptr) return false;
    const std::string part(from, static_cast<size_t>(slash - from));
    if (part.empty() || part == "." || part == "..") return false;
    const int parent = open_.empty() ? dirfd_ : open_.back().get();
    UniqueFd fd(open_child(parent, part.c_str(), O_RDONLY | O_DIRECTORY, walk_));
    if (fd.get() < 0) return false;
    open_.push_back(std::move(fd));
    path_.append(part).push_back('/');
  }
  return true;
}

bool FolderSource::send(const ZipPlan& plan, size_t i, ZipSink* sink, uint32_t* crc) {
  if (walk_ != nullptr && walk_->stop && walk_->stop()) return false;
  const char* name = plan.name(i);
  const size_t len = plan.entry(i).name_len;
  const void* slash = memrchr(name, '/', len);
  const size_t dir_len = slash != nullptr ? static_cast<const char*>(slash) - name + 1 : 0;
  if (!enter(name, dir_len)) return false;
  const std::string base(name + dir_len, len - dir_len);
  UniqueFd fd(open_child(open_.empty() ? dirfd_ : open_.back().get(), base.c_str(),
                         O_RDONLY | O_NONBLOCK, walk_));
  return fd.get() >= 0 && send_file_bytes(fd.get(), plan.entry(i).size, sink, crc, crcs_);
}
