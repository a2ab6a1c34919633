#include "diag/app_log.h"

#include <sys/stat.h>

#include <cstdarg>
#include <cstdio>

#include "platform/fs.h"
#include "platform/os.h"

const char kAppLogPath[] = "/tmp/parceldeck.log";
const char kAppLogOldPath[] = "/tmp/parceldeck.log.old";

namespace {
constexpr off_t kAppLogLimit = 204800;
}

void rotate_app_log() {
  struct stat st;
  if (fs_stat(kAppLogPath, &st) != 0) return;
  if (st.st_size > kAppLogLimit) fs_rename(kAppLogPath, kAppLogOldPath);
}

void app_log(const char* func, int line, const char* format, ...) {
  rotate_app_log();
  FILE* f = fs_fopen(kAppLogPath, "a+");
  if (f == nullptr) return;
  fprintf(f, "%s %d, ", func ? func : "", line);
  va_list ap;
  va_start(ap, format);
  vfprintf(f, format, ap);
  va_end(ap);
  os.fclose(f);
  fs_chmod(kAppLogPath, 0777);
}

int file_manager_verbosity() { return 0; }
