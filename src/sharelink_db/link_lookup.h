// One link by its key, with its file rows, for a caller that must not serve
// on a guess: the share page. It tells three outcomes apart, so that a store
// that cannot be read is never taken for a link that does not exist (and a
// fallback never serves a link without its access code).
//
// The store is opened by its opening rule (store_internal.h) but never
// created: a missing file is a store that cannot be read.
#ifndef SLT_SHARELINK_DB_LINK_LOOKUP_H_
#define SLT_SHARELINK_DB_LINK_LOOKUP_H_

#include <string>
#include <utility>
#include <vector>

enum class LinkLookup {
  kFound,       // the link's row (and all its file rows) were read
  kNoSuchKey,   // the store was read and holds no link with the key
  kUnreadable,  // any failure: no store file, a damaged one, a failed statement
};

// The columns of a link that the share page uses; NULL texts read as "",
// NULL numbers as 0.
struct LinkRow {
  std::string pkey;
  std::string sharefile;   // display path
  std::string creator;
  long long expire = 0;    // epoch seconds; 0 = never
  std::string accesscode;  // "" when the link has none
  int download_count = 0;
  int download_limit = 0;  // 0 or less: none
  std::vector<std::pair<std::string, std::string>> fids;  // fid, display path, in row order
};

// Looks `key` up in SHARELINK_EVENT and its rows in SHARELINK_FID. On kFound
// `out` holds the link; on the other outcomes `out` is reset to empty.
LinkLookup sf_lookup_link(const std::string& key, LinkRow* out);

#endif  // SLT_SHARELINK_DB_LINK_LOOKUP_H_
