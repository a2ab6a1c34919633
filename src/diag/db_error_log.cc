#include "diag/db_error_log.h"

#include "diag/debug_log.h"

void sf_debug_db_error_log(int ret, const char* ssid, const char* fid) {
  const char* s = ssid ? ssid : "(null)";
  if (fid != nullptr) {
    switch (ret) {
      case -11:
        debug_log(9, kDebugFileManager, "%s %d, DB PARAMETER ERROR, Ret=%d, Ssid=%s, Fid=%s\n",
                  __func__, __LINE__, ret, s, fid);
        break;
      case -20:
        debug_log(9, kDebugFileManager, "%s %d, DB OPEN ERROR, Ret=%d, Ssid=%s, Fid=%s\n", __func__,
                  __LINE__, ret, s, fid);
        break;
      case -24:
        debug_log(9, kDebugFileManager, "%s %d, DB QUERY ERROR, Ret=%d, Ssid=%s, Fid=%s\n", __func__,
                  __LINE__, ret, s, fid);
        break;
      case -10:
        debug_log(9, kDebugFileManager, "%s %d, BUFFER OVERFLOW, Ret=%d, Ssid=%s, Fid=%s\n", __func__,
                  __LINE__, ret, s, fid);
        break;
      default:
        debug_log(9, kDebugFileManager, "%s %d, sharelink query error, Ret=%d, Ssid=%s, Fid=%s\n",
                  __func__, __LINE__, ret, s, fid);
        break;
    }
    return;
  }
  switch (ret) {
    case -11:
      debug_log(9, kDebugFileManager, "%s %d, DB PARAMETER ERROR, Ret=%d, Ssid=%s\n", __func__,
                __LINE__, ret, s);
      break;
    case -20:
      debug_log(9, kDebugFileManager, "%s %d, DB OPEN ERROR, Ret=%d, Ssid=%s\n", __func__, __LINE__,
                ret, s);
      break;
    case -24:
      debug_log(9, kDebugFileManager, "%s %d, DB QUERY ERROR, Ret=%d, Ssid=%s\n", __func__, __LINE__,
                ret, s);
      break;
    case -10:
      debug_log(9, kDebugFileManager, "%s %d, BUFFER OVERFLOW, Ret=%d, Ssid=%s\n", __func__, __LINE__,
                ret, s);
      break;
    default:
      debug_log(9, kDebugFileManager, "%s %d, sharelink query error, Ret=%d, Ssid=%s\n", __func__,
                __LINE__, ret, s);
      break;
  }
}
