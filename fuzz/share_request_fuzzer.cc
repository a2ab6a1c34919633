// share.cgi's request parsing on arbitrary input: the input is split at its
// first three NUL-free "\n" into query, cookie header, range and form body.
// Checks: a path that passes the safety test never climbs out or carries a
// NUL or backslash; a parsed range lies inside the file.
#include <sys/stat.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "share_page/file_send.h"
#include "share_page/request.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::string in(reinterpret_cast<const char*>(data), size);
  std::string part[4];
  size_t pos = 0;
  for (int i = 0; i < 4; ++i) {
    size_t nl = i < 3 ? in.find('\n', pos) : std::string::npos;
    part[i] = in.substr(pos, nl == std::string::npos ? std::string::npos : nl - pos);
    if (nl == std::string::npos) break;
    pos = nl + 1;
  }
  for (int i = 0; i < 3; ++i) part[i] = part[i].c_str();  // environment values stop at NUL
  ShareRequest r = parse_share_request("POST", part[0].c_str(), part[1].c_str(), part[3].data(),
                                       part[3].size());
  if (!r.path_bad) {
    if (r.path.find('\0') != std::string::npos || r.path.find('\\') != std::string::npos ||
        (!r.path.empty() && r.path[0] == '/') || ("/" + r.path + "/").find("/../") != std::string::npos) {
      abort();
    }
  }
  if (r.page < 0) abort();
  cookie_value(r.cookies, "slt_share_0123456789abcdef");
  struct stat st {};
  st.st_size = static_cast<off_t>(size * 37);
  st.st_mtime = 1000000000;
  FilePlan p = plan_file_answer(st, part[1].c_str(), part[2].c_str(), part[1].c_str(), part[2].c_str());
  if (p.answer == FileAnswer::kPartial &&
      (p.start > p.end || p.end >= static_cast<unsigned long long>(st.st_size))) {
    abort();
  }
  content_disposition(r.path, true);
  return 0;
}
