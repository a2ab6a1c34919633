// File delivery over HTTP: a file's bytes as the body of a CGI response on
// standard output, with the header lines before it ("Status:" lines for the
// answers other than 200; the web server forwards them).
//
// send_file_with_ranges serves any file inline with one byte range, the
// not-modified test and caching headers; send_transcoded_file serves one
// transcoded variant of a video as an attachment. Header lines are written
// byte for byte as the web pages and players expect them, including the
// lines that end without a carriage return.
#ifndef SLT_WEBLIB_FILE_DELIVERY_H_
#define SLT_WEBLIB_FILE_DELIVERY_H_

#include <cstddef>
#include <cstdio>
#include <ctime>

// Opens the real path (an appliance path) for reading; null with errno on
// failure. The caller closes the stream.
FILE* sf_open_real_file(const char* real_path);

// The path kind (kdx_check_file_ap_type) of the last display path this
// process resolved for delivery; -1 before any.
int sf_current_path_kind();

// Room for the real path beyond the display path's length.
constexpr size_t kRealPathSlack = 545;

// Resolves a display path for delivery: classifies it (kept as the current
// path kind), then turns it into the real path with the logged-in user
// (REMOTE_USER) as the owner; a remote-folder path takes the remote-folder
// resolution. Returns the file kind (FileKind, 0 or more) with the real path
// in out, or -1 (out empty) when the path is invalid or does not resolve.
int sf_display_to_real_path(const char* display_path, char* out, size_t out_size);

// "Status: 304\r", "Content-Length: 0", CR LF CR LF.
void send_not_modified();

// Cache-Control, Pragma and Expires (now + 604800 s) lines, and Last-Modified
// when mtime is above 0; dates in UTC.
void send_cache_headers(time_t mtime);

// Sends real_path inline: headers, then the whole file or the one range that
// HTTP_RANGE asks for, in chunks of 8192 bytes. IF_MODIFIED_SINCE, when set
// to the file's modification time in seconds, gets the 304 answer instead.
// transcoded = 1 names a variant file (Content-Type video/mp4).
// Returns 0 after a full or partial body or a 304; -1 for a missing or
// non-regular file (nothing sent), a refused range (the 416 answer sent), a
// failed seek, read or write (headers already sent); -4 when the file cannot
// be opened (nothing sent).
int send_file_with_ranges(const char* real_path, int transcoded);

// Sends variant `variant_name` of the video at display_path as an
// attachment; with HTTP_RANGE set, through send_file_with_ranges instead.
// Returns 1 when the body was sent; -1 when the display path does not
// resolve (nothing sent) or the variant could not be sent (headers for an
// empty path may have gone out when the variant is not available).
int send_transcoded_file(const char* display_path, const char* variant_name);

// Bytes the delivery functions of this process have written to standard
// output so far: a caller tells from it whether an answer already started.
unsigned long long delivery_bytes_written();

#endif  // SLT_WEBLIB_FILE_DELIVERY_H_
