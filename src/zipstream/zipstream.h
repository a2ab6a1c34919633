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
#include <functional>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "platform/fs.h"
#include "platform/fs_beneath.h"

class ZipPlan {
 public:
  // Names are kept in blocks of this many bytes.
  static constexpr uint32_t kNameBlock = 128 * 1024;

  // `name_block` bytes per name block (a name never spans two, so none can
  // be longer); the fuzzer plans with small blocks to cross many.
  explicit ZipPlan(uint32_t name_block = kNameBlock) : block_(name_block > 0 ? name_block : 1) {}

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
  // empty, absolute, holds a "." , ".." or empty component, or does not fit
  // (longer than a block, or the names would pass 4 GiB).
  bool add(const char* name, size_t len, bool dir, uint64_t size, time_t mtime);
  size_t count() const { return entries_.size(); }
  const Entry& entry(size_t i) const { return entries_[i]; }
  Entry& entry(size_t i) { return entries_[i]; }
  const char* name(size_t i) const {
    const uint32_t off = entries_[i].name_off;
    return blocks_[off / block_].get() + off % block_;
  }
  // Sorts entries [from, count()) by name, comparing after their first
  // `common` bytes (a prefix they share).
  void sort_tail(size_t from, size_t common);
  // Bytes of the whole archive.
  uint64_t total_size() const;
  // Bytes of the files' contents alone.
  uint64_t content_size() const;

 private:
  // Entries and names grow in blocks, never by copying: no doubled peak.
  uint32_t block_;
  std::deque<Entry> entries_;
  std::vector<std::unique_ptr<char[]>> blocks_;
  uint32_t names_end_ = 0;  // just past the last name; blocks_.size() * block_ when full
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
  // With `stall_ms` above 0 the descriptor is made non-blocking and a reader
  // that takes nothing for that long ends the stream (every later write
  // fails at once); 0 waits as long as the reader does.
  explicit FdSink(int fd, int stall_ms = 0);
  ~FdSink() override;
  bool write(const void* data, size_t len) override;
  Splice splice_file(int fd, uint64_t size, const struct stat& st) override;
  bool settle() override;
  bool flush();
  uint64_t written() const { return written_; }
  // True once the reader took nothing for the stall time.
  bool stalled() const { return stalled_; }

 private:
  struct Spliced {
    int fd;
    uint64_t end;  // written_ after its last byte
    struct stat st;
  };
  bool write_all(const void* data, size_t len);
  // Waits until the descriptor takes bytes again; false when the reader went
  // away or the stall time passed.
  bool wait_writable();
  // fs_send_file, waiting whenever the pipe is full.
  FsSend send_spliced(int fd, uint64_t size);
  // Checks the spliced files whose bytes the reader has taken; with `all`,
  // waits until it has taken them all. False when one changed, the reader
  // went away or took nothing for the stall time.
  bool check_spliced(bool all);
  int fd_;
  bool pipe_;
  int stall_ms_;
  bool broken_ = false;  // a write failed: nothing more goes out
  bool stalled_ = false;
  std::vector<unsigned char> buf_;
  size_t used_ = 0;
  uint64_t written_ = 0;
  std::deque<Spliced> spliced_;
};

// Files and folders by device and inode.
using FileIds = std::set<std::pair<dev_t, ino_t>>;

// What a folder walk leaves out, and when it gives up.
struct FolderWalk {
  // Never archived nor entered (the store's folder and its companions,
  // should they lie inside a share); hard links to them are the same inode.
  FileIds excluded;
  // Asked between folders and every few hundred entries; true ends the walk
  // (the client has gone).
  std::function<bool()> stop;
  bool skips(const struct stat& st) const {
    return excluded.count({st.st_dev, st.st_ino}) != 0;
  }
};

// Folders nested deeper than this beneath the archived folder are not
// walked: each level holds a descriptor while its subfolders are, and 128
// levels of 255-byte names still fit an entry name's 65,535 bytes.
constexpr int kMaxFolderDepth = 128;

enum class PlanStatus {
  kPlanned,
  kFailed,   // the folder cannot be read, or the plan would not fit
  kTooDeep,  // a folder lies more than kMaxFolderDepth levels down
  kStopped,  // walk.stop() said so
};

// Plans the folder open at dirfd: every folder and regular file beneath it
// whose name does not begin with "." and that the walk does not exclude,
// names relative to it; symbolic links and other files are skipped, empty
// folders kept. A folder's entries come sorted by name, then its subfolders'
// contents in that order, each folder opened from its parent's descriptor
// with O_NOFOLLOW (one open per folder, at most kMaxFolderDepth held). On
// any status but kPlanned the plan is partial and not to be sent.
PlanStatus plan_folder(int dirfd, ZipPlan* plan, const FolderWalk& walk = FolderWalk());

// Sends the files of a folder plan in plan order, each opened from its
// folder's descriptor without following any link and checked to be a
// regular file the walk does not exclude, of the planned size before and
// after its bytes. The folders of the current entry stay open, so a plan in
// plan_folder's order opens each folder once.
class FolderSource : public ZipSource {
 public:
  explicit FolderSource(int dirfd, CrcCache* crcs = nullptr, const FolderWalk* walk = nullptr)
      : dirfd_(dirfd), crcs_(crcs), walk_(walk) {}
  bool send(const ZipPlan& plan, size_t i, ZipSink* sink, uint32_t* crc) override;

 private:
  // Makes `dir` ("" or "a/b/") the open folders; false when one of them
  // cannot be opened.
  bool enter(const char* dir, size_t len);
  int dirfd_;
  CrcCache* crcs_;
  const FolderWalk* walk_;
  std::string path_;            // the folders open now, "" or "a/b/"
  std::vector<UniqueFd> open_;  // one per folder of path_, outermost first
};

// Sends `size` bytes of the open regular file fd from its start, checking its
// size before and after. Used by every source that reads real files. With
// `crcs`, a big file whose CRC is known is spliced, and one read here that
// had not changed for a while before and did not change while it was read
// has its CRC kept.
bool send_file_bytes(int fd, uint64_t size, ZipSink* sink, uint32_t* crc,
                     CrcCache* crcs = nullptr);

#endif  // SLT_ZIPSTREAM_ZIPSTREAM_H_
