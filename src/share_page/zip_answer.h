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

// Answers zip=1 for a verdict whose target is a folder or a multi-file link.
// `count` counts the download once the archive is planned (410 when the
// limit was reached meanwhile, 503 when it could not be recorded); `access`
// keeps the CRCs of big files for the next archive. 503 with Retry-After
// when every slot is busy. Returns the process's exit code.
int send_zip(const Verdict& v, bool head, const std::function<CountOutcome()>& count,
             AccessDb* access);

// The planned archive's size for the page's button; -1 when it cannot be
// planned.
long long zip_size(const Verdict& v);

#endif  // SLT_SHARE_PAGE_ZIP_ANSWER_H_
