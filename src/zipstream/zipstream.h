// Folders as one zip archive, streamed: every entry is STOREd (sent as it
// is), so the archive's exact length is known from the plan before the first
// byte goes out, and nothing is built in a temporary file.
//
// A plan is the list of entries (relative name, size, time, folder or file),
// kept compact: one fixed record per entry and all names in one buffer, so a
// folder of 70,000 files plans in a couple of MiB. ZIP64 records appear only
// where a size, an offset or the entry count needs them; names carry the
// UTF-8 flag; file entries use a data descriptor, so each CRC follows its data.
#ifndef SLT_ZIPSTREAM_ZIPSTREAM_H_
#define SLT_ZIPSTREAM_ZIPSTREAM_H_

#include <sys/stat.h>
#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <ctime>
#include <deque>
#include <string>
#include <memory>
#include <vector>

class ZipPlan {
 public:
  struct Entry {
    uint64_t size;
    uint32_t name_off;
    uint16_t name_len;
    uint8_t dir;
    uint8_t unused;
    uint32_t dos_time;  // date << 16 | time
    uint32_t crc;       // filled while streaming
  };

  // Adds an entry; a folder's name ends with "/". False when the name is
  // empty, absolute, holds a ".." or empty component, or does not fit.
  bool add(const char* name, size_t len, bool dir, uint64_t size, time_t mtime);
  size_t count() const { return entries_.size(); }
  const Entry& entry(size_t i) const { return entries_[i]; }
  Entry& entry(size_t i) { return entries_[i]; }
  const char* name(size_t i) const {
    const uint32_t off = entries_[i].name_off;
    return blocks_[off / kBlock].get() + off % kBlock;
  }
  // Bytes of the whole archive.
  uint64_t total_size() const;
  // Bytes of the files' contents alone.
  uint64_t content_size() const;

 private:
  // Entries and names grow in blocks, never by copying: no doubled peak.
  static constexpr uint32_t kBlock = 128 * 1024;
  std::deque<Entry> entries_;
  std::vector<std::unique_ptr<char[]>> blocks_;
  uint32_t names_end_ = 0;  // next free offset; a name never spans two blocks
};

// Where the archive goes.
class ZipSink {
 public:
  enum class Splice { kSent, kCannot, kFailed };
  virtual ~ZipSink() = default;
  virtual bool write(const void* data, size_t len) = 0;
  // Sends `size` bytes of the regular file fd from its start without reading
  // them in this process; `st` is the file as it was when its CRC was known.
  // kSent: sent, and the sink will check the file stayed as `st` until its
  // bytes were taken; kCannot: nothing written, read and write it instead;
  // kFailed: the stream must stop.
  virtual Splice splice_file(int /*fd*/, uint64_t /*size*/, const struct stat& /*st*/) {
    return Splice::kCannot;
  }
  // Before the central directory: true when every spliced file stayed as it
  // was until its last byte had been taken from the sink.
  virtual bool settle() { return true; }
};

// CRC-32s of files already sent once, keyed by everything a change of the
// file's content changes (device, inode, size, modification and change
// times). find() true fills crc; keep() records one.
class CrcCache {
 public:
  virtual ~CrcCache() = default;
  virtual bool find(const struct stat& st, uint32_t* crc) = 0;
  virtual void keep(const struct stat& st, uint32_t crc) = 0;
};

// True when a and b show one file in one state: device, inode, size and
// both times equal.
bool same_file_state(const struct stat& a, const struct stat& b);

// Files at least this big are worth a cached CRC: their bytes can then be
// spliced instead of read, summed and written.
constexpr uint64_t kSpliceMin = 1 << 20;

// Where the entries' bytes come from. send() writes exactly the planned size
// of file entry i to the sink and gives its CRC-32; false when the entry cannot be
// sent as planned (gone, changed size, unreadable): the stream then stops.
class ZipSource {
 public:
  virtual ~ZipSource() = default;
  virtual bool send(const ZipPlan& plan, size_t i, ZipSink* sink, uint32_t* crc) = 0;
};

// Streams the planned archive. True when all total_size() bytes were written.
bool zip_stream(ZipPlan* plan, ZipSource* source, ZipSink* sink);

// A sink writing to a descriptor through a buffer (the OS seam's write).
// When the descriptor is a pipe it splices files with a known CRC into it,
// and checks each such file again once the reader has taken its last byte:
// until then the pipe holds the page cache's pages, not a copy.
class FdSink : public ZipSink {
 public:
  explicit FdSink(int fd);
  ~FdSink() override;
  bool write(const void* data, size_t len) override;
  Splice splice_file(int fd, uint64_t size, const struct stat& st) override;
  bool settle() override;
  bool flush();
  uint64_t written() const { return written_; }

 private:
  struct Spliced {
    int fd;
    uint64_t end;  // written_ after its last byte
    struct stat st;
  };
  bool write_all(const void* data, size_t len);
  // Checks the spliced files whose bytes the reader has taken; with `all`,
  // waits until it has taken them all. False when one changed or the reader
  // went away.
  bool check_spliced(bool all);
  int fd_;
  bool pipe_;
  std::vector<unsigned char> buf_;
  size_t used_ = 0;
  uint64_t written_ = 0;
  std::deque<Spliced> spliced_;
};

// Plans the folder open at dirfd: every folder and regular file beneath it,
// names relative to it; symbolic links and other files are skipped, empty
// folders kept. Folders are read one at a time (each by a walk from dirfd
// that follows no link). False when the folder cannot be read or the plan
// would not fit.
bool plan_folder(int dirfd, ZipPlan* plan);

// Sends the files of a folder plan, each opened beneath dirfd without
// following any link and checked to be the planned regular file of the
// planned size, before and after its bytes.
class FolderSource : public ZipSource {
 public:
  explicit FolderSource(int dirfd, CrcCache* crcs = nullptr) : dirfd_(dirfd), crcs_(crcs) {}
  bool send(const ZipPlan& plan, size_t i, ZipSink* sink, uint32_t* crc) override;

 private:
  int dirfd_;
  CrcCache* crcs_;
};

// Sends `size` bytes of the open regular file fd from its start, checking its
// size before and after. Used by every source that reads real files. With
// `crcs`, a big file whose CRC is known is spliced, and one read here that
// had not changed for a while before and did not change while it was read
// has its CRC kept.
bool send_file_bytes(int fd, uint64_t size, ZipSink* sink, uint32_t* crc,
                     CrcCache* crcs = nullptr);

// Opens `rel` ("a/b/c", no trailing slash) beneath dirfd with openat on each
// component and O_NOFOLLOW throughout; the last with `flags`. A descriptor
// or -1.
int open_beneath_nofollow(int dirfd, const char* rel, size_t len, int flags);

#endif  // SLT_ZIPSTREAM_ZIPSTREAM_H_
