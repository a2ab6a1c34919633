// The file manager's application log, "/tmp/parceldeck.log".
//
// Short lines appended by the code that met a problem, each starting with the
// writing function's name and source line. The file is opened and closed
// around every line and set to mode 0777 so every process can append; above
// 204,800 bytes it is renamed to "/tmp/parceldeck.log.old" before the next
// line. Logging never changes the caller's result.
#ifndef SLT_DIAG_APP_LOG_H_
#define SLT_DIAG_APP_LOG_H_

extern const char kAppLogPath[];     // "/tmp/parceldeck.log"
extern const char kAppLogOldPath[];  // "/tmp/parceldeck.log.old"

// Renames the log to the ".old" name when it is larger than 204,800 bytes.
void rotate_app_log();

// Rotates, then appends "<func> <line>, " and the formatted message (which
// carries its own line end). A log that cannot be opened is skipped.
void app_log(const char* func, int line, const char* format, ...)
    __attribute__((format(printf, 3, 4)));

// The file manager's verbosity setting; the command-line tool has none (0).
int file_manager_verbosity();

#define APP_LOG(...) app_log(__func__, __LINE__, __VA_ARGS__)

#endif  // SLT_DIAG_APP_LOG_H_
