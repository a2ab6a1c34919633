// The registry's reading and rewriting discipline, shared by the refresh and
// the edits (internal to this folder).
//
// Lines are read through one buffered stream in pieces of the caller's
// buffer size (a longer line arrives as several pieces). The new content is
// written through one stream into a companion file in the same folder; the
// registry is replaced only when that file was written in full and reached
// the disk, by one rename, so a reader always finds either the old or the
// new registry. On any failure the companion is removed and the registry
// stays as it was.
#ifndef SLT_REGISTRY_REWRITE_H_
#define SLT_REGISTRY_REWRITE_H_

#include <cstddef>
#include <cstdio>
#include <string>

// Reads an appliance file line by line; closes it on destruction.
class RegistryReader {
 public:
  RegistryReader() = default;
  ~RegistryReader() { close(); }
  RegistryReader(const RegistryReader&) = delete;
  RegistryReader& operator=(const RegistryReader&) = delete;

  // Opens `path` for reading. false when it cannot be opened.
  bool open(const char* path);
  // The next piece of at most size - 1 bytes, ending at a newline (kept) or
  // where the buffer is full; false at the end of the file or on an error.
  bool next(char* buf, int size);
  // True when reading stopped on an error rather than at the end.
  bool failed() const;
  void close();

 private:
  FILE* f_ = nullptr;
};

// Writes the companion file of a rewrite through one stream.
class RegistryRewrite {
 public:
  RegistryRewrite() = default;
  // A rewrite neither committed nor discarded is closed; its file stays.
  ~RegistryRewrite() { close(); }
  RegistryRewrite(const RegistryRewrite&) = delete;
  RegistryRewrite& operator=(const RegistryRewrite&) = delete;

  // Opens the appliance file `path` with fopen mode `mode` ("wb", "ab").
  // false when it cannot be opened (nothing is removed).
  bool open(const char* path, const char* mode);
  // Appends one line. The first failed write is reported as sf_appendData
  // reports it; it and every later append then return false without writing
  // (a full disk must not cost one report per line) and the commit fails.
  bool append(const char* line, size_t len);
  // Gives the file the mode and owner of `target` (when it exists), flushes
  // it to the disk, closes it and renames it over `target`, then flushes the
  // folder. 1 on success. -1 when a line or the flush failed (a flush failure
  // is reported under `who`, once) or the rename failed: the companion is
  // removed and `target` left untouched.
  int commit(const char* target, const char* who);
  // Closes the stream and keeps the file as written so far.
  void close();
  // Closes the stream and removes the file.
  void discard();

 private:
  void keep_owner_and_mode(const char* target);

  FILE* f_ = nullptr;
  std::string path_;
  bool failed_ = false;
};

#endif  // SLT_REGISTRY_REWRITE_H_
