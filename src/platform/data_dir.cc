#include "platform/data_dir.h"

#include <cstdlib>

#ifndef SLT_SOURCE_DATA_DIR
#define SLT_SOURCE_DATA_DIR "data"
#endif

std::string slt_data_dir() {
  const char* env = getenv("SHARELINK_DATA_DIR");
  if (env != nullptr && *env != '\0') return env;
  return SLT_SOURCE_DATA_DIR;
}
