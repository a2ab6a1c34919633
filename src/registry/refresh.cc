#include "registry/refresh.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "platform/fs.h"
#include "platform/os.h"
#include "registry/fields.h"
#include "registry/registry_lock.h"
#include "registry/rewrite.h"
#include "registry/slots.h"

const char kShareRegistryPath[] = "/etc/config/shareFileEx.ini";

namespace {

// Field 7 read as a signed 32-bit number: not 0 and before now, comparing
// both as unsigned 64-bit numbers (so a negative expiry never passes).
bool expired(const char* expiry, uint64_t now) {
  const int32_t when = static_cast<int32_t>(static_cast<uint32_t>(strtol(expiry, nullptr, 10)));
  return when != 0 && now > static_cast<uint64_t>(static_cast<int64_t>(when));
}

}  // namespace

int ensure_registry_exists() {
  int fd = fs_open(kShareRegistryPath, O_RDONLY | O_CREAT, 0644);
  close_fd(&fd);
  return 1;
}

int load_registry() {
  RegistryLock lock(kShareRegistryPath);
  if (!lock.held()) return -1;
  RegistryReader registry;
  if (!registry.open(kShareRegistryPath)) return -1;

  char tmp[512];
  snprintf(tmp, sizeof tmp, "%s", registry_temp_template(kShareRegistryPath).c_str());
  // A name that could not be reserved is not ours to remove.
  if (vexa_mktmpname(tmp) != 0) return -1;
  RegistryRewrite out;
  if (!out.open(tmp, "wb")) {
    out.discard();
    return -1;
  }

  // Without a clock every expiring line would look stale: keep the registry.
  const time_t clock = os.time(nullptr);
  if (clock == static_cast<time_t>(-1)) {
    out.discard();
    return -1;
  }
  const uint64_t now = static_cast<uint64_t>(clock);
  char line[2048];
  char path[256];
  char expiry[256];
  struct stat st;
  while (registry.next(line, sizeof line)) {
    size_t len = strlen(line);
    if (len == 0) continue;
    FieldReader fields(line, len, '\t');
    if (fields.get(path, sizeof path, 5) != 1) {
      out.discard();
      return -1;
    }
    // A line whose expiry has passed goes whether or not its path exists,
    // so its stat is skipped. Without field 7 the stat decides: a vanished
    // path drops the line, an existing one aborts the refresh.
    const bool has_expiry = fields.get(expiry, sizeof expiry, 7) == 1;
    if (has_expiry && expired(expiry, now)) continue;
    if (fs_stat(path, &st) != 0) continue;
    if (!has_expiry) {
      out.discard();
      return -1;
    }
    if (!out.append(line, len)) {
      out.discard();
      return -1;
    }
  }
  if (registry.failed()) {
    out.discard();
    return -1;
  }
  registry.close();
  return out.commit(kShareRegistryPath, "load_registry");
}

int refresh_registry() {
  if (ensure_registry_exists() == 0) return 1;
  return load_registry() == 1 ? 1 : -1;
}
