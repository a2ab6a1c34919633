#include "platform/root.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

std::string appliance_root() {
  const char* root = getenv("SHARELINK_ROOT");
  if (root == nullptr || root[0] == '\0') return std::string();
  std::string r(root);
  while (r.size() > 1 && r.back() == '/') r.pop_back();
  if (r == "/") return std::string();
  return r;
}

std::string rooted_path(const char* path) {
  if (path == nullptr) return std::string();
  if (path[0] != '/') return std::string(path);
  return appliance_root() + path;
}

bool unrooted_path(const char* real, char* out, size_t size) {
  if (real == nullptr || out == nullptr || size == 0) return false;
  std::string root = appliance_root();
  const char* rest = real;
  if (!root.empty()) {
    size_t n = root.size();
    if (strncmp(real, root.c_str(), n) != 0) return false;
    if (real[n] != '\0' && real[n] != '/') return false;
    rest = real + n;
    if (*rest == '\0') rest = "/";
  }
  int w = snprintf(out, size, "%s", rest);
  return w >= 0 && static_cast<size_t>(w) < size;
}
