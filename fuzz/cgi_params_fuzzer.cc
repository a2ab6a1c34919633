// The CGI parameter parser on arbitrary query texts.
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "platform/cgi.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  CgiRequest req;
  cgi_parse_params(reinterpret_cast<const char*>(data), size, &req);
  size_t decoded = 0;
  for (const auto& p : req.params) decoded += p.first.size() + p.second.size();
  // Decoding only ever shrinks the text.
  if (decoded > size) abort();
  CGI_Find_Parameter(&req, "func");
  return 0;
}
