// A client that asks for an archive and then reads nothing: share.cgi gives
// up after its stall time (a minute) and frees the slot, long before the web
// server's own write timeout would.
#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <unistd.h>

#include "platform/fs_beneath.h"
#include "support/zip_share.h"

namespace {

TEST(SlowZip, AReaderThatTakesNothingFreesItsSlot) {
  if (find_program("lighttpd").empty()) GTEST_SKIP() << "lighttpd is not installed";
  ApplianceRoot root;
  zip_prepare_root(root);
  root.write(std::string(kZipPublic) + "/Big/big.bin", "");
  ASSERT_EQ(0, truncate(root.path(std::string(kZipPublic) + "/Big/big.bin").c_str(), 256 << 20));
  ASSERT_EQ(0, share_add(root, {"big", "/Public/Big"}));
  auto server = zip_server(root, false);
  ASSERT_TRUE(server->running());
  auto held = [&root] {
    UniqueFd fd(open(root.path("/etc/config/share_zip_slot.0").c_str(), O_RDONLY));
    return fd.get() >= 0 && flock(fd.get(), LOCK_SH | LOCK_NB) != 0;
  };

  UniqueFd sock(socket(AF_INET, SOCK_STREAM, 0));
  const int small = 4096;
  setsockopt(sock.get(), SOL_SOCKET, SO_RCVBUF, &small, sizeof small);
  sockaddr_in to{};
  to.sin_family = AF_INET, to.sin_port = htons(static_cast<uint16_t>(server->port()));
  inet_pton(AF_INET, "127.0.0.1", &to.sin_addr);
  ASSERT_EQ(0, connect(sock.get(), reinterpret_cast<sockaddr*>(&to), sizeof to));
  const std::string ask = "GET /share.cgi?ssid=big&zip=1 HTTP/1.1\r\nHost: x\r\nUser-Agent: Mozilla/5.0\r\n\r\n";
  ASSERT_EQ(static_cast<ssize_t>(ask.size()), write(sock.get(), ask.data(), ask.size()));
  int tries = 0;
  for (; tries < 300 && !held(); ++tries) usleep(100 * 1000);
  ASSERT_TRUE(held());
  // The connection stays open and unread; the web server waits 6 minutes.
  for (tries = 0; tries < 1500 && held(); ++tries) usleep(100 * 1000);
  EXPECT_FALSE(held()) << "still held after 150 s";
  EXPECT_EQ(1, share_count(root, "big"));
}

}  // namespace
