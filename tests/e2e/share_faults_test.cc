// share.cgi under attack and under faults, behind the real lighttpd: ranges
// against limits, the store's own files inside a share, parallel guesses,
// and the access file, the secret and the store made unusable. Nothing may
// fail open: a request that cannot be recorded is refused with 503.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <map>

#include "support/store_fixture.h"
#include "support/zip_share.h"

namespace {

using Args = std::vector<std::string>;
bool has(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }

class ShareFaults : public ::testing::Test {
 protected:
  void SetUp() override {
    if (find_program("lighttpd").empty()) GTEST_SKIP() << "lighttpd is not installed";
    zip_prepare_root(root_);
    root_.write(std::string(kZipPublic) + "/a.txt", "inside");
    add({"open", "/Public/a.txt"}), add({"coded", "/Public/a.txt", "--accesscode", "s3cret"});
    server_ = zip_server(root_, false);
    ASSERT_TRUE(server_->running()) << root_.read("/web/logs/error.log");
  }
  void add(const Args& args) { ASSERT_EQ(0, share_add(root_, args)); }
  Download get(const std::string& query, const Args& extra = {}) {
    return zip_fetch(root_, server_->url("/share.cgi" + query), "", extra);
  }
  std::string token(const std::string& query) {
    const std::string body = get(query).body, mark = "name=\"form_token\" value=\"";
    const size_t at = body.find(mark);
    return at == std::string::npos ? "" : body.substr(at + mark.size(), 64);
  }
  // Statuses of `n` requests sent at once by one curl, each with its own
  // User-Agent ("client-N") and the arguments `each(i)` gives.
  std::map<int, int> burst(int n, const std::string& query, const std::function<Args(int)>& each) {
    Args args = {"-s", "--parallel", "--parallel-immediate", "--parallel-max", std::to_string(n)};
    for (int i = 0; i < n; ++i) {
      if (i > 0) args.push_back("--next");
      Args one = each(i);
      args.insert(args.end(), one.begin(), one.end());
      args.insert(args.end(), {"-A", "client-" + std::to_string(i), "-o", "/dev/null", "-w", "%{http_code}\n",
                               server_->url("/share.cgi" + query)});
    }
    std::map<int, int> statuses;
    const std::string out = run_program(find_program("curl"), args, root_).out;
    for (size_t at = 0, nl; (nl = out.find('\n', at)) != std::string::npos; at = nl + 1) {
      ++statuses[atoi(out.substr(at, nl - at).c_str())];
    }
    return statuses;
  }
  std::string audit(const std::string& key) { return run_program(ctl_binary(), {"audit", key}, root_).out; }
  int lines_with(const std::string& text, const std::string& part) {
    int n = 0;
    for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++n;
    return n;
  }

  ApplianceRoot root_;
  std::unique_ptr<WebServer> server_;
};

// Fifty visitors each asking for the bytes after the first of a link limited
// to one download: one of them gets them, and that one counts.
TEST_F(ShareFaults, RangesFromAnyStartCountUnderTheLimit) {
  add({"one", "/Public/a.txt", "--download-limit", "1"});
  std::map<int, int> statuses = burst(50, "?ssid=one&dl=1", [](int) { return Args{"-H", "Range: bytes=1-"}; });
  EXPECT_EQ((std::map<int, int>{{206, 1}, {410, 49}}), statuses);
  EXPECT_EQ(1, share_count(root_, "one"));
}

// A burst of wrong codes from one client is checked five at a time, however
// parallel; the right one among them is only accepted while within the five.
TEST_F(ShareFaults, ParallelGuessesAreCheckedNoMoreThanTheThrottleAllows) {
  const std::string t = token("?ssid=coded");
  std::map<int, int> statuses = burst(30, "?ssid=coded", [&](int i) {
    return Args{"--data", "form_token=" + t + "&code=" + (i == 29 ? "s3cret" : "guess" + std::to_string(i))};
  });
  const std::string trail = audit("coded");
  const int accepted = lines_with(trail, "\tcode-accepted\n");
  EXPECT_EQ(5, lines_with(trail, "\tbad-code\n")) << trail;
  EXPECT_LE(accepted, 1);
  EXPECT_EQ(30 - 5 - accepted, statuses[429]);
  EXPECT_EQ(5, statuses[403]); EXPECT_EQ(accepted, statuses[303]);
}

// The store under a share (a configuration set before relocation refused
// it, or by hand): its folder and everything in it, hidden names and the
// appliance's ".@" folders are never served or listed.
TEST_F(ShareFaults, TheStoresFolderAndSystemFoldersAreNeverServed) {
  const std::string home = store_file(root_);
  for (const std::string folder : {"/.links", "/links"}) {
    SCOPED_TRACE(folder);
    const std::string n = std::to_string(folder.size());
    const std::string dir = std::string(kZipPublic) + folder;
    root_.mkdirs(dir);
    ASSERT_EQ(0, rename(home.c_str(), root_.path(dir + "/share_link.db").c_str()));
    root_.write("/etc/config/Korvix.conf", "[Depot]\nShare_Link_Db = " + dir + "/share_link.db\n");
    add({"pub" + n, "/Public"}), add({"db" + n, "/Public" + folder + "/share_link.db"});
    const std::string q = "?ssid=pub" + n;
    EXPECT_EQ(200, get(q + "&dl=1&path=a.txt").status);  // the access file and the secret now live there too
    ASSERT_TRUE(root_.exists(dir + "/share_link_access.db"));
    for (const std::string& p : {"/share_link.db", "/share_link_access.db", "/share_link_secret", ""}) {
      EXPECT_EQ(404, get(q + "&dl=1&path=" + folder.substr(1) + p).status) << p;
      EXPECT_EQ(404, get(q + "&path=" + folder.substr(1) + p).status) << p;
    }
    EXPECT_EQ(404, get("?ssid=db" + n + "&dl=1").status);
    EXPECT_FALSE(has(get(q).body, folder.substr(1))) << get(q).body;
    rename(root_.path(dir + "/share_link.db").c_str(), home.c_str());
    root_.remove("/etc/config/Korvix.conf");
    std::filesystem::remove_all(root_.path(dir));  // what the page made there meanwhile
  }
  root_.write(std::string(kZipPublic) + "/.@kdx/x.txt", "system"), root_.write(std::string(kZipPublic) + "/.hidden", "h");
  add({"sys", "/Public/.@kdx/x.txt"}), add({"pub", "/Public"});
  EXPECT_EQ(404, get("?ssid=sys&dl=1").status);
  for (const char* p : {".hidden", ".@kdx/x.txt", ".@kdx"}) EXPECT_EQ(404, get(std::string("?ssid=pub&dl=1&path=") + p).status) << p;
  // Hard links to the store's files, made inside the share by anyone who can.
  get("?ssid=coded");  // the secret exists
  const std::string pub = std::string(kZipPublic) + "/";
  ASSERT_EQ(0, link(home.c_str(), root_.path(pub + "db.bin").c_str()));
  ASSERT_EQ(0, link(root_.path("/etc/config/share_link_secret").c_str(), root_.path(pub + "key.bin").c_str()));
  add({"dbl", "/Public/db.bin"});
  for (const char* q : {"?ssid=pub&dl=1&path=db.bin", "?ssid=pub&dl=1&path=key.bin", "?ssid=dbl&dl=1"}) {
    EXPECT_EQ(404, get(q).status) << q;
  }
  const std::string page = get("?ssid=pub").body;
  EXPECT_FALSE(has(page, "db.bin") || has(page, "key.bin")) << page;
  Download zip = zip_fetch(root_, server_->url("/share.cgi?ssid=pub&zip=1"), "/web/pub.zip");
  EXPECT_EQ(200, zip.status);
  const std::string archive = root_.read("/web/pub.zip");
  EXPECT_FALSE(has(archive, "db.bin") || has(archive, "key.bin") || has(archive, "SQLite format"));
  // A multi-file link shares its files, not the folder its own path names.
  add({"multi", "/Public", "--fid", "f1:/Public/a.txt"});
  for (const char* q : {"?ssid=multi&dl=1&path=a.txt", "?ssid=multi&path=.@kdx", "?ssid=multi&path=links"}) {
    EXPECT_EQ(404, get(q).status) << q;
  }
}

// Names that would read otherwise (bidi overrides, controls) are shown and
// archived without those characters, byte for byte in the archive.
TEST_F(ShareFaults, NamesLoseTheirHiddenControlsOnPagesAndInArchives) {
  const std::string odd = "photo\u202Egpj.exe", esc = "bell\x07\x1b[2Jx.txt";
  root_.write(std::string(kZipPublic) + "/odd/" + odd, "p"), root_.write(std::string(kZipPublic) + "/odd/" + esc, "b");
  add({"odd", "/Public/odd"});
  const std::string page = get("?ssid=odd").body;
  EXPECT_TRUE(has(page, "photogpj.exe") && !has(page, "\u202E") && !has(page, "\x1b")) << page;
  ASSERT_EQ(200, zip_fetch(root_, server_->url("/share.cgi?ssid=odd&zip=1"), "/web/odd.zip").status);
  const std::string archive = root_.read("/web/odd.zip");
  EXPECT_TRUE(has(archive, "photo___gpj.exe") && has(archive, "bell__[2Jx.txt")) << archive;
  EXPECT_FALSE(has(archive, "\u202E") || has(archive, "\x1b"));
}

// No anonymous request grows the access file by more than a line, and
// unknown links stop being recorded past their tier.
TEST_F(ShareFaults, AnonymousRequestsCannotGrowTheAuditTrail) {
  const std::string long_key(5000, 'k'), long_path(3000, 'p');
  for (int i = 0; i < 30; ++i) get("?ssid=" + long_key + std::to_string(i) + "&path=" + long_path);
  get("?ssid=open&dl=1&path=" + long_path);
  const std::string trail = audit("");
  EXPECT_EQ(20, lines_with(trail, "\trefused:unknown\n"));
  EXPECT_LT(trail.size(), 21u * 450) << trail.size();
}

// The access file unusable in each way a disk or a hand can make it: what
// cannot be recorded is refused (503, Retry-After) and logged; a damaged
// file is set aside and made anew, and the request goes on.
TEST_F(ShareFaults, AnUnusableAccessFileFailsClosedOrIsRemade) {
  const std::string file = "/etc/config/share_link_access.db", log = "/tmp/parceldeck.log";
  ASSERT_EQ(200, get("?ssid=open").status);
  struct Damage { const char* name; std::function<void()> make; };
  const Damage healed[] = {
      {"truncated", [&] { ASSERT_EQ(0, truncate(root_.path(file).c_str(), 1000)); }},
      {"overwritten", [&] { root_.write(file, std::string(8192, '\x5a')); }},
      {"a folder", [&] { root_.remove(file), root_.mkdirs(file + "/x"); }},
  };
  for (const Damage& d : healed) {
    SCOPED_TRACE(d.name);
    root_.remove(log), root_.remove(file + ".1"), d.make();
    Download r = get("?ssid=open&dl=1", {"-A", d.name});
    Download again = get("?ssid=open&dl=1", {"-A", std::string(d.name) + "2"});
    EXPECT_TRUE(r.status == 200 || r.status == 503) << r.status;  // the next one finds a new file
    EXPECT_EQ(200, again.status);
    EXPECT_TRUE(root_.exists(file + ".1"));
    EXPECT_PRED2(has, root_.read(log), "set aside");
  }
  // Unreadable to share.cgi's user (root reads anything, so share.cgi runs
  // as nobody here): set aside and made anew as well.
  root_.remove(log), root_.remove(file + ".1");
  for (const char* dir : {"", "/etc", "/etc/config", "/tmp", "/share", "/share/VOL1", "/share/VOL1/Public"}) {
    chmod(root_.path(dir).c_str(), 0777);
  }
  chmod(store_file(root_).c_str(), 0666), chmod(root_.path(file).c_str(), 0);
  RunResult nobody = run_program("/usr/bin/setpriv", {"--reuid=65534", "--regid=65534", "--clear-groups",
                                                      SLT_BUILD_DIR "/share.cgi"},
                                 root_, {{"REQUEST_METHOD", "GET"}, {"QUERY_STRING", "ssid=open&dl=1"},
                                         {"REMOTE_ADDR", "192.0.2.8"}});
  EXPECT_EQ(0u, nobody.out.find("Status: 200")) << nobody.out.substr(0, 300);
  EXPECT_TRUE(root_.exists(file + ".1")); EXPECT_PRED2(has, root_.read(log), "set aside");
  // A full disk and a read-only volume under the store's folder (a mount
  // namespace of share.cgi's own): nothing is served unrecorded.
  if (run_program("/usr/bin/unshare", {"-m", "true"}, root_).status != 0) GTEST_SKIP() << "no mount namespaces";
  const std::string dir = root_.path("/etc/config");
  ASSERT_EQ(0, run_program("/bin/cp", {"-a", dir, root_.path("/saved")}, root_).status);
  const std::string full = "mount -t tmpfs -o size=256k tmpfs '" + dir + "' && cp -a '" + root_.path("/saved") +
                           "/.' '" + dir + "/' && (dd if=/dev/zero of='" + dir + "/filler' bs=4k 2>/dev/null; true)";
  const std::string ro = "mount --bind '" + dir + "' '" + dir + "' && mount -o remount,ro,bind '" + dir + "'";
  const int count = share_count(root_, "open");
  for (const std::string& setup : {full, ro}) {
    root_.remove(log);
    RunResult r = run_program("/usr/bin/unshare", {"-m", "/bin/sh", "-c", setup + " && exec \"$0\"",
                                                   SLT_BUILD_DIR "/share.cgi"},
                              root_, {{"REQUEST_METHOD", "GET"}, {"QUERY_STRING", "ssid=open&dl=1"},
                                      {"REMOTE_ADDR", "192.0.2.9"}, {"HTTP_USER_AGENT", "full"}});
    EXPECT_EQ(0u, r.out.find("Status: 503")) << setup << "\n" << r.out.substr(0, 300) << r.err;
    EXPECT_PRED2(has, r.out, "\r\nRetry-After: 60\r\n");
    EXPECT_PRED2(has, root_.read(log), "share.cgi: ");
  }
  EXPECT_EQ(count, share_count(root_, "open"));
}

// A damaged store never falls back to a registry line of the same key (which
// carries no code), and its visitors are not taken for guessers.
TEST_F(ShareFaults, ADamagedStoreAnswers503ForItsKeys) {
  root_.write("/etc/config/shareFileEx.ini",
              "coded\thost\tx\t0\t" + std::string(kZipPublic) + "/a.txt\tx\t0\tx\tx\n");
  std::string db = read_file(store_file(root_));
  for (int i = 0; i < 100; ++i) db[i] = static_cast<char>(i * 37 + 11);
  root_.write("/etc/config/share_link.db", db);
  for (const char* q : {"?ssid=coded&dl=1", "?ssid=coded", "?ssid=nosuch"}) {
    Download r = get(q);
    EXPECT_EQ(503, r.status) << q;
    EXPECT_FALSE(has(r.body, "inside")) << q;
  }
  EXPECT_FALSE(has(audit(""), "refused:unknown"));
}

// A damaged secret is replaced, the operator is told, and the right code
// still lets the visitor in (with the new secret's cookie).
TEST_F(ShareFaults, ADamagedSecretIsReplacedAndReported) {
  const std::string secret = "/etc/config/share_link_secret", log = "/tmp/parceldeck.log";
  struct Damage { const char* name; std::function<void()> make; };
  const Damage damages[] = {
      {"empty", [&] { root_.write(secret, ""); }},
      {"short", [&] { root_.write(secret, std::string(16, 'k')); }},
      {"a folder", [&] { root_.remove(secret), root_.mkdirs(secret + "/x"); }},
      {"a link", [&] { root_.remove(secret), symlink("/etc/passwd", root_.path(secret).c_str()); }},
  };
  for (const Damage& d : damages) {
    SCOPED_TRACE(d.name);
    get("?ssid=coded");  // makes it when missing
    root_.remove(log), d.make();
    RunResult health = run_program(ctl_binary(), {"health"}, root_);
    EXPECT_EQ(1, health.status); EXPECT_PRED2(has, health.out, "share_link_secret: damaged");
    const std::string t = token("?ssid=coded");
    Download in = get("?ssid=coded", {"--data", "form_token=" + t + "&code=s3cret"});
    ASSERT_EQ(303, in.status) << in.head;
    const std::string cookie = in.header("set-cookie").substr(0, in.header("set-cookie").find(';'));
    EXPECT_EQ(200, get("?ssid=coded&dl=1", {"-b", cookie}).status);
    EXPECT_PRED2(has, root_.read(log), "was damaged");
    EXPECT_EQ(32u, root_.read(secret).size());
    EXPECT_EQ(0, run_program(ctl_binary(), {"health"}, root_).status);
  }
  root_.write(secret + ".4242", "leftover of a killed first creation");
  root_.remove(secret);
  EXPECT_EQ(200, get("?ssid=coded").status);
  EXPECT_FALSE(root_.exists(secret + ".4242"));
}

}  // namespace
