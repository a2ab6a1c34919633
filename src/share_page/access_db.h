// The share page's own state, beside the share-link store in the file
// "share_link_access.db" (the store itself keeps exactly its four tables):
// failed access codes and unknown links for throttling, counted downloads
// for the repeat rule, the audit trail, and the CRC-32s of big files already
// zipped.
//
// Nothing here fails open. Every call reports whether it could read or
// record; a caller that cannot record refuses the request. A file SQLite
// calls damaged (or that is not a usable file at all) is set aside and made
// anew, and the application log says so. Times are never trusted past the
// newest row: a clock far ahead prunes nothing, and a clock gone back never
// keeps a row in a window longer than the window.
#ifndef SLT_SHARE_PAGE_ACCESS_DB_H_
#define SLT_SHARE_PAGE_ACCESS_DB_H_

#include <sqlite3.h>
#include <sys/stat.h>

#include <cstdint>
#include <cstdio>
#include <ctime>
#include <string>

constexpr char kAccessFileName[] = "share_link_access.db";

// What a failure row is: a typed code that was wrong, or a lookup of a link
// that does not exist. They are throttled apart, so guessing links never
// locks a visitor out of a link whose code they know.
enum class FailureKind { kCode, kUnknownLink };

// How a count ended: counted, refused because the limit was reached, or
// not recorded at all (the store or the access file could not be written).
enum class CountOutcome { kCounted, kLimitReached, kFailed };

// What one counted download records with it, in the same transaction.
struct CountedVisit {
  time_t now = 0;
  std::string pkey;     // the store row whose count goes up
  std::string visitor;  // for the repeat rule
  std::string address_visitor;  // recorded too: a resume without cookies
  std::string item;     // "fid:F", "path:P" or ""
  std::string client;   // audit columns
  std::string ua_hash;
  std::string event;    // "download", "download:zip"
};

// One request per process: small SQLite caches keep the resident size low.
// Call before any connection is opened.
void access_db_one_request();

class AccessDb {
 public:
  enum class Mode {
    kServe,     // share.cgi: made on first use; a damaged file is set aside once
                // and made anew
    kInspect,   // the operator's reads: never made, changed or set aside, so a
                // run as another user leaves no file the web server cannot use
  };
  explicit AccessDb(Mode mode = Mode::kServe);
  ~AccessDb();
  AccessDb(const AccessDb&) = delete;
  AccessDb& operator=(const AccessDb&) = delete;
  // False when the file could be neither opened nor made: nothing can be
  // recorded and the caller must refuse.
  bool ok() const { return db_ != nullptr; }

  // One write transaction (BEGIN IMMEDIATE): the throttle's check and its
  // record, or a count and its records, happen inside one. Rolled back on
  // scope exit unless committed.
  class Write {
   public:
    explicit Write(AccessDb* db);
    ~Write();
    Write(const Write&) = delete;
    Write& operator=(const Write&) = delete;
    bool begun() const { return begun_; }
    bool commit();

   private:
    AccessDb* db_;
    bool begun_ = false;
  };

  // Seconds the client must wait before its next code for ssid (0: none):
  // 5 wrong codes in 15 minutes for the link, or 20 in an hour across links.
  // False when the rows could not be read.
  bool code_wait(time_t now, const std::string& client, const std::string& ssid, long* wait);
  // The same for looking up unknown links: 20 in an hour.
  bool unknown_wait(time_t now, const std::string& client, long* wait);
  bool record_failure(time_t now, const std::string& client, const std::string& ssid,
                      FailureKind kind);

  // Whether this visitor's download of the item counted within the hour.
  bool counted_recently(time_t now, const std::string& visitor, const std::string& ssid,
                        const std::string& item, bool* yes);

  // Counts one download of visit.pkey in the store (when its limit allows)
  // and records the visitor and the audit row, all in one transaction over
  // both files: a kill leaves either all of it or none.
  CountOutcome count_download(const CountedVisit& visit);

  // The CRC kept for the file in exactly the state `st`; false when none is.
  bool known_crc(const struct stat& st, uint32_t* crc);
  void keep_crc(time_t now, const struct stat& st, uint32_t crc);

  bool audit(time_t now, const std::string& ssid, const std::string& item,
             const std::string& client, const std::string& ua_hash, const std::string& event);

  // Drops rows past their keeping time, at most once a minute and a bounded
  // number per call. False when that could not be done.
  bool prune(time_t now);

  // Prints the audit rows (of one link when ssid is not empty), oldest first,
  // one tab-separated line each: time, ssid, item, client, UA hash, event.
  // 0 (also when there is no access file yet), or -1 when the rows could not
  // be read.
  int print_audit(const std::string& ssid, FILE* out);

  // "ok", "missing (made on first use)", or why the file is not usable;
  // runs SQLite's quick check.
  std::string health();

 private:
  bool open_file(const std::string& path);
  bool open_to_inspect(const std::string& path);
  bool exec(const char* sql);
  // Notes a failed statement; a damaged file is set aside for the next run.
  bool failed(int rc);
  // One line in the application log per run, for the operator.
  void log_failure(int rc, const char* what);
  sqlite3* db_ = nullptr;
  bool damaged_ = false;
  bool logged_ = false;
  bool missing_ = false;  // kInspect: there is no file yet
};

#endif  // SLT_SHARE_PAGE_ACCESS_DB_H_
