// The share page's own state, beside the share-link store in the file
// "share_link_access.db" (the store itself keeps exactly its four tables):
// failed access codes for throttling, counted downloads for the one-hour
// repeat rule, the audit trail, and the CRC-32s of big files already zipped.
#ifndef SLT_SHARE_PAGE_ACCESS_DB_H_
#define SLT_SHARE_PAGE_ACCESS_DB_H_

#include <sqlite3.h>
#include <sys/stat.h>

#include <cstdint>

#include <ctime>
#include <string>

// One connection to the access file (WAL, busy time-out), tables made on
// first use. All calls are no-ops that answer "nothing found" when the file
// cannot be opened: the page then works without throttling memory.
class AccessDb {
 public:
  AccessDb();
  ~AccessDb();
  AccessDb(const AccessDb&) = delete;
  AccessDb& operator=(const AccessDb&) = delete;
  bool ok() const { return db_ != nullptr; }

  void record_failure(time_t now, const std::string& client, const std::string& ssid);
  // Seconds until the client may try again (0: not throttled): 5 failures in
  // 15 minutes for the client and link, or 20 in an hour across all links.
  long retry_after(time_t now, const std::string& client, const std::string& ssid);

  bool counted_recently(time_t now, const std::string& visitor, const std::string& ssid,
                        const std::string& item);
  void record_counted(time_t now, const std::string& visitor, const std::string& ssid,
                      const std::string& item);

  // The CRC kept for the file in exactly the state `st`; false when none is.
  bool known_crc(const struct stat& st, uint32_t* crc);
  void keep_crc(time_t now, const struct stat& st, uint32_t crc);

  void audit(time_t now, const std::string& ssid, const std::string& item,
             const std::string& client, const std::string& ua_hash, const std::string& event);

  // Prints the audit rows (of one link when ssid is not empty), oldest first,
  // one tab-separated line each: time, ssid, item, client, UA hash, event.
  int print_audit(const std::string& ssid, FILE* out);

 private:
  void exec(const char* sql);
  sqlite3* db_ = nullptr;
  bool crcs_pruned_ = false;
};

#endif  // SLT_SHARE_PAGE_ACCESS_DB_H_
