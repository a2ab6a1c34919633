// Reports a failed system call to the system log with errno and its text.
#ifndef SLT_DIAG_SYSLOG_REPORT_H_
#define SLT_DIAG_SYSLOG_REPORT_H_

// Logs "ERROR: <message>(<errno>:<strerror>)" at LOG_ERR of LOG_LOCAL7 under
// `ident`. Always 1.
int log_syslog_error(const char* ident, const char* message);

// Tests read what would have gone to the system log: when set, each report
// line is also handed here.
void set_syslog_report_observer(void (*observer)(const char* line));

#endif  // SLT_DIAG_SYSLOG_REPORT_H_
