// The file manager's MIME table: file-name extension to MIME type and file
// class, in one fixed order (the first matching row wins, so "pdf" is a PDF
// document and never an image). File delivery takes its Content-Type here;
// the web pages read the whole table as JSON.
#ifndef SLT_WEBLIB_MIME_TABLE_H_
#define SLT_WEBLIB_MIME_TABLE_H_

#include <cstddef>
#include <cstdint>

// File classes: one bit each.
constexpr int32_t kClassAudio = 1;
constexpr int32_t kClassVideo = 2;
constexpr int32_t kClassImage = 4;
constexpr int32_t kClassPdf = 8;
constexpr int32_t kClassWord = 16;
constexpr int32_t kClassSpreadsheet = 32;
constexpr int32_t kClassPresentation = 64;
constexpr int32_t kClassMail = 128;
constexpr int32_t kClassOther = 256;  // text, archives and other documents

struct MimeEntry {
  const char* ext;  // without the dot; compared without regard to case
  const char* mime_type;
  int32_t file_class;
};

constexpr size_t kMimeTableRows = 132;
constexpr size_t kMimeTypeSize = 128;  // the caller's buffer for mime_type_of

// The rows in table order, followed by an empty row (ext null).
const MimeEntry* mime_table();

// The class of the first row whose extension equals the text after the last
// "." of file_name. When out (kMimeTypeSize bytes) is given it receives that
// row's MIME type; for an extension no row has, class 0 and out becomes
// "application/octet-stream" with the rest zeroed. A null name or one
// without a "." gives 0 and leaves out untouched.
int32_t mime_type_of(const char* file_name, char* out);

// The class of the first matching row, or 0.
int32_t file_class_of(const char* file_name);

// Prints {"datas": [{"ext_name", "mime_type"}, ...]} (every row in order)
// and a line feed on standard output. 0, or -1 when memory ran out.
int print_mime_table();

#endif  // SLT_WEBLIB_MIME_TABLE_H_
