#include "share_page/zip_answer.h"

#include <fcntl.h>
#include <sys/file.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <vector>

#include "crypto/digest.h"
#include "diag/syslog_report.h"
#include "platform/fs.h"
#include "platform/os.h"
#include "platform/root.h"
#include "share_page/access_db.h"
#include "share_page/file_send.h"
#include "share_page/page.h"
#include "sharelink_db/store.h"
#include "weblib/delivery_output.h"
#include "zipstream/zipstream.h"

namespace {

constexpr int kRetryAfter = 30;
constexpr int kSameClientRetry = 60;

// The files of a multi-file link, opened by the gate while planning.
class OpenFilesSource : public ZipSource {
 public:
  OpenFilesSource(std::vector<UniqueFd>* fds, CrcCache* crcs) : fds_(fds), crcs_(crcs) {}
  bool send(const ZipPlan& plan, size_t i, ZipSink* sink, uint32_t* crc) override {
    return send_file_bytes((*fds_)[i].get(), plan.entry(i).size, sink, crc, crcs_);
  }

 private:
  std::vector<UniqueFd>* fds_;
  CrcCache* crcs_;
};

class AccessCrcs : public CrcCache {
 public:
  explicit AccessCrcs(AccessDb* db) : db_(db) {}
  bool find(const struct stat& st, uint32_t* crc) override { return db_->known_crc(st, crc); }
  void keep(const struct stat& st, uint32_t crc) override {
    db_->keep_crc(os.time(nullptr), st, crc);
  }

 private:
  AccessDb* db_;
};

std::string zip_name(const std::string& base) {
  return (base.empty() || base == "/" ? std::string("share") : base) + ".zip";
}

// The archive's entries: the folder's tree, or the link's files, each under
// its base name (a repeated name gets its fid in front).
PlanStatus plan_share(const Verdict& v, const FolderWalk& walk, ZipPlan* plan,
                      std::vector<UniqueFd>* fds) {
  if (!v.target.multi) return plan_folder(v.target.folder.get(), plan, walk);
  std::vector<std::string> used;
  for (const auto& f : v.link.fids) {
    Target file;
    // Gone since the link was made, or one of the store's own files.
    if (!open_link_file(v.link, v.store, f.first, &file) || walk.skips(file.st)) continue;
    std::string name = file.name;
    for (const auto& u : used) {
      if (u == name) {
        name = f.first + "-" + name;
        break;
      }
    }
    if (!plan->add(name.data(), name.size(), false, static_cast<uint64_t>(file.st.st_size),
                   file.st.st_mtime)) {
      continue;
    }
    used.push_back(name);
    fds->push_back(std::move(file.file));
  }
  return PlanStatus::kPlanned;
}

// The store's folder is never entered, wherever the configuration puts it.
FolderWalk share_walk(const StoreFiles& store) {
  FolderWalk walk;
  walk.excluded = store.ids;
  // Nobody reads the answer any more: whatever is left is wasted.
  walk.stop = [] { return fs_pipe_reader_gone(1); };
  return walk;
}

const char kSlotGuard[] = "share_zip_slots.lock";
constexpr size_t kTagLen = 33;  // 32 hex digits of the client's hash and "\n"

int open_slot_file(const char* name) {
  return os.open(rooted_path(sf_beside_store(name).c_str()).c_str(),
                 O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600);
}

// Looks at slot i: kHeld when it was free and *mine was empty (it is then
// in *mine, locked), kSameClient when its holder is `tag`, kBusy otherwise
// (held by another, or free but not needed), kBroken when it cannot be told.
ZipSlot::Claim look_at_slot(int i, const std::string& tag, UniqueFd* mine) {
  char name[32];
  snprintf(name, sizeof name, "share_zip_slot.%d", i);
  UniqueFd fd(open_slot_file(name));
  if (fd.get() < 0) return ZipSlot::Claim::kBroken;
  if (os.flock(fd.get(), LOCK_EX | LOCK_NB) == 0) {
    if (mine->get() >= 0) return ZipSlot::Claim::kBusy;
    *mine = std::move(fd);
    return ZipSlot::Claim::kHeld;
  }
  if (errno != EWOULDBLOCK) return ZipSlot::Claim::kBroken;
  char held[kTagLen];
  const ssize_t n = os.read(fd.get(), held, sizeof held);
  if (n < 0) return ZipSlot::Claim::kBroken;
  return static_cast<size_t>(n) == tag.size() && memcmp(held, tag.data(), tag.size()) == 0
             ? ZipSlot::Claim::kSameClient
             : ZipSlot::Claim::kBusy;
}

ZipSlot::Claim claim_slot(const std::string& client, UniqueFd* mine) {
  UniqueFd guard(open_slot_file(kSlotGuard));
  if (guard.get() < 0 || os.flock(guard.get(), LOCK_EX) != 0) return ZipSlot::Claim::kBroken;
  const std::string tag = sha256_hex(client).substr(0, kTagLen - 1) + "\n";
  for (int i = 0; i < kZipSlots; ++i) {
    const ZipSlot::Claim c = look_at_slot(i, tag, mine);
    if (c == ZipSlot::Claim::kSameClient || c == ZipSlot::Claim::kBroken) return c;
  }
  if (mine->get() < 0) return ZipSlot::Claim::kBusy;
  // Every tag has the same length: it covers the last holder's entirely.
  if (os.write(mine->get(), tag.data(), tag.size()) != static_cast<ssize_t>(tag.size())) {
    return ZipSlot::Claim::kBroken;
  }
  return ZipSlot::Claim::kHeld;
}

int refuse_slot(ZipSlot::Claim claim, bool head) {
  Reply r = claim == ZipSlot::Claim::kSameClient
                ? error_reply(429, "An archive is already being downloaded from your address; "
                                   "please wait until it has finished, then try again.")
                : error_reply(503, "Too many archives are being downloaded right now; please try "
                                   "again in a minute.");
  r.headers.push_back("Retry-After: " + std::to_string(claim == ZipSlot::Claim::kSameClient
                                                           ? kSameClientRetry
                                                           : kRetryAfter));
  send_page(r, head);
  return 0;
}

}  // namespace

ZipSlot::ZipSlot(const std::string& client) {
  UniqueFd mine;
  claim_ = claim_slot(client, &mine);
  if (claim_ == Claim::kHeld) fd_ = mine.release();
  // Never served on a guess: the operator hears why archives are refused.
  if (claim_ == Claim::kBroken) log_syslog_error("share.cgi", "archive slot files beside the store");
}

ZipSlot::~ZipSlot() {
  if (fd_ >= 0) os.close(fd_);
}

long long zip_size(const Verdict& v) {
  ZipPlan plan;
  std::vector<UniqueFd> fds;
  if (plan_share(v, share_walk(v.store), &plan, &fds) != PlanStatus::kPlanned) return -1;
  return static_cast<long long>(plan.total_size());
}

int send_zip(const Verdict& v, bool head, const std::string& client,
             const std::function<CountOutcome()>& count, AccessDb* access) {
  ZipSlot slot(client);
  if (slot.claim() != ZipSlot::Claim::kHeld) return refuse_slot(slot.claim(), head);
  ZipPlan plan;
  std::vector<UniqueFd> fds;
  const FolderWalk walk = share_walk(v.store);
  switch (plan_share(v, walk, &plan, &fds)) {
    case PlanStatus::kPlanned: break;
    case PlanStatus::kStopped: return 1;
    case PlanStatus::kTooDeep:
      send_page(error_reply(403, "This folder holds folders nested more than " +
                                     std::to_string(kMaxFolderDepth) +
                                     " levels deep; please download its subfolders one by one."),
                head);
      return 0;
    case PlanStatus::kFailed:
      send_page(error_reply(404, "This link does not exist or is no longer shared."), head);
      return 0;
  }
  switch (head ? CountOutcome::kCounted : count()) {
    case CountOutcome::kCounted: break;
    case CountOutcome::kLimitReached:
      send_page(error_reply(410, "This link has reached its download limit."), head);
      return 0;
    case CountOutcome::kFailed: {
      const Verdict busy = share_unavailable();
      Reply r = error_reply(busy.status, busy.sentence);
      r.headers = busy.headers;
      send_page(r, head);
      return 0;
    }
  }
  std::string h = "Status: 200 OK\r\n" + security_headers(false) +
                  "Content-Type: application/zip\r\n"
                  "Content-Disposition: " + content_disposition(zip_name(v.target.name), false) +
                  "\r\nCache-Control: no-store\r\nContent-Length: " +
                  std::to_string(plan.total_size()) + "\r\n\r\n";
  if (!delivery_write(h.data(), h.size()) || !delivery_flush()) return 1;
  if (head) return 0;
  fs_widen_pipe(1, 1 << 20);
  FdSink sink(1, kZipStallMs);
  AccessCrcs crcs(access);
  FolderSource folder(v.target.folder.get(), &crcs, &walk);
  OpenFilesSource files(&fds, &crcs);
  ZipSource* source = v.target.multi ? static_cast<ZipSource*>(&files) : &folder;
  // A file that changed while being sent ends the answer short: the client
  // sees fewer bytes than announced, never an archive that lies.
  return zip_stream(&plan, source, &sink) && sink.flush() ? 0 : 1;
}
