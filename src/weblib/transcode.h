// Transcoded variants of a video: the fixed set of resolutions kept beside
// it in ".@__thumb/transcode", and the query that tells which exist.
#ifndef SLT_WEBLIB_TRANSCODE_H_
#define SLT_WEBLIB_TRANSCODE_H_

#include <cstddef>

constexpr size_t kTranscodeVariants = 6;

// Per-variant availability of one video.
struct TranscodeFlags {
  bool p240;
  bool p360;
  bool p720;
  bool p480;
  bool p1080;
  bool original;
};

struct TranscodeVariant {
  const char* name;    // the request's variant name, "mp4_240" ...
  const char* suffix;  // appended to the video's file name, ".mobile240p" ...
  bool TranscodeFlags::*flag;
};

// The variants in the order they are tried (720 before 480).
const TranscodeVariant* transcode_variants();

// The row named exactly `name`, or null.
const TranscodeVariant* find_transcode_variant(const char* name);

// The folder that holds the variants of the videos in `dir`.
extern const char kTranscodeFolder[];  // ".@__thumb/transcode"

// The room a variant path needs beyond its video's real path.
constexpr size_t kVariantPathSlack = 51;

// The variant file of video `name` in folder `dir` (appliance paths):
// "%s/%s/%s%s" of dir, kTranscodeFolder, name and the suffix. Returns false
// when it does not fit size bytes (out is then empty).
bool transcode_variant_path(const char* dir, const char* name, const TranscodeVariant* variant,
                            char* out, size_t size);

// The availability query: a variant is available when its variant file
// exists. Fills *flags; 0, or -1 for a null argument (flags all false).
int sf_transcode_availability(const char* dir, const char* name, TranscodeFlags* flags);

#endif  // SLT_WEBLIB_TRANSCODE_H_
