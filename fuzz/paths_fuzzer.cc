// Display-path classification and the share-path macros on arbitrary texts:
// kdx_check_file_ap_type stays within the path types, and
// expand_share_path_macros never writes past its buffer and leaves it
// terminated, whatever login identity, user and path size it gets.
//
// Input: byte 0 the path buffer size, byte 1 which of login and user are
// given; then path NUL login NUL user.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "fuzz_support.h"
#include "paths/display_path.h"
#include "paths/path_macros.h"

namespace {

void check(bool ok) {
  if (!ok) abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 2) return 0;
  fuzz_root();  // the separator comes from the (empty) system configuration
  const size_t buf_size = data[0] == 0xff ? 4097 : data[0];
  const uint8_t given = data[1];
  std::string path, rest;
  fuzz_split(data + 2, size - 2, &path, &rest);
  std::string login = rest, user;
  const char* raw = reinterpret_cast<const char*>(data + 2);
  const size_t n = size - 2;
  if (const void* first = memchr(raw, '\0', n)) {
    size_t off = static_cast<size_t>(static_cast<const char*>(first) - raw) + 1;
    if (const void* second = memchr(raw + off, '\0', n - off)) {
      size_t u = static_cast<size_t>(static_cast<const char*>(second) - raw) + 1;
      user.assign(raw + u, strnlen(raw + u, n - u));
    }
  }

  int type = kdx_check_file_ap_type(path.c_str());
  check(type >= kPathInvalid && type <= kPathCloudCacheShare);

  set_login_identity(given & 1 ? login.c_str() : nullptr);
  const LoginIdentity& id = login_identity();
  check(memchr(id.login, '\0', sizeof id.login) != nullptr);
  check(memchr(id.domain, '\0', sizeof id.domain) != nullptr);
  check(memchr(id.user, '\0', sizeof id.user) != nullptr);

  std::vector<char> buf(buf_size == 0 ? 1 : buf_size, '\0');
  if (buf_size > 0) snprintf(buf.data(), buf_size, "%s", path.c_str());
  expand_share_path_macros(buf_size ? buf.data() : nullptr, buf_size, given & 2 ? user.c_str() : nullptr);
  if (buf_size > 0) check(memchr(buf.data(), '\0', buf_size) != nullptr);
  return 0;
}
