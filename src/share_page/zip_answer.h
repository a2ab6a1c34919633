// zip=1: a shared folder (or a multi-file link's files) as one streamed zip
// archive with an exact length. At most kZipSlots run at once per appliance,
// and at most one per client.
#ifndef SLT_SHARE_PAGE_ZIP_ANSWER_H_
#define SLT_SHARE_PAGE_ZIP_ANSWER_H_

#include <functional>
#include <string>

#include "share_page/access_db.h"
#include "share_page/gate.h"
#include "zipstream/zipstream.h"

constexpr int kZipSlots = 3;
// A reader that takes nothing for this long ends its archive and frees the
// slot (the web server itself would wait minutes).
constexpr int kZipStallMs = 60 * 1000;

// A zip slot claimed for one client: flock on one of the slot files beside
// the store, given back when the object goes (or the process ends). A held
// slot's file names its client by a hash; claims look at them under a short
// lock of the whole set, so one client never holds two slots.
class ZipSlot {
 public:
  enum class Claim {
    kHeld,        // this object holds a slot
    kBusy,        // every slot is held
    kSameClient,  // the client holds one already
    kBroken,      // the slot files cannot be used (logged)
  };
  // `client` as throttling counts it (client_key).
  explicit ZipSlot(const std::string& client);
  ~ZipSlot();
  ZipSlot(const ZipSlot&) = delete;
  ZipSlot& operator=(const ZipSlot&) = delete;
  Claim claim() const { return claim_; }

 private:
  Claim claim_ = Claim::kBroken;
  int fd_ = -1;
};

// Answers zip=1 for a verdict whose target is a folder or a multi-file link.
// `client` is the requester as client_key() gives it; `count` counts the
// download once the archive is planned (410 when the limit was reached
// meanwhile, 503 when it could not be recorded); `access` keeps the CRCs of
// big files for the next archive. The store's folder is never archived or
// entered. 503 with Retry-After when every slot is busy, 429 when this client
// streams an archive already, 403 for a tree deeper than kMaxFolderDepth;
// none of them counts. Returns the process's exit code.
int send_zip(const Verdict& v, bool head, const std::string& client,
             const std::function<CountOutcome()>& count, AccessDb* access);

// The planned archive's size for the page's button; -1 when it cannot be
// planned (too deep, unreadable, or the client left meanwhile).
long long zip_size(const Verdict& v);

#endif  // SLT_SHARE_PAGE_ZIP_ANSWER_H_
