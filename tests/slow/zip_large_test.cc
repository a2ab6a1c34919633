// The large archives behind lighttpd: 70,000 small files (ZIP64 entry count)
// and a sparse file over 4 GiB (ZIP64 sizes and offsets). Three readers must
// accept them byte for byte, Content-Length must equal what arrives, and
// share.cgi's peak RSS must stay within 8 MiB, start-up included.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <climits>
#include <cstring>

#include "support/zip_share.h"

namespace {

// A sanitizer's shadow memory and quarantine make an absolute bound
// meaningless there; what is still checked is that the bytes sent do not
// grow the process.
#ifndef __has_feature
#define __has_feature(x) 0  // GCC before 14
#endif
#if defined(__SANITIZE_ADDRESS__) || __has_feature(address_sanitizer)
constexpr bool kSanitized = true;
#else
constexpr bool kSanitized = false;
#endif

TEST(SlowZip, LargeFoldersStreamInBoundedMemory) {
  if (find_program("lighttpd").empty() || find_program("7z").empty()) GTEST_SKIP() << "no lighttpd or 7z";
  ApplianceRoot root;
  zip_prepare_root(root);
  const std::string pub = kZipPublic;
  root.write(pub + "/Small/x.txt", "x"); root.mkdirs(pub + "/Many/d");
  for (int i = 0; i < 70000; ++i) {
    char name[64];
    snprintf(name, sizeof name, "/Many/%sf%05d.txt", i % 2 ? "d/" : "", i);
    const int fd = open(root.path(pub + name).c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    ASSERT_EQ(static_cast<ssize_t>(strlen(name)), write(fd, name, strlen(name))); close(fd);
  }
  root.write(pub + "/Huge/head.txt", "before the big one"), root.write(pub + "/Huge/big.img", "start");
  root.write(pub + "/Huge/tail.txt", "after it, past 4 GiB");
  const int fd = open(root.path(pub + "/Huge/big.img").c_str(), O_WRONLY);
  ASSERT_EQ(0, ftruncate(fd, (4LL << 30) + 12345));  // sparse
  ASSERT_EQ(3, pwrite(fd, "end", 3, (4LL << 30) + 12342)); close(fd);
  for (const char* folder : {"Small", "Many", "Huge"}) {
    ASSERT_EQ(0, share_add(root, {folder, std::string("/Public/") + folder}));
  }
  auto server = zip_server(root, true);
  ASSERT_TRUE(server->running()) << root.read("/web/logs/error.log");

  ASSERT_EQ(200, zip_fetch(root, server->url("/share.cgi?ssid=Small&zip=1"), "/web/got.zip").status);
  const long base_kib = zip_last_rss_kib(root);  // a one-file archive's
  ASSERT_GT(base_kib, 0);
  for (const std::string folder : {"Many", "Huge"}) {
    SCOPED_TRACE(folder);
    Download d = zip_fetch(root, server->url("/share.cgi?ssid=" + folder + "&zip=1"), "/web/got.zip");
    ASSERT_EQ(200, d.status) << d.head; EXPECT_EQ(d.length, d.received);
    // The whole process, shared libraries and the plan of 70,000 entries
    // included; nothing may grow with the bytes sent.
    const long kib = zip_last_rss_kib(root);
    EXPECT_LE(kib, !kSanitized ? 8 * 1024 : folder == "Huge" ? base_kib + 4 * 1024 : LONG_MAX);
    printf("[ zip ] %s: %lld bytes, share.cgi peak RSS %ld KiB (one-file archive: %ld KiB)\n",
           folder.c_str(), d.received, kib, base_kib);
    EXPECT_EQ("", zip_readers_verdict(root, "/web/got.zip", pub + "/" + folder));
    if (folder == "Huge") {
      // The big file had not changed for seconds: its CRC is kept, and the
      // next archive splices its bytes and must be the same, byte for byte.
      EXPECT_EQ("1\n", run_program("/usr/bin/sqlite3", {root.path("/etc/config/share_link_access.db"),
                                               "SELECT COUNT(*) FROM crc"}, root).out);
      auto sum = [&] { return run_program("/usr/bin/sha256sum", {root.path("/web/got.zip")}, root).out.substr(0, 64); };
      const std::string first = sum();
      root.remove("/web/got.zip");
      Download again = zip_fetch(root, server->url("/share.cgi?ssid=Huge&zip=1"), "/web/got.zip");
      EXPECT_EQ(again.length, again.received);
      EXPECT_LE(zip_last_rss_kib(root), !kSanitized ? 8 * 1024 : base_kib + 4 * 1024);
      EXPECT_EQ(first, sum());
      EXPECT_EQ(64u, first.size());
    }
    root.remove("/web/got.zip");
  }
}

}  // namespace
