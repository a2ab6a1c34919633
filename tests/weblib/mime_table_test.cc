#include "weblib/mime_table.h"

#include <gtest/gtest.h>
#include <json-c/json.h>

#include <cstring>
#include <string>

#include "support/appliance.h"
#include "weblib/stdout_capture.h"

namespace {

TEST(MimeTable, LookupIgnoresCaseAndTakesTheLastExtension) {
  char out[kMimeTypeSize];
  EXPECT_EQ(kClassPdf, mime_type_of("REPORT.PDF", out));
  EXPECT_STREQ("application/pdf", out);
  EXPECT_EQ(kClassOther, mime_type_of("archive.tar.gz", out));
  EXPECT_STREQ("application/octet-stream", out);
  EXPECT_EQ(kClassVideo, mime_type_of("/share/Public/holiday.2019.MKV", out));
  EXPECT_STREQ("video/x-matroska", out);
  EXPECT_EQ(kClassPresentation, mime_type_of("deck.ppam", out));
  EXPECT_STREQ("application/vnd.ms-powerpoint.addin.macroenabled.12", out);
  EXPECT_EQ(kClassOther, mime_type_of("index.html", out));
  EXPECT_STREQ("text/plain", out);
  EXPECT_EQ(kClassImage, file_class_of("raw.3FR"));
  EXPECT_EQ(kClassAudio, file_class_of("song.flac"));
  EXPECT_EQ(kClassMail, mime_type_of("m.eml", nullptr));
}

TEST(MimeTable, NoDotLeavesTheOutputAlone) {
  char out[kMimeTypeSize];
  memset(out, 'Z', sizeof out);
  EXPECT_EQ(0, mime_type_of("README", out));
  EXPECT_EQ(0, mime_type_of(nullptr, out));
  for (char c : out) ASSERT_EQ('Z', c);
  EXPECT_EQ(0, file_class_of("README"));
  EXPECT_EQ(0, file_class_of(nullptr));
}

TEST(MimeTable, UnknownExtensionZeroFillsTheOutput) {
  for (const char* name : {"data.unknownext", "trailing.", "a.pd", "a.pdff"}) {
    char out[kMimeTypeSize];
    memset(out, 'Z', sizeof out);
    EXPECT_EQ(0, mime_type_of(name, out)) << name;
    EXPECT_STREQ("application/octet-stream", out);
    for (size_t i = strlen(out); i < sizeof out; ++i) ASSERT_EQ('\0', out[i]) << name << " " << i;
    EXPECT_EQ(0, file_class_of(name));
  }
}

TEST(MimeTable, RowsAreInTheirGroupsAndTheFirstPdfWins) {
  const MimeEntry* t = mime_table();
  size_t n = 0;
  while (t[n].ext != nullptr) ++n;
  ASSERT_EQ(kMimeTableRows, n);
  EXPECT_STREQ("pdf", t[0].ext);
  EXPECT_EQ(kClassPdf, t[0].file_class);
  EXPECT_STREQ("pdf", t[32].ext);
  EXPECT_EQ(kClassImage, t[32].file_class);
  EXPECT_STREQ("gsheet", t[n - 1].ext);
  // Classes come in the order 8, 4, 2, 1, 16, 32, 64, 128, 256, each in one run.
  const int32_t order[] = {8, 4, 2, 1, 16, 32, 64, 128, 256};
  const size_t runs[] = {1, 38, 33, 19, 6, 7, 11, 1, 16};
  size_t i = 0;
  for (size_t g = 0; g < 9; ++g) {
    for (size_t k = 0; k < runs[g]; ++k, ++i) ASSERT_EQ(order[g], t[i].file_class) << t[i].ext;
  }
}

TEST(MimeTable, PrintsEveryRowAsJson) {
  ApplianceRoot root;
  std::string text = capture_stdout(root, [] { EXPECT_EQ(0, print_mime_table()); });
  ASSERT_FALSE(text.empty());
  EXPECT_EQ('\n', text.back());
  EXPECT_EQ(0u, text.find("{ \"datas\": [ { \"ext_name\": \"pdf\", \"mime_type\": \"application\\/pdf\" }, "
                          "{ \"ext_name\": \"jpg\""));
  json_object* doc = json_tokener_parse(text.c_str());
  ASSERT_NE(nullptr, doc);
  json_object* rows = nullptr;
  ASSERT_TRUE(json_object_object_get_ex(doc, "datas", &rows));
  ASSERT_EQ(kMimeTableRows, json_object_array_length(rows));
  for (size_t k = 0; k < kMimeTableRows; ++k) {
    json_object* row = json_object_array_get_idx(rows, k);
    json_object* ext = nullptr;
    json_object* type = nullptr;
    ASSERT_TRUE(json_object_object_get_ex(row, "ext_name", &ext));
    ASSERT_TRUE(json_object_object_get_ex(row, "mime_type", &type));
    EXPECT_STREQ(mime_table()[k].ext, json_object_get_string(ext));
    EXPECT_STREQ(mime_table()[k].mime_type, json_object_get_string(type));
    EXPECT_EQ(2, json_object_object_length(row));
  }
  json_object_put(doc);
}

}  // namespace
