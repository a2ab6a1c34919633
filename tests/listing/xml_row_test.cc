#include "listing/xml_row.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <string>

#include "addressing/share_link_view.h"
#include "support/appliance.h"

namespace {

// Standard output of fn, read back from a file under the appliance root.
template <typename Fn>
std::string stdout_of(const ApplianceRoot& root, Fn fn) {
  std::string path = root.path("/tmp/stdout");
  fflush(stdout);
  int saved = dup(1);
  FILE* f = fopen(path.c_str(), "w");
  dup2(fileno(f), 1);
  fn();
  fflush(stdout);
  dup2(saved, 1);
  close(saved);
  fclose(f);
  return root.read("/tmp/stdout");
}

std::string creator_line(const ApplianceRoot& root, const char* creator) {
  char ssid[] = "K1";
  char creator_copy[64];
  snprintf(creator_copy, sizeof creator_copy, "%s", creator ? creator : "");
  ShareLinkView v{};
  v.ssid = ssid;
  v.creator = creator ? creator_copy : nullptr;
  std::string out = stdout_of(root, [&] { print_share_link_row(&v); });
  size_t at = out.find("<creator>");
  return at == std::string::npos ? out : out.substr(at, out.find('\n', at) - at);
}

TEST(XmlRow, CreatorLosesOnlyTheSyncPrefix) {
  ApplianceRoot root;
  EXPECT_EQ("<creator><![CDATA[ann]]></creator>", creator_line(root, "Mirra:ann"));
  EXPECT_EQ("<creator><![CDATA[ann]]></creator>", creator_line(root, "ann"));
  EXPECT_EQ("<creator><![CDATA[ann]]></creator>", creator_line(root, "xMirra:ann"));
  EXPECT_EQ("<creator><![CDATA[Unknown]]></creator>", creator_line(root, nullptr));
}

TEST(XmlRow, FoldersAndNames) {
  char out[1024];
  listing_folder_of("/share/homes/ann/.Mirra/work/b.txt", out, sizeof out);
  EXPECT_STREQ("Mirra/work", out);
  listing_folder_of("/share/Public/", out, sizeof out);
  EXPECT_STREQ("/share", out);
  listing_folder_of("a.txt", out, sizeof out);
  EXPECT_STREQ(".", out);
  listing_basename("/share/Public/", out, sizeof out);
  EXPECT_STREQ("Public", out);
  listing_basename("", out, sizeof out);
  EXPECT_STREQ(".", out);
}

}  // namespace
