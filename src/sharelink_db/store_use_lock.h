// The lock between using the store and moving it.
//
// share.cgi reads the store's path, looks a link up and counts a download; a
// relocation moves the store and its companions and repoints the
// configuration. A count that lands in the old file after the move is lost,
// and a reader that finds the file gone answers wrongly. share.cgi holds this
// lock shared from reading the store path until its count commits; relocation
// holds it exclusive from before the move until the configuration names the
// new file. It is an flock on "/tmp/kdx_shareLink_use.lock", which any user
// can open (made with mode 0666), so the web server's user takes it as well
// as root. A gate file "/tmp/kdx_shareLink_use_gate.lock" keeps a steady
// stream of shared holders from starving a relocation that waits.
#ifndef SLT_SHARELINK_DB_STORE_USE_LOCK_H_
#define SLT_SHARELINK_DB_STORE_USE_LOCK_H_

extern const char kSfStoreUseLockFile[];   // "/tmp/kdx_shareLink_use.lock"
extern const char kSfStoreUseGateFile[];   // "/tmp/kdx_shareLink_use_gate.lock"

class StoreUseLock {
 public:
  enum Mode { kShared, kExclusive };
  // Blocks until the lock is held in `mode`, or fails (held() is false: a
  // lock file that cannot be opened or locked). Callers that cannot take it
  // must not use or move the store: they fail closed.
  explicit StoreUseLock(Mode mode);
  ~StoreUseLock();
  StoreUseLock(const StoreUseLock&) = delete;
  StoreUseLock& operator=(const StoreUseLock&) = delete;
  bool held() const { return fd_ >= 0; }
  // Gives the lock up early; held() is false afterwards.
  void release();

 private:
  int fd_ = -1;
  int gate_fd_ = -1;
};

#endif  // SLT_SHARELINK_DB_STORE_USE_LOCK_H_
