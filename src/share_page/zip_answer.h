// zip=1: a shared folder (or a multi-file link's files) as one streamed zip
// archive with an exact length. At most kZipSlots run at once per appliance.
#ifndef SLT_SHARE_PAGE_ZIP_ANSWER_H_
#define SLT_SHARE_PAGE_ZIP_ANSWER_H_

#include <functional>
#include <string>

#include "share_page/access_db.h"
#include "share_page/gate.h"

constexpr int kZipSlots = 3;

// A held zip slot: flock on one of the slot files beside the store, given
// back when the object goes (or the process ends).
class ZipSlot {
 public:
  ZipSlot();
  ~ZipSlot();
  ZipSlot(const ZipSlot&) = delete;
  ZipSlot& operator=(const ZipSlot&) = delete;
  bool held() const { return fd_ >= 0; }

 private:
  int fd_ = -1;
};

// Answers zip=1 for a gate result that opened a folder or a multi-file link.
// `open_fid` opens one file of a multi-file link through the gate;
// `count` counts the download (false: the limit was reached meanwhile);
// `access` keeps the CRCs of big files for the next archive. 503 with
// Retry-After when every slot is busy. Returns the process's exit code.
int send_zip(const GateResult& g, bool head,
             const std::function<bool(const std::string& fid, GateResult* file)>& open_fid,
             const std::function<bool()>& count, AccessDb* access);

// The planned archive's size for the page's button; -1 when it cannot be
// planned.
long long zip_size(const GateResult& g,
                   const std::function<bool(const std::string& fid, GateResult* file)>& open_fid);

#endif  // SLT_SHARE_PAGE_ZIP_ANSWER_H_
