// Relocation while sixteen processes count into the store the way share.cgi does (the shared
// use lock from reading the store path until the count commits): no count is lost or fails.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>
#include "platform/os.h"
#include "sharelink_db/event_rows.h"
#include "sharelink_db/store.h"
#include "sharelink_db/store_use_lock.h"
#include "support/appliance.h"
#include "support/store_fixture.h"
#include "support/zip_share.h"

namespace {
constexpr int kWorkers = 16, kCounts = 60;
TEST(SlowStoreRelocation, CountsDuringACrossVolumeMoveAllLandInTheMovedStore) {
  ApplianceRoot root; ScopedEnv env{{{"SHARELINK_ROOT", root.dir()}}};
  root.script("/bin/mkdir", "exec mkdir -p \"$SHARELINK_ROOT$2\"\n");
  // A move across file systems: a copy, then the original removed (slowly, as a big store would be).
  root.script("/bin/mv", "cp \"$SHARELINK_ROOT$2\" \"$SHARELINK_ROOT$3\" && sleep 0.3 && rm -f \"$SHARELINK_ROOT$2\"\n");
  root.mkdirs("/share/Vol1");
  root.write("/etc/config/Korvix.conf", "[Depot]\nShare_Link_Db = /mnt/ext/share_link.db\n[Storage]\nDefault Volume = /share/Vol1\n");
  root.mkdirs("/mnt/ext"); make_store(root); insert_links(root, {{"k"}});
  int results[2];
  ASSERT_EQ(0, pipe(results));
  std::vector<pid_t> workers;
  for (int w = 0; w < kWorkers; ++w) {
    pid_t pid = fork();
    ASSERT_GE(pid, 0);
    if (pid != 0) { workers.push_back(pid); continue; }
    char counted = 0;
    for (int i = 0; i < kCounts; ++i) {
      StoreUseLock use(StoreUseLock::kShared);
      if (use.held() &&
          sf_exec_sql("UPDATE SHARELINK_EVENT SET download_count = download_count + 1 WHERE pkey = 'k'") == 0) {
        ++counted;
      }
      use.release();
      ::usleep(10000);
    }
    _exit(write(results[1], &counted, 1) == 1 ? 0 : 1);
  }
  ::usleep(150000);
  EXPECT_EQ(1, sf_relocate_db()) << sf_relocate_problem();
  int counted = 0;
  for (pid_t pid : workers) {
    int status = -1; waitpid(pid, &status, 0); EXPECT_EQ(0, status);
    char c = 0; ASSERT_EQ(1, read(results[0], &c, 1)); counted += c;
  }
  close(results[0]); close(results[1]);
  EXPECT_EQ(kWorkers * kCounts, counted);  // no count failed
  EXPECT_EQ(std::to_string(kWorkers * kCounts), store_value(root, "SELECT download_count FROM SHARELINK_EVENT"));
  EXPECT_FALSE(root.exists("/mnt/ext/share_link.db"));  // none of them made a store at the old place
}
}  // namespace

// The same through share.cgi behind lighttpd: 16 clients download while the
// operator relocates the store across volumes. Every served download is
// counted in the moved store, none is refused, and the secret, the access
// file and its audit trail arrive with it (so a cookie made before still opens).
TEST(SlowStoreRelocation, SixteenDownloadersWhileTheStoreMoves) {
  ApplianceRoot root;
  zip_prepare_root(root);
  root.script("/bin/mkdir", "exec mkdir -p \"$SHARELINK_ROOT$2\"\n");
  root.script("/bin/mv", "cp \"$SHARELINK_ROOT$2\" \"$SHARELINK_ROOT$3\" && sleep 0.3 && rm -f \"$SHARELINK_ROOT$2\"\n");
  root.mkdirs("/share/Vol1"), root.mkdirs("/mnt/ext");
  ASSERT_EQ(0, rename(store_file(root).c_str(), root.path("/mnt/ext/share_link.db").c_str()));
  root.write("/etc/config/Korvix.conf", "[Depot]\nShare_Link_Db = /mnt/ext/share_link.db\n[Storage]\nDefault Volume = /share/Vol1\n");
  root.write(std::string(kZipPublic) + "/f.txt", "payload");
  ASSERT_EQ(0, share_add(root, {"k", "/Public/f.txt"}));
  ASSERT_EQ(0, share_add(root, {"c", "/Public/f.txt", "--accesscode", "pw"}));
  auto server = zip_server(root, false);
  ASSERT_TRUE(server->running());
  const std::string page = zip_fetch(root, server->url("/share.cgi?ssid=c")).body, mark = "name=\"form_token\" value=\"";
  const std::string token = page.substr(page.find(mark) + mark.size(), 64);
  Download in = zip_fetch(root, server->url("/share.cgi?ssid=c"), "", {"--data", "form_token=" + token + "&code=pw"});
  const std::string cookie = in.header("set-cookie").substr(0, in.header("set-cookie").find(';'));
  ASSERT_EQ(303, in.status);
  std::vector<std::string> args = {"-s", "--parallel", "--parallel-immediate", "--parallel-max", "16"};
  for (int i = 0; i < 16 * 25; ++i) {
    if (i > 0) args.push_back("--next");
    args.insert(args.end(), {"-A", "client-" + std::to_string(i), "-o", "/dev/null", "-w", "%{http_code}\n",
                             server->url("/share.cgi?ssid=k&dl=1")});
  }
  pid_t mover = fork();
  if (mover == 0) {
    usleep(300 * 1000);
    _exit(run_program(ctl_binary(), {"relocate"}, root).status);
  }
  const std::string out = run_program(find_program("curl"), args, root).out;
  int status = -1;
  waitpid(mover, &status, 0);
  ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
  int ok = 0, other = 0;
  for (size_t at = 0, nl; (nl = out.find('\n', at)) != std::string::npos; at = nl + 1) {
    (out.compare(at, 3, "200") == 0 ? ok : other)++;
  }
  EXPECT_EQ(400, ok); EXPECT_EQ(0, other);
  const std::string moved = "/share/Vol1/.@kdx/share_link_db/";
  EXPECT_TRUE(root.exists(moved + "share_link.db") && root.exists(moved + "share_link_access.db") &&
              root.exists(moved + "share_link_secret"));
  for (const char* gone : {"share_link.db", "share_link_access.db", "share_link_secret"}) {
    EXPECT_FALSE(root.exists(std::string("/mnt/ext/") + gone)) << gone;
  }
  EXPECT_EQ("400", store_value(root, "SELECT download_count FROM SHARELINK_EVENT WHERE pkey = 'k'"));
  EXPECT_EQ(200, zip_fetch(root, server->url("/share.cgi?ssid=c&dl=1"), "", {"-b", cookie}).status);
  const std::string audit = run_program(ctl_binary(), {"audit", "k"}, root).out;
  size_t downloads = 0;
  for (size_t at = audit.find("\tdownload\n"); at != std::string::npos; at = audit.find("\tdownload\n", at + 1)) ++downloads;
  EXPECT_EQ(400u, downloads);
}
