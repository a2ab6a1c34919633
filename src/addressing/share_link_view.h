// Display records of share links: one ShareLinkView per store row, with the
// composed download link, the shared file's size and kind, and the name to
// show. Views are allocated by the caller with calloc and released with
// free_share_link_views.
#ifndef SLT_ADDRESSING_SHARE_LINK_VIEW_H_
#define SLT_ADDRESSING_SHARE_LINK_VIEW_H_

#include <cstddef>
#include <cstdint>

#include "sharelink_db/records.h"

constexpr size_t kDownloadLinkSize = 536;

// Every text is a separate heap copy, null when not filled.
struct ShareLinkView {
  char* ssid;
  char* host;
  char* path;
  char* accesscode;
  int32_t ssl;
  int64_t filesize;  // size of the shared file on disk, 0 when unreadable
  int64_t reserved;  // always 0
  char* download_link;  // kDownloadLinkSize bytes
  int64_t createtic;
  int32_t expire;
  char* useraddr;
  char* creator;
  int32_t download_count;
  int32_t download_limit;
  char* misc;
  char* title;
  char* description;
  int32_t type;
  int32_t multi_file;  // 1 when the link covers two or more files
  char* link_name;
  int32_t trailing_a;  // the record's two integers after link_name, unchanged
  int32_t trailing_b;
  int32_t is_dir;  // 1 when the shared path is a folder (single-file links only)
};

// Fills views[0..count-1] (zeroed by the caller) from records[0..count-1]. A
// record with an empty pkey gets only its createtic. Returns the number of
// records so skipped (0 when count is below 1). A text that cannot be
// allocated stays null.
int build_share_link_views(ShareLinkView* views, int count, const ShareLinkRecord* records);

// Releases every view's texts, from the last view to the first, setting each
// to null, then the array itself (a null array is left alone).
void free_share_link_views(int count, ShareLinkView* views);

#endif  // SLT_ADDRESSING_SHARE_LINK_VIEW_H_
