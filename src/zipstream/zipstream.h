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
  virtual ~ZipSink() = default;
  virtual bool write(const void* data, size_t len) = 0;
};

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
class FdSink : public ZipSink {
 public:
  explicit FdSink(int fd);
  ~FdSink() override;
  bool write(const void* data, size_t len) override;
  bool flush();
  uint64_t written() const { return written_; }

 private:
  bool write_all(const void* data, size_t len);
  int fd_;
  std::vector<unsigned char> buf_;
  size_t used_ = 0;
  uint64_t written_ = 0;
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
  explicit FolderSource(int dirfd) : dirfd_(dirfd) {}
  bool send(const ZipPlan& plan, size_t i, ZipSink* sink, uint32_t* crc) override;

 private:
  int dirfd_;
};

// Sends `size` bytes of the open regular file fd from its start, checking its
// size before and after. Used by every source that reads real files.
bool send_file_bytes(int fd, uint64_t size, ZipSink* sink, uint32_t* crc);

// Opens `rel` ("a/b/c", no trailing slash) beneath dirfd with openat on each
// component and O_NOFOLLOW throughout; the last with `flags`. A descriptor
// or -1.
int open_beneath_nofollow(int dirfd, const char* rel, size_t len, int flags);

#endif  // SLT_ZIPSTREAM_ZIPSTREAM_H_
