#include "support/zip_share.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "support/store_fixture.h"

const char kZipPublic[] = "/share/VOL1/Public";

void zip_prepare_root(const ApplianceRoot& root) {
  root.write("/etc/config/smb.conf", std::string("[Public]\npath = ") + kZipPublic + "\n");
  run_program(ctl_binary(), {"init"}, root);
}

int share_add(const ApplianceRoot& root, std::vector<std::string> args) {
  args.insert(args.begin(), "add");
  args.insert(args.end(), {"--creator", "admin"});
  return run_program(ctl_binary(), args, root).status;
}

int share_count(const ApplianceRoot& root, const std::string& key) {
  return stoi(store_value(root, "SELECT download_count FROM SHARELINK_EVENT WHERE pkey='" + key + "'"));
}

std::unique_ptr<WebServer> zip_server(const ApplianceRoot& root, bool measure) {
  std::string cgi = SLT_BUILD_DIR "/share.cgi";
  if (measure) {
    // Not exec: the server stops its child (this shell) once the answer is
    // complete, and GNU time must live on to write the figure.
    root.script("/web/cgi/share.cgi", "/usr/bin/time -f %M -o '" + root.path("/web/rss") + "' '" + cgi + "'\n");
    cgi = root.path("/web/cgi/share.cgi");
  }
  root.mkdirs("/web/htdocs"), root.mkdirs("/web/logs");
  return std::make_unique<WebServer>(root, find_program("lighttpd"), [&root, cgi](int port) {
    return "server.modules = (\"mod_alias\", \"mod_setenv\", \"mod_cgi\")\n"
           "server.bind = \"127.0.0.1\"\nserver.port = " + std::to_string(port) + "\n"
           "server.document-root = \"" + root.path("/web/htdocs") + "\"\n"
           "server.errorlog = \"" + root.path("/web/logs/error.log") + "\"\n"
           "server.stream-response-body = 2\nserver.range-requests = \"disable\"\n"
           "alias.url = (\"/share.cgi\" => \"" + cgi + "\")\ncgi.assign = (\".cgi\" => \"\")\n"
           "setenv.add-environment = (\"SHARELINK_ROOT\" => \"" + root.dir() + "\")\n";
  });
}

Download zip_fetch(const ApplianceRoot& root, const std::string& url, const std::string& ap,
                   const std::vector<std::string>& extra) {
  std::vector<std::string> args = {"-s", "--globoff", "-A", "Mozilla/5.0 (X11; Linux x86_64) Firefox/128.0"};
  args.insert(args.end(), extra.begin(), extra.end());
  if (ap.empty()) args.push_back("-i");
  else args.insert(args.end(), {"-D", "-", "-o", root.path(ap), "-w", "received=%{size_download}"});
  args.push_back(url);
  Download d;
  static_cast<Response&>(d) = parse_response(run_program("/usr/bin/curl", args, root).out);
  if (!ap.empty()) d.received = atoll(d.body.c_str() + d.body.rfind('=') + 1), d.body.clear();
  if (d.has("content-length")) d.length = atoll(d.header("content-length").c_str());
  return d;
}

std::string zip_readers_verdict(const ApplianceRoot& root, const std::string& ap,
                                const std::string& folder_ap, const std::vector<std::string>& files) {
  std::vector<std::string> args = {SLT_SOURCE_DIR "/tests/zip/check_zip.py", root.path(ap), root.path(folder_ap)};
  for (const auto& f : files) args.push_back(root.path(f));
  RunResult r = run_program("/usr/bin/python3", args, root);
  return r.status == 0 ? "" : "exit " + std::to_string(r.status) + ": " + r.out + r.err;
}

long zip_last_rss_kib(const ApplianceRoot& root) {
  // GNU time writes once the program has ended, maybe after the client has
  // its last byte; the figure is its last line.
  std::string text;
  for (int i = 0; i < 100 && (text = root.read("/web/rss")).find('\n') == std::string::npos; ++i) usleep(100000);
  root.remove("/web/rss");
  if (text.size() < 2) return -1;
  return atol(text.c_str() + text.rfind('\n', text.size() - 2) + 1);  // npos + 1 is 0
}

void make_deep_chain(const ApplianceRoot& root, const std::string& ap, int depth, bool files) {
  root.mkdirs(ap);
  int fd = open(root.path(ap).c_str(), O_RDONLY | O_DIRECTORY);
  for (int i = 1; i <= depth && fd >= 0; ++i) {
    mkdirat(fd, "d", 0755);
    const int next = openat(fd, "d", O_RDONLY | O_DIRECTORY);
    close(fd), fd = next;
    if (files && fd >= 0) {
      const int f = openat(fd, "f", O_WRONLY | O_CREAT | O_TRUNC, 0644);
      const std::string level = std::to_string(i);
      if (f >= 0 && write(f, level.data(), level.size()) < 0) {}
      close(f);
    }
  }
  if (fd >= 0) close(fd);
}

void remove_deep_chain(const ApplianceRoot& root, const std::string& ap) {
  // Lifts the chain's second folder up beside the first, then removes the
  // first: a constant number of calls per level.
  const int top = open(root.path(ap).c_str(), O_RDONLY | O_DIRECTORY);
  if (top < 0) return;
  struct stat st;
  while (fstatat(top, "d", &st, AT_SYMLINK_NOFOLLOW) == 0) {
    const bool deeper = renameat(top, "d/d", top, "lifted") == 0;
    unlinkat(top, "d/f", 0);
    if (unlinkat(top, "d", AT_REMOVEDIR) != 0) break;  // something else in it
    if (deeper) renameat(top, "lifted", top, "d");
  }
  close(top);
}
