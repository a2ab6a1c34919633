#include "paths/team_folder.h"

#include <sys/stat.h>

#include <cstdio>
#include <cstring>
#include <new>
#include <string>

#include "platform/exec.h"
#include "platform/facts.h"
#include "platform/fs.h"
#include "platform/io_buffer.h"
#include "platform/users.h"

namespace {

const char kSyncTool[] = "/sbin/mirrasrv_tool";
constexpr size_t kFolderPathSize = 4095;

// Puts the cut "/" back on every way out.
class CutRestorer {
 public:
  explicit CutRestorer(char* cut) : cut_(cut) {}
  ~CutRestorer() {
    if (cut_ != nullptr) *cut_ = '/';
  }
  void release() { cut_ = nullptr; }

 private:
  char* cut_;
};

// The tool's answer for "<user>:<uri>": 0 and the folder path ("" when the
// answer is not a share path), or -1 when the tool printed nothing.
int ask_sync_tool(const char* user, const char* uri, std::string* folder) {
  SavedIdentity saved;  // declared first: restored after the capture is released
  Become_ROOT();
  std::string query = std::string(user) + ":" + uri;
  HsIoGuard io;
  if (io.get() == nullptr) return -1;
  const char* argv[] = {kSyncTool, "-t", query.c_str(), nullptr};
  _hs_secure_execv(kSyncTool, argv, io.get());
  size_t len = 0;
  const char* text = hs_io_read(io.get(), &len);
  if (len == 0) return -1;
  if (strncmp(text, "/share", 6) == 0) {
    char path[kFolderPathSize];
    snprintf(path, sizeof path, "%s", text);
    *folder = path;
  }
  return 0;
}

}  // namespace

int resolve_team_folder(char* uri, size_t uri_size, const char* user, char* out, size_t out_size) {
  if (uri == nullptr || strncmp(uri, "tfx://", 6) != 0) return 0;
  char* cut = strchr(uri + 6, '/');
  const char* after = nullptr;
  if (cut != nullptr) {
    *cut = '\0';
    if (cut[1] != '\0') after = cut + 1;
  }
  CutRestorer restore(cut);
  try {
    struct stat st;
    if (fs_stat(kSyncTool, &st) != 0) return -1;
    std::string folder;
    if (ask_sync_tool(user != nullptr ? user : "", uri, &folder) != 0) return -1;
    std::string result = after != nullptr ? folder + "/" + after : folder;
    char* target = out != nullptr ? out : uri;
    size_t target_size = out != nullptr ? out_size : uri_size;
    if (target == uri) restore.release();  // the URI is overwritten as a whole
    if (target_size > 0) snprintf(target, target_size, "%s", result.c_str());
    return 1;
  } catch (const std::bad_alloc&) {
    return -1;
  }
}
