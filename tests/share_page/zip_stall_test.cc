// One client, one archive; and a reader that stops taking bytes ends its
// archive instead of holding a slot for as long as the web server waits.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <memory>
#include <string>
#include <thread>

#include "diag/syslog_report.h"
#include "platform/os.h"
#include "share_page/zip_answer.h"
#include "support/appliance.h"
#include "zipstream/zipstream.h"

namespace {

int g_polls = 0, g_poll_timeout = 0;
uint64_t g_slept_us = 0;
int g_drain_fd = -1;  // the pipe's reading end
std::string g_logged;

// Every CRC is "known", so big files go out spliced.
class AnyCrc : public CrcCache {
 public:
  bool find(const struct stat&, uint32_t* crc) override { return *crc = 0, true; }
  void keep(const struct stat&, uint32_t) override {}
};

class ZipStall : public ::testing::Test {
 protected:
  void SetUp() override {
    root_.write("/d/big.bin", std::string(3 << 20, 'b'));
    dir_ = open(root_.path("/d").c_str(), O_RDONLY | O_DIRECTORY);
  }
  void TearDown() override { os_reset(), close(dir_); }
  // Streams the folder into a pipe of `pipe_size` bytes (0: the default)
  // whose reader takes `take` bytes and then nothing.
  bool stream(CrcCache* crcs, int stall_ms, size_t take, bool* stalled, int pipe_size = 0) {
    ZipPlan plan;
    int p[2];
    EXPECT_EQ(PlanStatus::kPlanned, plan_folder(dir_, &plan));
    EXPECT_EQ(0, pipe(p));
    g_drain_fd = p[0];
    if (pipe_size > 0) {
      EXPECT_EQ(pipe_size, fcntl(p[1], F_SETPIPE_SZ, pipe_size));
    }
    std::thread reader([&] {
      std::string buf(take, '\0');
      for (size_t got = 0; got < take;) {
        const ssize_t n = read(p[0], &buf[got], take - got);
        if (n <= 0) break;
        got += static_cast<size_t>(n);
      }
    });
    bool ok;
    {
      FdSink sink(p[1], stall_ms);
      FolderSource source(dir_, crcs);
      ok = zip_stream(&plan, &source, &sink) && sink.flush();
      *stalled = sink.stalled();
    }
    close(p[1]);
    reader.join();
    close(p[0]);
    return ok;
  }
  ApplianceRoot root_;
  int dir_ = -1;
};

// Read and written, or spliced: the wait for room gives up after the stall
// time, once, and later writes (the sink's last flush) do not wait again.
TEST_F(ZipStall, AReaderThatTakesNothingEndsTheArchive) {
  AnyCrc any;
  for (CrcCache* crcs : {static_cast<CrcCache*>(nullptr), static_cast<CrcCache*>(&any)}) {
    g_polls = 0, g_poll_timeout = 0;
    os.poll = [](struct pollfd*, nfds_t, int timeout) { return ++g_polls, g_poll_timeout = timeout, 0; };
    bool stalled = false;
    EXPECT_FALSE(stream(crcs, kZipStallMs, 0, &stalled));
    EXPECT_TRUE(stalled);
    EXPECT_EQ(1, g_polls);
    EXPECT_EQ(60000, g_poll_timeout);
  }
  os_reset();  // and with the real poll, a short stall time
  bool stalled = false;
  EXPECT_FALSE(stream(nullptr, 50, 1000, &stalled));
  EXPECT_TRUE(stalled);
  EXPECT_TRUE(stream(nullptr, 50, (3 << 20) + 200, &stalled));  // a reader that keeps up is never cut
  EXPECT_FALSE(stalled);
}

// Spliced bytes still in the pipe: the wait for the reader to take them
// gives up after the stall time too.
TEST_F(ZipStall, AReaderThatStopsBeforeSplicedBytesAreTakenEndsTheArchive) {
  root_.write("/d/big.bin", std::string(kSpliceMin, 'b'));
  os.usleep = [](useconds_t us) { return g_slept_us += us, 0; };
  AnyCrc any;
  bool stalled = false;
  EXPECT_FALSE(stream(&any, kZipStallMs, 64 << 10, &stalled, 1 << 20));
  EXPECT_TRUE(stalled);
  EXPECT_GE(g_slept_us, 60u * 1000 * 1000);
  EXPECT_LT(g_slept_us, 120u * 1000 * 1000);

  // One that takes a little in every pause is waited for, minutes if need be.
  g_slept_us = 0;
  os.usleep = [](useconds_t us) {
    char buf[512];
    return g_slept_us += us, read(g_drain_fd, buf, sizeof buf) > 0 ? 0 : -1;
  };
  EXPECT_TRUE(stream(&any, kZipStallMs, 64 << 10, &stalled, 1 << 20));
  EXPECT_FALSE(stalled);
  EXPECT_GT(g_slept_us, 60u * 1000 * 1000);
}

class ZipSlots : public ::testing::Test {
 protected:
  void SetUp() override { root_.mkdirs("/etc/config"), g_logged.clear(); }
  void TearDown() override { os_reset(), set_syslog_report_observer(nullptr); }
  ApplianceRoot root_;
  ScopedEnv env_{{{"SHARELINK_ROOT", root_.dir()}}};
};

TEST_F(ZipSlots, OneArchivePerClientAndThreeInAll) {
  using C = ZipSlot::Claim;
  auto a = std::make_unique<ZipSlot>("192.0.2.1");
  EXPECT_EQ(C::kHeld, a->claim());
  EXPECT_EQ(C::kSameClient, ZipSlot("192.0.2.1").claim());
  auto b = std::make_unique<ZipSlot>("2001:db8:1:2::/64");
  ZipSlot c("192.0.2.3");
  EXPECT_TRUE(b->claim() == C::kHeld && c.claim() == C::kHeld);
  EXPECT_EQ(C::kBusy, ZipSlot("192.0.2.4").claim());
  EXPECT_EQ(C::kSameClient, ZipSlot("2001:db8:1:2::/64").claim());  // said before "busy"
  b.reset();
  EXPECT_EQ(C::kHeld, ZipSlot("192.0.2.4").claim());
  EXPECT_EQ(C::kHeld, ZipSlot("2001:db8:1:2::/64").claim());
  for (const char* f : {"share_zip_slot.0", "share_zip_slot.1", "share_zip_slot.2"}) {
    EXPECT_EQ(std::string::npos, root_.read(std::string("/etc/config/") + f).find("192.0.2"));
  }
}

// Slot files that cannot be locked, read or written refuse the archive and
// say why in the system log.
TEST_F(ZipSlots, UnusableSlotFilesRefuseAndAreLogged) {
  set_syslog_report_observer([](const char* line) { g_logged += line; });
  ZipSlot holder("192.0.2.9");  // a busy slot to read
  struct Case { const char* what; void (*fault)(); };
  const Case cases[] = {
      {"flock", [] { os.flock = [](int, int) { return errno = ENOLCK, -1; }; }},
      {"read", [] { os.read = [](int, void*, size_t) -> ssize_t { return errno = EIO, -1; }; }},
      {"write", [] { os.write = [](int, const void*, size_t) -> ssize_t { return errno = ENOSPC, -1; }; }},
      {"open", [] { os.open = [](const char*, int, mode_t) { return errno = EACCES, -1; }; }},
  };
  for (const Case& c : cases) {
    g_logged.clear();
    c.fault();
    EXPECT_EQ(ZipSlot::Claim::kBroken, ZipSlot("192.0.2.1").claim()) << c.what;
    EXPECT_NE(std::string::npos, g_logged.find("archive slot")) << c.what;
    os_reset();
  }
  EXPECT_EQ(ZipSlot::Claim::kHeld, ZipSlot("192.0.2.1").claim());
}

}  // namespace
