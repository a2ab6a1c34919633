#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "addressing/host_address.h"
#include "addressing/share_link_view.h"
#include "sharelink_db/fid_rows.h"
#include "sharelink_db/records.h"
#include "sharelink_db/store.h"
#include "support/appliance.h"

namespace {

template <size_t N>
void set(char (&field)[N], const char* value) {
  snprintf(field, N, "%s", value);
}

ShareLinkRecord record(const char* key, const char* sharefile, const char* creator,
                       const char* link_name) {
  ShareLinkRecord r;
  memset(&r, 0, sizeof r);
  set(r.pkey, key);
  set(r.host, "192.168.1.10");
  r.ssl = 1;
  set(r.sharefile, sharefile);
  set(r.creator, creator);
  set(r.link_name, link_name);
  return r;
}

TEST(ShareLinkViews, BuildsLinksNamesSizesAndKinds) {
  ApplianceRoot root;
  ScopedEnv env{{{"SHARELINK_ROOT", root.dir()}}};
  root.write("/etc/config/smb.conf", "[Public]\npath = /share/VOL1/Public\n");
  root.write("/share/VOL1/Public/a.txt", "hello");
  root.mkdirs("/share/VOL1/Public/dir");
  ASSERT_EQ(0, sf_create_tables());
  for (const char* fid : {"F1", "F2"}) {
    ShareLinkFidRecord f;
    memset(&f, 0, sizeof f);
    set(f.pkey, "MULTI");
    set(f.fid, fid);
    set(f.sharefile, "/Public/dir/x");
    ASSERT_EQ(0, sf_fid_insert(&f));
  }
  memset(&g_host_address_table, 0, sizeof g_host_address_table);
  set(g_host_address_table.host_ip, "nas.local");
  set(g_host_address_table.local_ip, "192.168.1.10");
  g_host_address_table.sslPort = 443;

  ShareLinkRecord records[5] = {
      record("K1", "/Public/a.txt", "admin", "----"),
      record("", "/Public/a.txt", "admin", ""),
      record("MULTI", "/Public/dir", "Mirra:alice", "Holiday"),
      record("DIR", "/Public/dir", "admin", ""),
      record("LOOSE", "noslash", "", ""),
  };
  records[1].createtic = 77;
  records[0].expire = 99;
  records[0].download_count = 3;
  records[0].trailing_a = 5;
  records[0].trailing_b = -6;
  set(records[0].title, "T");
  auto* views = static_cast<ShareLinkView*>(calloc(5, sizeof(ShareLinkView)));
  ASSERT_NE(nullptr, views);
  EXPECT_EQ(1, build_share_link_views(views, 5, records));

  EXPECT_STREQ("https://192.168.1.10/share.cgi?ssid=K1", views[0].download_link);
  EXPECT_STREQ("a.txt", views[0].link_name);
  EXPECT_EQ(5, views[0].filesize);
  EXPECT_EQ(0, views[0].multi_file);
  EXPECT_EQ(0, views[0].is_dir);
  EXPECT_EQ(99, views[0].expire);
  EXPECT_EQ(3, views[0].download_count);
  EXPECT_EQ(5, views[0].trailing_a);
  EXPECT_EQ(-6, views[0].trailing_b);
  EXPECT_STREQ("T", views[0].title);
  EXPECT_STREQ("/Public/a.txt", views[0].path);

  EXPECT_EQ(77, views[1].createtic);
  EXPECT_EQ(nullptr, views[1].ssid);
  EXPECT_EQ(nullptr, views[1].download_link);

  EXPECT_STREQ("Holiday", views[2].link_name);
  EXPECT_EQ(1, views[2].multi_file);
  EXPECT_EQ(0, views[2].is_dir);
  EXPECT_STREQ("dir", views[3].link_name);
  EXPECT_EQ(0, views[3].multi_file);
  EXPECT_EQ(1, views[3].is_dir);
  EXPECT_GT(views[3].filesize, 0);

  EXPECT_STREQ("noslash", views[4].link_name);  // no creator: no file facts
  EXPECT_EQ(0, views[4].filesize);
  EXPECT_EQ(0, views[4].is_dir);

  free_share_link_views(5, views);
  EXPECT_EQ(0, build_share_link_views(nullptr, 0, records));
  free_share_link_views(0, nullptr);
  memset(&g_host_address_table, 0, sizeof g_host_address_table);
}

}  // namespace
