#include "fuzz_support.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <algorithm>
#include <vector>

namespace {

void make_dirs(const std::string& path) {
  for (size_t i = 1; i < path.size(); ++i) {
    if (path[i] == '/') mkdir(path.substr(0, i).c_str(), 0755);
  }
  mkdir(path.c_str(), 0755);
}

}  // namespace

const std::string& fuzz_root() {
  static std::string root = [] {
    char tmpl[] = "/tmp/slt-fuzz-XXXXXX";
    if (mkdtemp(tmpl) == nullptr) abort();
    std::string r(tmpl);
    for (const char* d : {"/etc/config", "/tmp", "/share/Public", "/sbin", "/usr/bin", "/usr/sbin"}) {
      make_dirs(r + d);
    }
    setenv("SHARELINK_ROOT", r.c_str(), 1);
    atexit([] {
      std::string cmd = "rm -rf '" + std::string(getenv("SHARELINK_ROOT")) + "'";
      if (system(cmd.c_str()) != 0) {
        // Left in the temporary area; nothing else to do at exit.
      }
    });
    return r;
  }();
  return root;
}

void fuzz_write_file(const char* ap, const uint8_t* data, size_t size) {
  std::string path = fuzz_root() + ap;
  FILE* f = fopen(path.c_str(), "wb");
  if (f == nullptr) abort();
  if (size > 0 && fwrite(data, 1, size, f) != size) abort();
  fclose(f);
}

void fuzz_split(const uint8_t* data, size_t size, std::string* first, std::string* second) {
  const char* text = reinterpret_cast<const char*>(data);
  const void* nul = memchr(text, '\0', size);
  size_t n = nul ? static_cast<size_t>(static_cast<const char*>(nul) - text) : size;
  first->assign(text, n);
  second->clear();
  if (nul != nullptr) second->assign(text + n + 1, size - n - 1);
  // Texts handed to C routines end at their first NUL anyway.
  second->erase(std::find(second->begin(), second->end(), '\0'), second->end());
}
