#include "weblib/mime_table.h"

#include <json-c/json.h>
#include <strings.h>

#include <cstdio>
#include <cstring>

namespace {

const MimeEntry kTable[kMimeTableRows + 1] = {
    {"pdf", "application/pdf", kClassPdf},
    // Images.
    {"jpg", "image/jpeg", kClassImage},
    {"jpeg", "image/jpeg", kClassImage},
    {"gif", "image/gif", kClassImage},
    {"png", "image/png", kClassImage},
    {"tif", "image/tiff", kClassImage},
    {"tiff", "image/tiff", kClassImage},
    {"bmp", "image/bmp", kClassImage},
    {"cr2", "image/x-canon-cr2", kClassImage},
    {"crw", "image/x-canon-crw", kClassImage},
    {"arw", "image/sony", kClassImage},
    {"sr2", "image/sony", kClassImage},
    {"dcr", "image/dcr", kClassImage},
    {"kdc", "image/kdc", kClassImage},
    {"nef", "image/nef", kClassImage},
    {"mrw", "image/mrw", kClassImage},
    {"pef", "image/pef", kClassImage},
    {"raf", "image/raf", kClassImage},
    {"3fr", "image/3fr", kClassImage},
    {"erf", "image/erf", kClassImage},
    {"mef", "image/mef", kClassImage},
    {"mos", "image/mos", kClassImage},
    {"orf", "image/orf", kClassImage},
    {"rw2", "image/rw2", kClassImage},
    {"dng", "image/dng", kClassImage},
    {"x3f", "image/x3f", kClassImage},
    {"srf", "image/srf", kClassImage},
    {"k25", "image/k25", kClassImage},
    {"ptx", "image/ptx", kClassImage},
    {"tga", "image/x-tga", kClassImage},
    {"raw", "image/raw", kClassImage},
    {"jpe", "image/jpeg", kClassImage},
    {"pdf", "application/pdf", kClassImage},  // shadowed by the first row
    {"iiq", "image/jpeg", kClassImage},
    {"insp", "image/jpeg", kClassImage},
    {"heif", "image/heif", kClassImage},
    {"heic", "image/heic", kClassImage},
    {"webp", "image/webp", kClassImage},
    {"hif", "image/heif", kClassImage},
    // Video.
    {"ifo", "video/dvd", kClassVideo},
    {"bdmv", "video/bluray", kClassVideo},
    {"m2ts", "video/mpeg", kClassVideo},
    {"avi", "video/x-msvideo", kClassVideo},
    {"mpg", "video/mpeg", kClassVideo},
    {"mp4", "video/mp4", kClassVideo},
    {"wmv", "video/x-ms-wmv", kClassVideo},
    {"ts", "video/mpeg", kClassVideo},
    {"tp", "video/mpeg", kClassVideo},
    {"asf", "video/x-ms-asf", kClassVideo},
    {"m2t", "video/mpeg", kClassVideo},
    {"mov", "video/quicktime", kClassVideo},
    {"m2v", "video/mpeg", kClassVideo},
    {"mpeg", "video/mpeg", kClassVideo},
    {"3gp", "video/3gp", kClassVideo},
    {"mkv", "video/x-matroska", kClassVideo},
    {"mts", "video/mpeg", kClassVideo},
    {"tod", "video/mpeg", kClassVideo},
    {"mod", "video/mpeg", kClassVideo},
    {"trp", "video/mpeg", kClassVideo},
    {"m1v", "video/mpeg", kClassVideo},
    {"m4v", "video/mp4", kClassVideo},
    {"rmp4", "video/mp4", kClassVideo},
    {"divx", "video/divx", kClassVideo},
    {"flv", "video/x-flv", kClassVideo},
    {"iso", "video/iso", kClassVideo},
    {"rmvb", "video/vnd.rn-realvideo", kClassVideo},
    {"rm", "video/vnd.rn-realvideo", kClassVideo},
    {"mpv2", "video/x-mpeg2", kClassVideo},
    {"mp2v", "video/x-mpeg2", kClassVideo},
    {"insv", "video/mp4", kClassVideo},
    {"f4v", "video/x-f4v", kClassVideo},
    {"webm", "video/webm", kClassVideo},
    // Audio.
    {"mp3", "audio/mpeg", kClassAudio},
    {"aac", "audio/x-aac", kClassAudio},
    {"wav", "audio/x-wav", kClassAudio},
    {"wma", "audio/x-ms-wma", kClassAudio},
    {"flac", "audio/x-flac", kClassAudio},
    {"ape", "audio/x-monkeys-audio", kClassAudio},
    {"m4a", "audio/x-m4a", kClassAudio},
    {"ogg", "audio/ogg", kClassAudio},
    {"aiff", "audio/x-aiff", kClassAudio},
    {"au", "audio/basic", kClassAudio},
    {"aif", "audio/x-aiff", kClassAudio},
    {"m4r", "audio/x-m4r", kClassAudio},
    {"dsf", "audio/x-dsf", kClassAudio},
    {"dff", "audio/x-dff", kClassAudio},
    {"m4b", "audio/x-m4b", kClassAudio},
    {"mka", "audio/x-matroska", kClassAudio},
    {"wv", "audio/x-wavpack", kClassAudio},
    {"mpa", "audio/mpeg", kClassAudio},
    {"ra", "audio/x-pn-realaudio", kClassAudio},
    // Word processing.
    {"doc", "application/msword", kClassWord},
    {"docx", "application/vnd.openxmlformats-officedocument.wordprocessingml.document", kClassWord},
    {"docm", "application/vnd.ms-word.document.macroEnabled.12", kClassWord},
    {"dotx", "application/vnd.openxmlformats-officedocument.wordprocessingml.template", kClassWord},
    {"dotm", "application/vnd.ms-word.template.macroEnabled.12", kClassWord},
    {"dot", "application/msword", kClassWord},
    // Spreadsheets.
    {"xls", "application/vnd.ms-excel", kClassSpreadsheet},
    {"xlsx", "application/vnd.openxmlformats-officedocument.spreadsheetml.sheet", kClassSpreadsheet},
    {"xlsm", "application/vnd.ms-excel.sheet.macroEnabled.12", kClassSpreadsheet},
    {"xlt", "application/vnd.ms-excel", kClassSpreadsheet},
    {"xltx", "application/vnd.openxmlformats-officedocument.spreadsheetml.template",
     kClassSpreadsheet},
    {"xltm", "application/vnd.ms-excel.template.macroEnabled.12", kClassSpreadsheet},
    {"xlam", "application/vnd.ms-excel.addin.macroEnabled.12", kClassSpreadsheet},
    // Presentations.
    {"ppt", "application/vnd.ms-powerpoint", kClassPresentation},
    {"pptx", "application/vnd.openxmlformats-officedocument.presentationml.presentation",
     kClassPresentation},
    {"pptm", "application/vnd.ms-powerpoint.presentation.macroEnabled.12", kClassPresentation},
    {"potx", "application/vnd.openxmlformats-officedocument.presentationml.template",
     kClassPresentation},
    {"potm", "application/vnd.ms-powerpoint.template.macroEnabled.12", kClassPresentation},
    {"ppam", "application/vnd.ms-powerpoint.addin.macroenabled.12", kClassPresentation},
    {"ppsx", "application/vnd.openxmlformats-officedocument.presentationml.slideshow",
     kClassPresentation},
    {"ppsm", "application/vnd.ms-powerpoint.slideshow.macroEnabled.12", kClassPresentation},
    {"pot", "application/mspowerpoint", kClassPresentation},
    {"pps", "application/vnd.ms-powerpoint", kClassPresentation},
    {"rtf", "application/rtf", kClassPresentation},
    // Mail.
    {"eml", "message/rfc822", kClassMail},
    // Text, archives and other documents; web pages and XML go out as plain text.
    {"txt", "text/plain", kClassOther},
    {"xml", "text/plain", kClassOther},
    {"dtd", "text/plain", kClassOther},
    {"htm", "text/plain", kClassOther},
    {"html", "text/plain", kClassOther},
    {"xhtml", "text/plain", kClassOther},
    {"img", "application/x-img", kClassOther},
    {"zip", "application/zip", kClassOther},
    {"gzip", "application/zip", kClassOther},
    {"tar", "application/octet-stream", kClassOther},
    {"gz", "application/octet-stream", kClassOther},
    {"tgz", "application/octet-stream", kClassOther},
    {"srt", "text/plain", kClassOther},
    {"gdoc", "application/vnd.google-apps.document", kClassOther},
    {"gslides", "application/vnd.google-apps.presentation", kClassOther},
    {"gsheet", "application/vnd.google-apps.spreadsheet", kClassOther},
    {nullptr, nullptr, 0},
};

static_assert(sizeof kTable / sizeof kTable[0] == kMimeTableRows + 1, "132 rows and the end row");

// The first row for the extension of file_name; null when none matches.
// *has_ext tells whether the name has a "." at all.
const MimeEntry* find_row(const char* file_name, bool* has_ext) {
  *has_ext = false;
  if (file_name == nullptr) return nullptr;
  const char* dot = strrchr(file_name, '.');
  if (dot == nullptr) return nullptr;
  *has_ext = true;
  const char* ext = dot + 1;
  for (const MimeEntry* e = kTable; e->ext != nullptr; ++e) {
    if (strcasecmp(e->ext, ext) == 0) return e;
  }
  return nullptr;
}

}  // namespace

const MimeEntry* mime_table() { return kTable; }

int32_t mime_type_of(const char* file_name, char* out) {
  bool has_ext = false;
  const MimeEntry* e = find_row(file_name, &has_ext);
  if (!has_ext) return 0;
  if (e == nullptr) {
    if (out != nullptr) {
      memset(out, 0, kMimeTypeSize);
      snprintf(out, kMimeTypeSize, "%s", "application/octet-stream");
    }
    return 0;
  }
  if (out != nullptr) snprintf(out, kMimeTypeSize, "%s", e->mime_type);
  return e->file_class;
}

int32_t file_class_of(const char* file_name) {
  bool has_ext = false;
  const MimeEntry* e = find_row(file_name, &has_ext);
  return e != nullptr ? e->file_class : 0;
}

int print_mime_table() {
  json_object* root = json_object_new_object();
  if (root == nullptr) return -1;
  json_object* rows = json_object_new_array();
  if (rows == nullptr) {
    json_object_put(root);
    return -1;
  }
  json_object_object_add(root, "datas", rows);
  for (const MimeEntry* e = kTable; e->ext != nullptr; ++e) {
    json_object* row = json_object_new_object();
    if (row == nullptr) {
      json_object_put(root);
      return -1;
    }
    json_object_object_add(row, "ext_name", json_object_new_string(e->ext));
    json_object_object_add(row, "mime_type", json_object_new_string(e->mime_type));
    json_object_array_add(rows, row);
  }
  puts(json_object_to_json_string(root));
  json_object_put(root);
  return 0;
}
