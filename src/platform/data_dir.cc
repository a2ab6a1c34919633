#include "platform/data_dir.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>

#include "platform/os.h"

#ifndef SLT_SOURCE_DATA_DIR
#define SLT_SOURCE_DATA_DIR "data"
#endif

namespace {

// Each install folder of a program, with the data folder relative to it.
struct InstallPlace {
  const char* program_dir;
  const char* data_from_it;
};

#ifdef SLT_INSTALL_BINDIR
const InstallPlace kPlaces[] = {
    {SLT_INSTALL_BINDIR, SLT_DATA_FROM_BINDIR},
    {SLT_INSTALL_CGIDIR, SLT_DATA_FROM_CGIDIR},
};
#else
const InstallPlace kPlaces[] = {{"bin", "../share/sharelink"}};
#endif

bool ends_with_dir(const std::string& path, const char* dir) {
  size_t n = strlen(dir);
  if (n == 0 || path.size() <= n) return false;
  return path[path.size() - n - 1] == '/' && path.compare(path.size() - n, n, dir) == 0;
}

bool is_dir(const std::string& path) {
  struct stat st;
  return os.stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

// The data folder of an installed program: only when the program sits in one
// of the install folders (so a build tree never matches) and the data folder
// is there. Empty otherwise.
std::string installed_data_dir() {
  char exe[4096];
  ssize_t n = readlink("/proc/self/exe", exe, sizeof exe - 1);
  if (n <= 0 || static_cast<size_t>(n) >= sizeof exe - 1) return "";
  exe[n] = '\0';
  char* slash = strrchr(exe, '/');
  if (slash == nullptr) return "";
  std::string dir(exe, static_cast<size_t>(slash - exe));
  for (const InstallPlace& p : kPlaces) {
    if (!ends_with_dir(dir, p.program_dir)) continue;
    std::string data = dir + "/" + p.data_from_it;
    if (is_dir(data)) return data;
  }
  return "";
}

}  // namespace

std::string slt_data_dir() {
  const char* env = getenv("SHARELINK_DATA_DIR");
  if (env != nullptr && *env != '\0') return env;
  // The program does not move while it runs: look once.
  static const std::string installed = installed_data_dir();
  if (!installed.empty()) return installed;
  return SLT_SOURCE_DATA_DIR;
}

std::string slt_data_file(const char* name) { return slt_data_dir() + "/" + name; }
