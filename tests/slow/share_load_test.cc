// Many recipients at once through the shipped lighttpd snippet
// (data/lighttpd/share.conf): 40 parallel downloads of a link limited to 10
// give exactly 10 whole files and 30 410s, and the store counts 10. Five
// rounds, a fresh link each, with and without X-Sendfile.
#include <gtest/gtest.h>

#include <map>

#include "support/zip_share.h"

namespace {

TEST(SlowShareLoad, FortyParallelDownloadsOfALinkLimitedToTen) {
  constexpr int kClients = 40, kLimit = 10, kRounds = 5;
  for (const char* x_sendfile : {"1", "0"}) {
    ApplianceRoot root;
    std::string body;
    for (int i = 0; body.size() < 200 * 1024; ++i) body += "block " + std::to_string(i) + "\n";
    root.write("/share/Public/load.bin", body), root.write("/etc/config/smb.conf", "[Public]\npath = /share/Public\n");
    root.write("/etc/config/Korvix.conf", "[System]\nWeb Access Port = 8080\n");
    ASSERT_EQ(run_program(ctl_binary(), {"init"}, root).status, 0);
    // The shipped snippet under a minimal main configuration, as the appliance's own includes it.
    WebServer web(root, find_program("lighttpd"), [&](int port) {
      return "server.modules = (\"mod_alias\", \"mod_cgi\", \"mod_setenv\")\n"
             "server.bind = \"127.0.0.1\"\nserver.port = " + std::to_string(port) + "\n"
             "server.document-root = \"" + root.path("/web/htdocs") + "\"\n"
             "server.errorlog = \"" + root.path("/web/logs/error.log") + "\"\n"
             "var.sharelink_cgi_dir = \"" SLT_BUILD_DIR "\"\nvar.sharelink_root = \"" + root.dir() + "\"\n"
             "var.sharelink_x_sendfile = \"" + x_sendfile + "\"\n"
             "var.sharelink_xsend_folder = \"/etc/config/share_xsend/\"\n"
             "include \"" + source_path("data/lighttpd/share.conf") + "\"\n";
    });
    ASSERT_TRUE(web.running()) << root.read("/web/logs/error.log");
    for (int round = 0; round < kRounds; ++round) {
      SCOPED_TRACE(std::string("X-Sendfile ") + x_sendfile + ", round " + std::to_string(round));
      const std::string ssid = "LkLoadRound" + std::to_string(round), out = "/out" + ssid + "/";
      ASSERT_EQ(0, share_add(root, {ssid, "/Public/load.bin", "--host", "127.0.0.1", "--download-limit",
                                    std::to_string(kLimit)}));
      // One curl, 40 transfers at once; each client its own User-Agent, so
      // no two count as the same visitor.
      root.mkdirs(out);
      std::vector<std::string> args = {"-s", "--parallel", "--parallel-immediate", "--parallel-max",
                                       std::to_string(kClients)};
      for (int i = 0; i < kClients; ++i) {
        const std::string n = std::to_string(i);
        if (i > 0) args.push_back("--next");
        args.insert(args.end(), {"-A", "load-client-" + n, "-o", root.path(out + n), "-w",
                                 "%{http_code} " + n + "\n", web.url("/share.cgi?ssid=" + ssid + "&dl=1")});
      }
      RunResult r = run_program(find_program("curl"), args, root);
      ASSERT_EQ(r.status, 0) << r.err;
      std::map<std::string, int> statuses;  // a 200 counts only with the whole file
      for (size_t at = 0, nl; (nl = r.out.find('\n', at)) != std::string::npos; at = nl + 1) {
        const std::string code = r.out.substr(at, 3), file = out + r.out.substr(at + 4, nl - at - 4);
        ++statuses[code == "200" && root.read(file) != body ? "200 but not the file" : code];
      }
      EXPECT_EQ(statuses, (std::map<std::string, int>{{"200", kLimit}, {"410", kClients - kLimit}}));
      EXPECT_EQ(kLimit, share_count(root, ssid));
    }
  }
}

}  // namespace
