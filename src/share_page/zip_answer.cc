#include "share_page/zip_answer.h"

#include <fcntl.h>
#include <sys/file.h>

#include <cstdio>
#include <cstring>
#include <vector>

#include "platform/fs.h"
#include "platform/os.h"
#include "platform/root.h"
#include "share_page/access_db.h"
#include "share_page/file_send.h"
#include "sharelink_db/store.h"
#include "share_page/page.h"
#include "weblib/delivery_output.h"
#include "zipstream/zipstream.h"

namespace {

constexpr int kRetryAfter = 30;

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
bool plan_share(const Verdict& v, ZipPlan* plan, std::vector<UniqueFd>* fds) {
  if (!v.target.multi) return plan_folder(v.target.folder.get(), plan);
  std::vector<std::string> used;
  for (const auto& f : v.link.fids) {
    Target file;
    if (!open_link_file(v.link, v.store, f.first, &file)) continue;  // gone since the link was made
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
  return true;
}

}  // namespace

ZipSlot::ZipSlot() {
  for (int i = 0; i < kZipSlots && fd_ < 0; ++i) {
    char name[32];
    snprintf(name, sizeof name, "share_zip_slot.%d", i);
    int fd = os.open(rooted_path(sf_beside_store(name).c_str()).c_str(),
                     O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600);
    if (fd < 0) continue;
    if (os.flock(fd, LOCK_EX | LOCK_NB) == 0) {
      fd_ = fd;
    } else {
      os.close(fd);
    }
  }
}

ZipSlot::~ZipSlot() {
  if (fd_ >= 0) os.close(fd_);
}

long long zip_size(const Verdict& v) {
  ZipPlan plan;
  std::vector<UniqueFd> fds;
  if (!plan_share(v, &plan, &fds)) return -1;
  return static_cast<long long>(plan.total_size());
}

int send_zip(const Verdict& v, bool head, const std::function<CountOutcome()>& count,
             AccessDb* access) {
  ZipSlot slot;
  if (!slot.held()) {
    Reply r = error_reply(503, "Too many archives are being downloaded right now; please try "
                               "again in a minute.");
    r.headers.push_back("Retry-After: " + std::to_string(kRetryAfter));
    send_page(r, head);
    return 0;
  }
  ZipPlan plan;
  std::vector<UniqueFd> fds;
  const bool planned = plan_share(v, &plan, &fds);
  if (!planned) {
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
  FdSink sink(1);
  AccessCrcs crcs(access);
  FolderSource folder(v.target.folder.get(), &crcs);
  OpenFilesSource files(&fds, &crcs);
  ZipSource* source = v.target.multi ? static_cast<ZipSource*>(&files) : &folder;
  // A file that changed while being sent ends the answer short: the client
  // sees fewer bytes than announced, never an archive that lies.
  return zip_stream(&plan, source, &sink) && sink.flush() ? 0 : 1;
}
