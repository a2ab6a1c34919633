// Archives whose big files go out spliced under a kept CRC: the same bytes as
// summed ones, summed again after any change, and never finished when a file
// changed before the reader took its bytes.
#include <dirent.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <map>
#include <string>
#include <thread>

#include "platform/fs.h"
#include "platform/os.h"
#include "share_page/access_db.h"
#include "support/appliance.h"
#include "zipstream/zipstream.h"

namespace {

std::atomic<int> g_sendfiles{0};
int g_fail_errno = 0;  // the next sendfile fails with it
decltype(os.sendfile) g_real_sendfile = nullptr;
decltype(os.read) g_real_read = nullptr;
std::string g_grow;  // a file that grows at the next read
time_t g_clock = 0;

ssize_t counted_sendfile(int out, int in, off_t* at, size_t n) {
  ++g_sendfiles;
  if (g_fail_errno != 0) return errno = g_fail_errno, g_fail_errno = 0, -1;
  return g_real_sendfile(out, in, at, n);
}

void later_tick() { std::this_thread::sleep_for(std::chrono::milliseconds(30)); }
void poke(const std::string& path, off_t at) {
  int fd = open(path.c_str(), O_WRONLY);
  EXPECT_EQ(1, pwrite(fd, "X", 1, at));
  close(fd);
}
int open_fds() {
  int n = 0;
  if (DIR* d = opendir("/proc/self/fd")) {
    while (readdir(d) != nullptr) ++n;
    closedir(d);
  }
  return n;
}

class MemCrcs : public CrcCache {
 public:
  bool find(const struct stat& st, uint32_t* crc) override {
    auto it = kept_.find(st.st_ino);
    if (it == kept_.end() || !same_file_state(it->second.first, st)) return false;
    return *crc = it->second.second, true;
  }
  void keep(const struct stat& st, uint32_t crc) override { kept_[st.st_ino] = {st, crc}; }
  size_t size() const { return kept_.size(); }

 private:
  std::map<ino_t, std::pair<struct stat, uint32_t>> kept_;
};

class ZipSplice : public ::testing::Test {
 protected:
  void SetUp() override {
    std::string big(3 << 20, '\0');
    for (size_t i = 0; i < big.size(); ++i) big[i] = static_cast<char>(i * 7 + i / 4096);
    root_.write("/d/big.bin", big), root_.write("/d/sub/small.txt", "small");
    dir_ = open(root_.path("/d").c_str(), O_RDONLY | O_DIRECTORY);
    g_sendfiles = 0, g_real_sendfile = os.sendfile, os.sendfile = counted_sendfile;
    // The files count as unchanged for a while only on a clock that moved on.
    g_clock = time(nullptr) + 10;
    os.time = [](time_t* out) { return out != nullptr ? *out = g_clock : g_clock; };
  }
  void TearDown() override { os_reset(), close(dir_); }

  // The archive as a pipe's reader gets it; `between` runs once the writer
  // has begun to splice, while the reader holds back. `ok`: zip_stream's answer.
  std::string zip(CrcCache* crcs, bool* ok, const std::function<void()>& between = {}) {
    ZipPlan plan;
    EXPECT_EQ(PlanStatus::kPlanned, plan_folder(dir_, &plan));
    total_ = plan.total_size();
    int p[2];
    EXPECT_EQ(0, pipe(p));
    std::thread writer([&] {
      {
        FdSink sink(p[1]);
        FolderSource source(dir_, crcs);
        *ok = zip_stream(&plan, &source, &sink) && sink.flush();
      }
      close(p[1]);
    });
    std::string got;
    char buf[65536];
    ssize_t n;
    bool held = static_cast<bool>(between);
    while ((n = read(p[0], buf, held ? 64 : sizeof buf)) > 0) {
      got.append(buf, static_cast<size_t>(n));
      if (held && g_sendfiles > 0) between(), held = false;
    }
    writer.join();
    close(p[0]);
    return got;
  }

  ApplianceRoot root_;
  int dir_ = -1;
  uint64_t total_ = 0;
};

TEST_F(ZipSplice, KeptCrcsSpliceTheSameArchiveUntilTheFileChanges) {
  bool ok = false, ok2 = false, ok3 = false;
  const std::string plain = zip(nullptr, &ok);
  ASSERT_EQ(total_, plain.size());
  MemCrcs crcs;
  EXPECT_EQ(plain, zip(&crcs, &ok2));  // summed, and the big file's CRC kept
  EXPECT_TRUE(crcs.size() == 1 && g_sendfiles == 0);
  EXPECT_EQ(plain, zip(&crcs, &ok3));  // spliced
  EXPECT_TRUE(ok && ok2 && ok3 && g_sendfiles > 0);

  // New content of the same size under the old modification time: summed again.
  const std::string path = root_.path("/d/big.bin");
  struct stat before;
  ASSERT_EQ(0, stat(path.c_str(), &before));
  poke(path, 12345);
  const struct timespec times[2] = {before.st_atim, before.st_mtim};
  ASSERT_EQ(0, utimensat(AT_FDCWD, path.c_str(), times, 0));
  const int spliced = g_sendfiles;
  const std::string changed = zip(&crcs, &ok);
  EXPECT_TRUE(ok && spliced == g_sendfiles && changed != plain);
  EXPECT_EQ(changed, zip(nullptr, &ok));

  // A file changed just now keeps no CRC: a change in the same clock tick
  // would not show in its times.
  MemCrcs fresh;
  g_clock = time(nullptr);
  zip(&fresh, &ok);
  EXPECT_EQ(0u, fresh.size());
}

// Either way the reader gets fewer bytes than announced, never a lying archive.
TEST_F(ZipSplice, AFileChangedOrGrownWhileSentStopsTheArchive) {
  MemCrcs crcs;
  bool ok = false;
  zip(&crcs, &ok);
  ASSERT_EQ(1u, crcs.size());
  const std::string big = root_.path("/d/big.bin");
  std::string got = zip(&crcs, &ok, [&] { later_tick(), poke(big, (2 << 20) + 5); });  // spliced, not yet taken
  EXPECT_TRUE(!ok && got.size() < total_);

  g_grow = big, g_real_read = os.read;
  os.read = [](int fd, void* buf, size_t n) {
    if (!g_grow.empty()) {
      int w = open(g_grow.c_str(), O_WRONLY | O_APPEND);
      EXPECT_EQ(1, write(w, "+", 1));
      close(w), g_grow.clear();
    }
    return g_real_read(fd, buf, n);
  };
  got = zip(nullptr, &ok);
  EXPECT_TRUE(!ok && got.size() < total_);
}

// The sink itself: settle() waits for the reader, then answers whether each
// spliced file stayed as it was; a reader that went away ends the wait. A
// refused first splice leaves the bytes to the caller, a later failure stops
// the stream, EINTR is tried again. No descriptor outlives its check.
TEST(FdSinkSplice, SettlesOnlyOnBytesTakenUnchanged) {
  ApplianceRoot root;
  root.write("/f", std::string(10000, 'f'));
  using S = ZipSink::Splice;
  struct Case { int err; S want; bool change, reader, settled; };
  for (const Case& c : {Case{0, S::kSent, false, true, true}, Case{0, S::kSent, true, true, false},
                        Case{0, S::kSent, false, false, false}, Case{EINTR, S::kSent, false, true, true},
                        Case{EINVAL, S::kCannot, false, true, true}, Case{ENOSYS, S::kCannot, false, true, true},
                        Case{EIO, S::kFailed, false, true, true}}) {
    SCOPED_TRACE(testing::Message() << c.err << c.change << c.reader);
    const int before = open_fds();
    int p[2];
    ASSERT_EQ(0, pipe(p));
    int fd = open(root.path("/f").c_str(), O_RDWR);
    struct stat st;
    ASSERT_EQ(0, fstat(fd, &st));
    g_fail_errno = c.err, g_real_sendfile = os.sendfile, os.sendfile = counted_sendfile;
    FdSink sink(p[1]);
    ASSERT_TRUE(sink.write("head", 4));
    EXPECT_EQ(c.want, sink.splice_file(fd, 10000, st));
    os_reset();
    FdSink to_file(fd);  // only a pipe's reader can be waited for
    EXPECT_EQ(S::kCannot, to_file.splice_file(fd, 10000, st));
    const size_t expect = c.want == S::kSent ? 10004 : 4;
    EXPECT_EQ(static_cast<long>(expect), fs_pipe_unread(p[1]));  // the head goes out first
    if (c.change) later_tick(), poke(root.path("/f"), 9000);
    std::string got;
    std::thread reader([&] {
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
      char buf[4096];
      ssize_t n;
      while (c.reader && got.size() < expect && (n = read(p[0], buf, sizeof buf)) > 0) {
        got.append(buf, static_cast<size_t>(n));
      }
      close(p[0]);
    });
    if (c.want != S::kFailed) {
      EXPECT_EQ(c.settled, sink.settle());
    }
    reader.join();
    close(fd), close(p[1]);
    if (c.reader) {
      EXPECT_EQ(expect, got.size());
      EXPECT_EQ(before, open_fds());
    }
  }
}

TEST(ZipCrcs, KeptByFileStateAndForgottenAfterThirtyDays) {
  ApplianceRoot root;
  ScopedEnv env{{{"SHARELINK_ROOT", root.dir()}}};
  root.mkdirs("/etc/config");
  AccessDb db;
  ASSERT_TRUE(db.ok());
  struct stat st = {};
  st.st_dev = 3, st.st_ino = 77, st.st_size = 1 << 21, st.st_mtim = {1000, 5}, st.st_ctim = {2000, 6};
  const time_t t0 = 1700000000;
  db.keep_crc(t0, st, 0xdeadbeef);
  uint32_t crc = 0;
  EXPECT_TRUE(db.known_crc(st, &crc) && crc == 0xdeadbeefu);
  for (auto change : {+[](struct stat* s) { s->st_ctim.tv_nsec++; }, +[](struct stat* s) { s->st_mtim.tv_sec++; },
                      +[](struct stat* s) { s->st_size--; }, +[](struct stat* s) { s->st_ino++; },
                      +[](struct stat* s) { s->st_dev++; }}) {
    struct stat other = st;
    change(&other);
    EXPECT_FALSE(db.known_crc(other, &crc));
  }
  struct stat later = st;
  later.st_ino = 78;
  AccessDb next;  // the next request's
  next.keep_crc(t0 + 30L * 24 * 3600 + 1, later, 1);
  ASSERT_TRUE(next.prune(t0 + 30L * 24 * 3600 + 1));
  EXPECT_TRUE(!next.known_crc(st, &crc) && next.known_crc(later, &crc));
}

}  // namespace
