#include "sharelink_db/download_count.h"

std::string sf_count_download_sql(const char* schema) {
  const std::string t = std::string(schema) + ".SHARELINK_EVENT";
  return "UPDATE " + t + " SET download_count = COALESCE(download_count,0)+1 WHERE pkey = ?1"
         " AND (COALESCE(download_limit,0) <= 0 OR COALESCE(download_count,0) < download_limit)";
}
