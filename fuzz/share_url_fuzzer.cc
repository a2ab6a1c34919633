// parse_share_url on arbitrary URLs and output sizes, checked against its
// rule: the host is the text past the scheme prefix (cut to 511 bytes) up to
// the separator, the id everything after the first "ssid="; each is written
// over the output's start, at most size - 1 bytes, never past the block.
//
// Input: byte 0 the configured secure port (none, "443", "8443", a long
// one), byte 1 the host output size, byte 2 the id output size; then the URL.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "fuzz_support.h"
#include "platform/profile.h"
#include "registry/share_url.h"

namespace {

void check(bool ok) {
  if (!ok) abort();
}

const char* const kPorts[] = {nullptr, "443", "8443", "4430000000000"};

// Writes the configuration for the chosen port when it changed.
bool configure_port(int choice) {
  static int current = -1;
  if (choice == current) return strcmp(kPorts[choice] ? kPorts[choice] : "443", "443") == 0;
  current = choice;
  std::string conf;
  if (kPorts[choice] != nullptr) conf = std::string("[Stunnel]\nPort = ") + kPorts[choice] + "\n";
  fuzz_write_file("/etc/config/Korvix.conf", reinterpret_cast<const uint8_t*>(conf.data()), conf.size());
  profile_cache_clear();
  share_url_forget_port();
  return strcmp(kPorts[choice] ? kPorts[choice] : "443", "443") == 0;
}

// What the output must hold after writing `value` over a block of `size`
// bytes that held `fill`.
void check_overlay(const std::vector<char>& out, size_t size, bool written, const std::string& value) {
  size_t n = 0;
  if (written && size > 0) n = value.size() < size - 1 ? value.size() : size - 1;
  check(memcmp(out.data(), value.data(), n) == 0);
  for (size_t i = n; i < out.size(); ++i) check(out[i] == '\x5a');
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 3) return 0;
  fuzz_root();
  const bool standard_port = configure_port(data[0] % 4);
  const size_t host_size = data[1] == 0xff ? 513 : data[1];
  const size_t ssid_size = data[2] == 0xff ? 96 : data[2];
  const std::string url(reinterpret_cast<const char*>(data + 3), strnlen(reinterpret_cast<const char*>(data + 3), size - 3));

  std::vector<char> host(host_size == 0 ? 1 : host_size, '\x5a');
  std::vector<char> ssid(ssid_size == 0 ? 1 : ssid_size, '\x5a');
  int r = parse_share_url(url.c_str(), host_size ? host.data() : nullptr, host_size,
                          ssid_size ? ssid.data() : nullptr, ssid_size);
  if (url.empty()) {
    check(r == -1);
    check_overlay(host, host_size, false, "");
    check_overlay(ssid, ssid_size, false, "");
    return 0;
  }
  check(r == 0);

  const bool https = url.find("https") != std::string::npos;
  const size_t skip = https ? 8 : 7;
  std::string rest = url.size() > skip ? url.substr(skip) : "";
  if (rest.size() > 511) rest.resize(511);
  const char separator = https && standard_port ? '/' : ':';
  size_t end = rest.find(separator);
  check_overlay(host, host_size, end != std::string::npos, rest.substr(0, end == std::string::npos ? 0 : end));

  size_t id = url.find("ssid=");
  check_overlay(ssid, ssid_size, id != std::string::npos, id == std::string::npos ? "" : url.substr(id + 5));
  return 0;
}
