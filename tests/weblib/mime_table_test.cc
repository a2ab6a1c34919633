#include "weblib/mime_table.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>


namespace {

TEST(MimeTable, LookupIgnoresCaseAndTakesTheLastExtension) {
  const struct {
    const char* name;
    int32_t file_class;
    const char* type;
  } cases[] = {
      {"REPORT.PDF", kClassPdf, "application/pdf"},  // the first of two pdf rows wins
      {"archive.tar.gz", kClassOther, "application/octet-stream"},
      {"/share/Public/holiday.2019.MKV", kClassVideo, "video/x-matroska"},
      {"deck.ppam", kClassPresentation, "application/vnd.ms-powerpoint.addin.macroenabled.12"},
      {"index.html", kClassOther, "text/plain"},
      {"raw.3FR", kClassImage, "image/3fr"},
      {"song.flac", kClassAudio, "audio/x-flac"},
      {"m.eml", kClassMail, "message/rfc822"},
      {"t.xlsx", kClassSpreadsheet, "application/vnd.openxmlformats-officedocument.spreadsheetml.sheet"},
      {"sheet.gsheet", kClassOther, "application/vnd.google-apps.spreadsheet"},
      // Unknown extensions: the default type, zero-filled to the end.
      {"data.unknownext", 0, "application/octet-stream"},
      {"trailing.", 0, "application/octet-stream"},
      {"a.pdff", 0, "application/octet-stream"},
  };
  for (const auto& c : cases) {
    char out[kMimeTypeSize];
    memset(out, 'Z', sizeof out);
    EXPECT_EQ(c.file_class, mime_type_of(c.name, out)) << c.name;
    EXPECT_STREQ(c.type, out) << c.name;
    for (size_t i = strlen(out); c.file_class == 0 && i < sizeof out; ++i) ASSERT_EQ('\0', out[i]) << c.name;
    EXPECT_EQ(c.file_class, file_class_of(c.name)) << c.name;
  }
  // No dot: the output is left alone.
  char out[kMimeTypeSize];
  memset(out, 'Z', sizeof out);
  EXPECT_EQ(0, mime_type_of("README", out));
  EXPECT_EQ(0, mime_type_of(nullptr, out));
  for (char c : out) ASSERT_EQ('Z', c);
  EXPECT_EQ(0, file_class_of(nullptr));
}

}  // namespace
