// The view builder's file facts: what a caller of the library gets beside the printed fields.
#include <gtest/gtest.h>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include "addressing/host_address.h"
#include "addressing/share_link_view.h"
#include "sharelink_db/fid_rows.h"
#include "sharelink_db/store.h"
#include "support/appliance.h"

namespace {
template <size_t N>
void set(char (&field)[N], const char* value) { snprintf(field, N, "%s", value); }

TEST(ShareLinkViews, FileFactsKindsNamesAndSkippedRecords) {
  ApplianceRoot root;
  ScopedEnv env{{{"SHARELINK_ROOT", root.dir()}}};
  root.write("/etc/config/smb.conf", "[Public]\npath = /share/VOL1/Public\n");
  root.write("/share/VOL1/Public/a.txt", "hello"), root.mkdirs("/share/VOL1/Public/dir");
  ASSERT_EQ(0, sf_create_tables());
  for (const char* fid : {"F1", "F2"}) {
    ShareLinkFidRecord f;
    memset(&f, 0, sizeof f);
    set(f.pkey, "MULTI"), set(f.fid, fid), set(f.sharefile, "/Public/dir/x");
    ASSERT_EQ(0, sf_fid_insert(&f));
  }
  memset(&g_host_address_table, 0, sizeof g_host_address_table);
  set(g_host_address_table.local_ip, "192.168.1.10");
  const struct { const char* key; const char* path; const char* creator; const char* name; } in[] = {
      {"K1", "/Public/a.txt", "admin", "----"}, {"", "/Public/a.txt", "admin", ""},
      {"MULTI", "/Public/dir", "Mirra:alice", "Holiday"}, {"DIR", "/Public/dir", "admin", ""},
      {"LOOSE", "noslash", "", ""}};
  ShareLinkRecord records[5];
  memset(records, 0, sizeof records);
  for (int i = 0; i < 5; ++i) {
    set(records[i].pkey, in[i].key), set(records[i].host, "192.168.1.10"), set(records[i].sharefile, in[i].path);
    set(records[i].creator, in[i].creator), set(records[i].link_name, in[i].name);
  }
  auto* views = static_cast<ShareLinkView*>(calloc(5, sizeof(ShareLinkView)));
  ASSERT_NE(nullptr, views);
  EXPECT_EQ(1, build_share_link_views(views, 5, records));
  // name, size, several files, folder: a skipped record keeps its zeroes; no creator, no file facts
  const struct { const char* name; long long size; int multi, dir; } want[] = {
      {"a.txt", 5, 0, 0}, {nullptr, 0, 0, 0}, {"Holiday", -1, 1, 0}, {"dir", -1, 0, 1}, {"noslash", 0, 0, 0}};
  for (int i = 0; i < 5; ++i) {
    SCOPED_TRACE(i);
    EXPECT_STREQ(want[i].name, views[i].link_name);
    if (want[i].size >= 0) { EXPECT_EQ(want[i].size, views[i].filesize); }
    EXPECT_EQ(want[i].multi, views[i].multi_file);
    EXPECT_EQ(want[i].dir, views[i].is_dir);
  }
  free_share_link_views(5, views);
  memset(&g_host_address_table, 0, sizeof g_host_address_table);
}
}  // namespace
