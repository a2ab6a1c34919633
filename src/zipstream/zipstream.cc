#include "zipstream/zipstream.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string>

#include "platform/fs.h"
#include "platform/os.h"
#include "platform/terminal_text.h"

namespace {

constexpr uint32_t kMax32 = 0xFFFFFFFFu;
constexpr uint16_t kMax16 = 0xFFFFu;
constexpr uint16_t kFlagDescriptor = 0x0008;
constexpr uint16_t kFlagUtf8 = 0x0800;
constexpr size_t kLocalFixed = 30;
constexpr size_t kCentralFixed = 46;
constexpr size_t kEndFixed = 22;
constexpr size_t kEnd64 = 56;
constexpr size_t kLocator64 = 20;

bool size64(const ZipPlan::Entry& e) { return e.size >= kMax32; }

// Local header + data + descriptor of one entry.
uint64_t local_record(const ZipPlan::Entry& e) {
  uint64_t n = kLocalFixed + e.name_len + (size64(e) ? 20 : 0);
  if (!e.dir) n += e.size + (size64(e) ? 24 : 16);
  return n;
}

size_t central_extra(const ZipPlan::Entry& e, uint64_t offset) {
  size_t n = (size64(e) ? 16 : 0) + (offset >= kMax32 ? 8 : 0);
  return n == 0 ? 0 : n + 4;
}

bool needs_end64(uint64_t count, uint64_t cd_size, uint64_t cd_offset) {
  return count >= kMax16 || cd_size >= kMax32 || cd_offset >= kMax32;
}

uint32_t dos_time(time_t t) {
  struct tm tm;
  if (localtime_r(&t, &tm) == nullptr || tm.tm_year < 80) return (1 << 5 | 1) << 16;  // 1980-01-01
  if (tm.tm_year > 207) return 0xFF9FBF7Du;  // 2107-12-31 23:59:58
  uint32_t date = static_cast<uint32_t>((tm.tm_year - 80) << 9 | (tm.tm_mon + 1) << 5 | tm.tm_mday);
  uint32_t tod = static_cast<uint32_t>(tm.tm_hour << 11 | tm.tm_min << 5 | tm.tm_sec / 2);
  return date << 16 | tod;
}

// Little-endian record builder.
class Rec {
 public:
  void u16(uint32_t v) {
    b_.push_back(static_cast<unsigned char>(v));
    b_.push_back(static_cast<unsigned char>(v >> 8));
  }
  void u32(uint32_t v) {
    u16(v & 0xFFFF);
    u16(v >> 16);
  }
  void u64(uint64_t v) {
    u32(static_cast<uint32_t>(v));
    u32(static_cast<uint32_t>(v >> 32));
  }
  // The name as readers should see it: bytes that are not UTF-8, backslashes
  // (a folder separator to some extractors) and characters that act on a
  // terminal or reorder what it shows (controls, bidi overrides) become "_",
  // one per byte, so the plan's sizes hold.
  void name(const char* s, size_t n) {
    for (size_t i = 0; i < n;) {
      uint32_t cp = 0;
      size_t len = utf8_sequence(s + i, n - i, &cp);
      const bool plain = len > 0 && cp != '\\' && !is_hidden_control(cp);
      if (len == 0) len = 1;
      for (size_t k = 0; k < len; ++k) b_.push_back(plain ? static_cast<unsigned char>(s[i + k]) : '_');
      i += len;
    }
  }
  bool send(ZipSink* sink) {
    bool ok = sink->write(b_.data(), b_.size());
    b_.clear();
    return ok;
  }

 private:
  std::vector<unsigned char> b_;
};

uint16_t version(bool z64) { return z64 ? 45 : 20; }

}  // namespace

bool ZipPlan::add(const char* name, size_t len, bool dir, uint64_t size, time_t mtime) {
  if (len == 0 || len > kMax16 || name[0] == '/' || (dir ? name[len - 1] != '/' : name[len - 1] == '/')) {
    return false;
  }
  // Every component is a plain name.
  size_t start = 0;
  const size_t body = dir ? len - 1 : len;
  while (start <= body) {
    const void* slash = memchr(name + start, '/', body - start);
    size_t end = slash != nullptr ? static_cast<size_t>(static_cast<const char*>(slash) - name) : body;
    size_t n = end - start;
    if (n == 0 || (n == 2 && name[start] == '.' && name[start + 1] == '.') ||
        (n == 1 && name[start] == '.') || memchr(name + start, '\0', n) != nullptr) {
      return false;
    }
    start = end + 1;
  }
  // The name goes after the last one when it fits there, else at the start
  // of a new block (also when the last block is exactly full).
  uint32_t off = names_end_;
  const uint64_t room = static_cast<uint64_t>(blocks_.size()) * block_ - off;
  if (len > room) {
    if (len > block_ || (blocks_.size() + 1) * static_cast<uint64_t>(block_) > kMax32) return false;
    off = static_cast<uint32_t>(blocks_.size() * block_);
    blocks_.emplace_back(new char[block_]);
  }
  Entry e{};
  e.size = dir ? 0 : size;
  e.name_off = off;
  e.name_len = static_cast<uint16_t>(len);
  e.dir = dir ? 1 : 0;
  e.dos_time = dos_time(mtime);
  memcpy(blocks_[off / block_].get() + off % block_, name, len);
  names_end_ = off + static_cast<uint32_t>(len);
  entries_.push_back(e);
  return true;
}

void ZipPlan::sort_tail(size_t from, size_t common) {
  std::sort(entries_.begin() + static_cast<std::ptrdiff_t>(from), entries_.end(),
            [this, common](const Entry& a, const Entry& b) {
              const char* pa = blocks_[a.name_off / block_].get() + a.name_off % block_ + common;
              const char* pb = blocks_[b.name_off / block_].get() + b.name_off % block_ + common;
              const size_t la = a.name_len - common, lb = b.name_len - common;
              const int c = memcmp(pa, pb, la < lb ? la : lb);
              return c != 0 ? c < 0 : la < lb;
            });
}

uint64_t ZipPlan::content_size() const {
  uint64_t n = 0;
  for (const Entry& e : entries_) n += e.size;
  return n;
}

uint64_t ZipPlan::total_size() const {
  uint64_t offset = 0;
  uint64_t cd = 0;
  for (const Entry& e : entries_) {
    cd += kCentralFixed + e.name_len + central_extra(e, offset);
    offset += local_record(e);
  }
  uint64_t n = offset + cd + kEndFixed;
  if (needs_end64(entries_.size(), cd, offset)) n += kEnd64 + kLocator64;
  return n;
}

bool zip_stream(ZipPlan* plan, ZipSource* source, ZipSink* sink) {
  Rec r;
  uint64_t offset = 0;
  for (size_t i = 0; i < plan->count(); ++i) {
    ZipPlan::Entry& e = plan->entry(i);
    const bool z64 = size64(e);
    r.u32(0x04034b50);
    r.u16(version(z64 || offset >= kMax32));
    r.u16(kFlagUtf8 | (e.dir ? 0 : kFlagDescriptor));
    r.u16(0);  // stored
    r.u32(e.dos_time);
    // With a descriptor, CRC and sizes follow the data; zero here.
    r.u32(0);
    r.u32(z64 ? kMax32 : 0);
    r.u32(z64 ? kMax32 : 0);
    r.u16(e.name_len);
    r.u16(z64 ? 20 : 0);
    r.name(plan->name(i), e.name_len);
    if (z64) {
      r.u16(1);
      r.u16(16);
      r.u64(0);
      r.u64(0);
    }
    if (!r.send(sink)) return false;
    if (!e.dir) {
      uint32_t crc = 0;
      if (!source->send(*plan, i, sink, &crc)) return false;
      e.crc = crc;
      r.u32(0x08074b50);
      r.u32(crc);
      if (z64) {
        r.u64(e.size);
        r.u64(e.size);
      } else {
        r.u32(static_cast<uint32_t>(e.size));
        r.u32(static_cast<uint32_t>(e.size));
      }
      if (!r.send(sink)) return false;
    }
    offset += local_record(e);
  }
  // The CRCs go out in the central directory: only once they are known true.
  if (!sink->settle()) return false;
  const uint64_t cd_offset = offset;
  uint64_t cd_size = 0;
  offset = 0;
  for (size_t i = 0; i < plan->count(); ++i) {
    const ZipPlan::Entry& e = plan->entry(i);
    const bool z64 = size64(e);
    const bool off64 = offset >= kMax32;
    const size_t extra = central_extra(e, offset);
    r.u32(0x02014b50);
    r.u16(3 << 8 | version(z64 || off64));  // made on Unix
    r.u16(version(z64 || off64));
    r.u16(kFlagUtf8 | (e.dir ? 0 : kFlagDescriptor));
    r.u16(0);
    r.u32(e.dos_time);
    r.u32(e.crc);
    r.u32(z64 ? kMax32 : static_cast<uint32_t>(e.size));
    r.u32(z64 ? kMax32 : static_cast<uint32_t>(e.size));
    r.u16(e.name_len);
    r.u16(static_cast<uint32_t>(extra));
    r.u16(0);  // comment
    r.u16(0);  // disk
    r.u16(0);  // internal attributes
    r.u32(e.dir ? (040755u << 16 | 0x10) : 0100644u << 16);
    r.u32(off64 ? kMax32 : static_cast<uint32_t>(offset));
    r.name(plan->name(i), e.name_len);
    if (extra != 0) {
      r.u16(1);
      r.u16(static_cast<uint32_t>(extra - 4));
      if (z64) {
        r.u64(e.size);
        r.u64(e.size);
      }
      if (off64) r.u64(offset);
    }
    if (!r.send(sink)) return false;
    cd_size += kCentralFixed + e.name_len + extra;
    offset += local_record(e);
  }
  const uint64_t count = plan->count();
  if (needs_end64(count, cd_size, cd_offset)) {
    r.u32(0x06064b50);
    r.u64(kEnd64 - 12);
    r.u16(3 << 8 | 45);
    r.u16(45);
    r.u32(0);
    r.u32(0);
    r.u64(count);
    r.u64(count);
    r.u64(cd_size);
    r.u64(cd_offset);
    r.u32(0x07064b50);
    r.u32(0);
    r.u64(cd_offset + cd_size);
    r.u32(1);
  }
  r.u32(0x06054b50);
  r.u16(0);
  r.u16(0);
  r.u16(count >= kMax16 ? kMax16 : static_cast<uint32_t>(count));
  r.u16(count >= kMax16 ? kMax16 : static_cast<uint32_t>(count));
  r.u32(cd_size >= kMax32 ? kMax32 : static_cast<uint32_t>(cd_size));
  r.u32(cd_offset >= kMax32 ? kMax32 : static_cast<uint32_t>(cd_offset));
  r.u16(0);
  return r.send(sink);
}

FdSink::FdSink(int fd, int stall_ms)
    : fd_(fd), pipe_(fs_is_pipe(fd)), stall_ms_(stall_ms), buf_(64 * 1024) {
  // A blocking write waits for as long as the reader does; this one waits
  // in poll, which gives up.
  if (stall_ms_ > 0 && !fs_set_nonblocking(fd_)) stall_ms_ = 0;
}

FdSink::~FdSink() {
  flush();
  for (const Spliced& s : spliced_) os.close(s.fd);
}

bool same_file_state(const struct stat& a, const struct stat& b) {
  return a.st_dev == b.st_dev && a.st_ino == b.st_ino && a.st_size == b.st_size &&
         a.st_mtim.tv_sec == b.st_mtim.tv_sec && a.st_mtim.tv_nsec == b.st_mtim.tv_nsec &&
         a.st_ctim.tv_sec == b.st_ctim.tv_sec && a.st_ctim.tv_nsec == b.st_ctim.tv_nsec;
}

bool FdSink::wait_writable() {
  for (;;) {
    struct pollfd p = {fd_, POLLOUT, 0};
    const int n = os.poll(&p, 1, stall_ms_ > 0 ? stall_ms_ : -1);
    if (n < 0 && errno == EINTR) continue;
    if (n == 0) stalled_ = true;
    return n > 0 && (p.revents & (POLLERR | POLLHUP | POLLNVAL)) == 0;
  }
}

FsSend FdSink::send_spliced(int fd, uint64_t size) {
  uint64_t done = 0;
  for (;;) {
    uint64_t sent = 0;
    const FsSend r = fs_send_file(fd_, fd, done, size - done, &sent);
    done += sent;
    written_ += sent;
    if (r == FsSend::kFailed && errno == EAGAIN && wait_writable()) continue;
    // Refused after bytes went out is a failure like any other.
    return r == FsSend::kRefused && done > 0 ? FsSend::kFailed : r;
  }
}

ZipSink::Splice FdSink::splice_file(int fd, uint64_t size, const struct stat& st) {
  if (!pipe_) return Splice::kCannot;
  if (!flush()) return Splice::kFailed;
  int keep = fs_dup(fd);
  if (keep < 0) return Splice::kCannot;
  const FsSend r = send_spliced(fd, size);
  if (r != FsSend::kDone) {  // refused: nothing sent; else shrank or the reader went away
    os.close(keep);
    broken_ = r != FsSend::kRefused;
    return r == FsSend::kRefused ? Splice::kCannot : Splice::kFailed;
  }
  spliced_.push_back(Spliced{keep, written_, st});
  return check_spliced(false) ? Splice::kSent : Splice::kFailed;
}

bool FdSink::check_spliced(bool all) {
  useconds_t pause = 1000;
  uint64_t idle_us = 0, last_taken = 0;
  while (!spliced_.empty()) {
    const long unread = fs_pipe_unread(fd_);
    if (unread < 0) return false;
    // Bytes written before this sink (the HTTP head) leave the pipe first,
    // so this never overstates what the reader took of ours.
    const uint64_t taken =
        written_ > static_cast<uint64_t>(unread) ? written_ - static_cast<uint64_t>(unread) : 0;
    while (!spliced_.empty() && spliced_.front().end <= taken) {
      Spliced s = spliced_.front();
      spliced_.pop_front();
      struct stat now;
      const bool same = fstat(s.fd, &now) == 0 && same_file_state(now, s.st);
      os.close(s.fd);
      if (!same) return false;
    }
    if (!all || spliced_.empty()) return true;
    if (fs_pipe_reader_gone(fd_)) return false;
    if (taken != last_taken) idle_us = 0, last_taken = taken;
    if (stall_ms_ > 0 && idle_us >= static_cast<uint64_t>(stall_ms_) * 1000) {
      stalled_ = true;
      return false;
    }
    os.usleep(pause);
    idle_us += pause;
    if (pause < 50000) pause *= 2;
  }
  return true;
}

bool FdSink::settle() { return flush() && check_spliced(true); }

bool FdSink::write_all(const void* data, size_t len) {
  const char* p = static_cast<const char*>(data);
  while (len > 0 && !broken_) {
    ssize_t n = os.write(fd_, p, len);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0 && errno == EAGAIN && wait_writable()) continue;
    if (n <= 0) break;
    p += n;
    len -= static_cast<size_t>(n);
    written_ += static_cast<uint64_t>(n);
  }
  broken_ = broken_ || len > 0;
  return !broken_;
}
bool FdSink::flush() {
  size_t n = used_;
  used_ = 0;
  return n == 0 || write_all(buf_.data(), n);
}

bool FdSink::write(const void* data, size_t len) {
  if (used_ + len <= buf_.size()) {
    memcpy(buf_.data() + used_, data, len);
    used_ += len;
    return true;
  }
  if (!flush()) return false;
  if (len <= buf_.size()) return write(data, len);
  // Large blocks (file data) go out directly.
  return write_all(data, len);
}
