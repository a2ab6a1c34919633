// One "log" element of the share-link listing: the row's texts inside CDATA
// sections, written raw (nothing is escaped), with the display path of a
// team-folder link asked of the sync tool.
#ifndef SLT_LISTING_XML_ROW_H_
#define SLT_LISTING_XML_ROW_H_

#include <cstddef>

struct ShareLinkView;

// Prints the "\t\t<log>" ... "\t\t</log>" lines of one view on standard output.
void print_share_link_row(const ShareLinkView* view);

// The display path of a stored path: for a "tfx://" address the sync tool's
// answer ("/sbin/mirrasrv_tool" "-8" path) when it begins with "/share",
// else "Mirra/" and the link name; any other path as it stands; "---" for
// none. out is at most size - 1 bytes.
void listing_display_path(const char* path, const char* link_name, char* out, size_t size);

// The folder shown for a display path: a link inside a hidden ".Mirra" sync
// folder shows its folder under "Mirra"; then the POSIX dirname.
void listing_folder_of(const char* display_path, char* out, size_t size);

// XPG basename of a text (the C library's, which never modifies the caller's
// text here).
void listing_basename(const char* text, char* out, size_t size);

#endif  // SLT_LISTING_XML_ROW_H_
