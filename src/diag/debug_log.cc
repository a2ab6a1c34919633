#include "diag/debug_log.h"

#include <pthread.h>
#include <strings.h>
#include <syslog.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>

#include "platform/fs.h"
#include "platform/os.h"

namespace {

struct DebugState {
  int level = 0;
  uint32_t mask = 0xFFFFFFFFu;
  int destination = kDebugToStderr;
  FILE* file = nullptr;
  pthread_mutex_t lock = PTHREAD_MUTEX_INITIALIZER;
};

DebugState& state() {
  static DebugState s;
  return s;
}

const char* const kModules[] = {"config", "webserver", "database", "scan",  "query", "index",
                                "browse", "playlist",  "art",      "daap",  "main",  "rend"};

}  // namespace

void debug_log(int level, uint32_t mask, const char* format, ...) {
  DebugState& s = state();
  if (level != 0 && (level > s.level || (mask & s.mask) == 0)) return;

  char message[1024];
  va_list ap;
  va_start(ap, format);
  vsnprintf(message, sizeof message, format, ap);
  va_end(ap);

  int rc = pthread_mutex_lock(&s.lock);
  if (rc != 0) errno = rc;
  bool fatal = level == 0;
  if (fatal) {
    fprintf(stderr, "%s", message);
    fprintf(stderr, "Aborting\n");
    fflush(stderr);
  }
  switch (s.destination) {
    case kDebugToStderr:
      if (!fatal) fprintf(stderr, "%s", message);
      break;
    case kDebugToSyslog:
      syslog(LOG_NOTICE, "%s", message);
      if (fatal) syslog(LOG_INFO, "Aborting\n");
      break;
    case kDebugToFile:
      if (s.file != nullptr) {
        char when[256];
        time_t now = os.time(nullptr);
        struct tm tm_now;
        localtime_r(&now, &tm_now);
        strftime(when, sizeof when, "%Y-%m-%d %T", &tm_now);
        fprintf(s.file, "(pid=%d)%s: %s", static_cast<int>(getpid()), when, message);
        fprintf(s.file, "%s: %s", when, message);
        if (fatal) fprintf(s.file, "%s: Aborting\n", when);
        fflush(s.file);
      }
      break;
    default:
      break;
  }
  rc = pthread_mutex_unlock(&s.lock);
  if (rc != 0) errno = rc;
  if (fatal) exit(1);
}

void set_debug_destination(const char* name, int kind) {
  DebugState& s = state();
  if (kind == s.destination) return;
  if (s.destination == kDebugToSyslog) closelog();
  if (s.destination == kDebugToFile && s.file != nullptr) {
    fclose(s.file);
    s.file = nullptr;
  }
  if (kind == kDebugToSyslog) {
    openlog(name, LOG_PID, LOG_DAEMON);
  } else if (kind == kDebugToFile) {
    s.file = fs_fopen(name, "a");
    if (s.file == nullptr) {
      fprintf(stderr, "Error opening %s: %s\n", name ? name : "", strerror(errno));
      exit(1);
    }
  }
  s.destination = kind;
}

int set_debug_modules(char* list) {
  if (list == nullptr) return 0;
  DebugState& s = state();
  s.mask = kDebugAlwaysOn;
  char* save = nullptr;
  for (char* name = strtok_r(list, ",", &save); name != nullptr; name = strtok_r(nullptr, ",", &save)) {
    bool found = false;
    for (size_t i = 0; i < sizeof kModules / sizeof kModules[0]; ++i) {
      if (strcasecmp(name, kModules[i]) == 0) {
        uint32_t bit = 1u << i;
        debug_log(9, kDebugAlwaysOn, "Adding module %s to debug list (0x%08x)\n", name, bit);
        s.mask |= bit;
        found = true;
        break;
      }
    }
    if (!found) {
      debug_log(1, kDebugAlwaysOn, "Unknown module: %s\n", name);
      return 1;
    }
  }
  debug_log(5, kDebugAlwaysOn, "Debug mask is 0x%08x\n", s.mask);
  return 0;
}

void set_debug_level(int level) { state().level = level; }
int debug_level() { return state().level; }

void configure_debug_log_from_env() {
  const char* level = getenv("SHARELINK_DEBUG_LEVEL");
  if (level != nullptr && level[0] != '\0') set_debug_level(static_cast<int>(strtol(level, nullptr, 10)));
  const char* modules = getenv("SHARELINK_DEBUG_MODULES");
  if (modules != nullptr) {
    std::string copy(modules);
    set_debug_modules(&copy[0]);
  }
  const char* file = getenv("SHARELINK_DEBUG_FILE");
  if (file != nullptr && file[0] != '\0') set_debug_destination(file, kDebugToFile);
}
