// Display-path resolution on a tree of real folders and symbolic links:
// whatever path it is given, a resolution that succeeds names a file whose
// canonical form lies under the allowed roots (a share under "/share/"), or
// for a remote folder under that folder's mount point, never outside the
// appliance root. Links in the tree lead out of the root, out of a share
// into another, and out of the remote folder into a share.
//
// Input: byte 0 selects the resolution (odd: remote folder), the rest is
// the display path.
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "fuzz_support.h"
#include "paths/display_path.h"

namespace {

void check(bool ok) {
  if (!ok) abort();
}

// Writes appliance file `ap` under root, making its folders.
void put(const std::string& root, const char* ap, const char* content) {
  const std::string path = root + ap;
  for (size_t i = root.size() + 1; i < path.size(); ++i) {
    if (path[i] == '/') mkdir(path.substr(0, i).c_str(), 0755);
  }
  fuzz_write_file(ap, reinterpret_cast<const uint8_t*>(content), strlen(content));
}

void link_at(const std::string& root, const char* target, const char* ap) {
  if (symlink(target, (root + ap).c_str()) != 0 && errno != EEXIST) abort();
}

// The tree, made once for the whole run.
const std::string& tree() {
  static const std::string root = [] {
    const std::string& r = fuzz_root();
    put(r, "/etc/config/smb.conf",
        "[Public]\npath = /share/VOL1/Public\n[Other]\npath = /share/VOL2/Other\n"
        "[Linked]\npath = /share/VOL1/Public/out\n");
    put(r, "/etc/config/remote_folder.conf", "[1]\nName = rf\nLocal Path = /share/VOL1/rf\n");
    put(r, "/share/VOL1/Public/a.txt", "a");
    put(r, "/share/VOL1/Public/sub/b.txt", "b");
    put(r, "/share/VOL2/Other/c.txt", "c");
    put(r, "/share/VOL1/rf/d.txt", "d");
    put(r, "/etc/config/secret", "s");
    link_at(r, "/", "/share/VOL1/Public/out");             // out of the root
    link_at(r, "../..", "/share/VOL1/Public/up");          // to the root itself
    link_at(r, "../../VOL2/Other", "/share/VOL1/Public/other");  // another share
    link_at(r, "../Public", "/share/VOL1/rf/share");       // out of the mount point
    link_at(r, "/etc", "/share/VOL1/rf/abs");
    link_at(r, "missing", "/share/VOL1/Public/dangling");
    char real[PATH_MAX];
    if (realpath(r.c_str(), real) == nullptr) abort();
    return std::string(real);
  }();
  return root;
}

bool under(const char* path, const std::string& folder) {
  return strncmp(path, folder.c_str(), folder.size()) == 0 &&
         (path[folder.size()] == '\0' || path[folder.size()] == '/');
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 1 || size > 2048) return 0;
  const std::string& root = tree();
  const int remote = data[0] & 1;
  std::string path(reinterpret_cast<const char*>(data + 1), size - 1);
  path.resize(strnlen(path.c_str(), path.size()));

  char out[4096];
  const int kind = resolve_display_path(remote, path.c_str(), out, sizeof out, "Mirra:ann");
  if (kind < 0) return 0;
  check(display_path_is_clean(path.c_str()));
  check(out[0] == '/');
  char real[PATH_MAX];
  const std::string rooted = root + out;
  if (realpath(rooted.c_str(), real) == nullptr) {
    check(errno == ENAMETOOLONG);
    return 0;
  }
  check(under(real, remote ? root + "/share/VOL1/rf" : root + "/share"));
  return 0;
}
