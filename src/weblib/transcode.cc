#include "weblib/transcode.h"

#include <cstdio>
#include <cstring>
#include <string>

#include "platform/fs.h"

const char kTranscodeFolder[] = ".@__thumb/transcode";

namespace {

const TranscodeVariant kVariants[kTranscodeVariants] = {
    {"mp4_240", ".mobile240p", &TranscodeFlags::p240},
    {"mp4_360", ".mobile360p", &TranscodeFlags::p360},
    {"mp4_720", ".ipad720p", &TranscodeFlags::p720},
    {"mp4_480", ".mobile480p", &TranscodeFlags::p480},
    {"mp4_1080", ".mobile1080p", &TranscodeFlags::p1080},
    {"mp4_org", ".original", &TranscodeFlags::original},
};

}  // namespace

const TranscodeVariant* transcode_variants() { return kVariants; }

const TranscodeVariant* find_transcode_variant(const char* name) {
  if (name == nullptr) return nullptr;
  for (const TranscodeVariant& v : kVariants) {
    if (strcmp(v.name, name) == 0) return &v;
  }
  return nullptr;
}

bool transcode_variant_path(const char* dir, const char* name, const TranscodeVariant* variant,
                            char* out, size_t size) {
  if (out == nullptr || size == 0) return false;
  out[0] = '\0';
  if (dir == nullptr || name == nullptr || variant == nullptr) return false;
  int n = snprintf(out, size, "%s/%s/%s%s", dir, kTranscodeFolder, name, variant->suffix);
  if (n < 0 || static_cast<size_t>(n) >= size) {
    out[0] = '\0';
    return false;
  }
  return true;
}

int sf_transcode_availability(const char* dir, const char* name, TranscodeFlags* flags) {
  if (flags == nullptr) return -1;
  *flags = TranscodeFlags{};
  if (dir == nullptr || name == nullptr) return -1;
  for (const TranscodeVariant& v : kVariants) {
    std::string path = std::string(dir) + "/" + kTranscodeFolder + "/" + name + v.suffix;
    flags->*(v.flag) = fs_exists(path.c_str());
  }
  return 0;
}
