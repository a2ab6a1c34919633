#include "diag/syslog_report.h"

#include <syslog.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace {
void (*g_observer)(const char*) = nullptr;
}

int log_syslog_error(const char* ident, const char* message) {
  int err = errno;
  openlog(ident, LOG_PID | LOG_CONS, LOG_LOCAL7);
  syslog(LOG_ERR | LOG_LOCAL7, "ERROR: %s(%d:%s)", message ? message : "", err, strerror(err));
  closelog();
  if (g_observer != nullptr) {
    char line[2300];
    snprintf(line, sizeof line, "ERROR: %s(%d:%s)", message ? message : "", err, strerror(err));
    g_observer(line);
  }
  errno = err;
  return 1;
}

void set_syslog_report_observer(void (*observer)(const char*)) { g_observer = observer; }
