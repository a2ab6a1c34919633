// The store's error report: one debug-log line (level 9, file-manager module)
// for a failed store call, worded by the store result code.
#ifndef SLT_DIAG_DB_ERROR_LOG_H_
#define SLT_DIAG_DB_ERROR_LOG_H_

// fid may be null: the line then ends after the ssid.
void sf_debug_db_error_log(int ret, const char* ssid, const char* fid);

#endif  // SLT_DIAG_DB_ERROR_LOG_H_
