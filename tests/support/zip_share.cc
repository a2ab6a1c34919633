#include "support/zip_share.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cctype>
#include <cstdlib>
#include <sstream>

const char kZipPublic[] = "/share/VOL1/Public";

void zip_prepare_root(const ApplianceRoot& root) {
  root.write("/etc/config/smb.conf", std::string("[Public]\npath = ") + kZipPublic + "\n");
  run_program(ctl_binary(), {"init"}, root);
}

std::unique_ptr<WebServer> zip_server(const ApplianceRoot& root, bool measure) {
  std::string cgi = SLT_BUILD_DIR "/share.cgi";
  if (measure) {
    // Not exec: the server stops its child (this shell) once the answer is
    // complete, and GNU time must live on to write the figure.
    root.script("/web/cgi/share.cgi", "/usr/bin/time -f %M -o '" + root.path("/web/rss") +
                                          "' '" + cgi + "'\n");
    cgi = root.path("/web/cgi/share.cgi");
  }
  root.mkdirs("/web/htdocs");
  root.mkdirs("/web/logs");
  return std::make_unique<WebServer>(root, find_program("lighttpd"), [&root, cgi](int port) {
    return "server.modules = (\"mod_alias\", \"mod_setenv\", \"mod_cgi\")\n"
           "server.bind = \"127.0.0.1\"\n"
           "server.port = " + std::to_string(port) + "\n"
           "server.document-root = \"" + root.path("/web/htdocs") + "\"\n"
           "server.errorlog = \"" + root.path("/web/logs/error.log") + "\"\n"
           "server.stream-response-body = 2\n"
           "server.range-requests = \"disable\"\n"
           "alias.url = (\"/share.cgi\" => \"" + cgi + "\")\n"
           "cgi.assign = (\".cgi\" => \"\")\n"
           "setenv.add-environment = (\"SHARELINK_ROOT\" => \"" + root.dir() + "\")\n";
  });
}

std::string Download::header(const std::string& name) const {
  size_t at = head.find("\n" + name + ": ");
  if (at == std::string::npos) return "";
  at += name.size() + 3;
  return head.substr(at, head.find('\r', at) - at);
}

Download zip_fetch(const ApplianceRoot& root, const std::string& url, const std::string& ap,
                   const std::vector<std::string>& extra) {
  std::vector<std::string> args = extra;
  const std::string out = root.path(ap);
  args.insert(args.end(), {"-s", "--globoff", "-D", "-", "-o", out, "-A", "Mozilla/5.0 Firefox/128.0",
                           "-w", "\nreceived=%{size_download}", url});
  RunResult r = run_program("/usr/bin/curl", args, root);
  Download d;
  std::string text = r.out;
  size_t tail = text.rfind("\nreceived=");
  if (tail != std::string::npos) {
    d.received = atoll(text.c_str() + tail + 10);
    text.resize(tail);
  }
  for (char& c : text) c = static_cast<char>(tolower(static_cast<unsigned char>(c)));
  d.head = text;
  if (text.compare(0, 5, "http/") == 0) d.status = atoi(text.c_str() + text.find(' ') + 1);
  std::string len = d.header("content-length");
  if (!len.empty()) d.length = atoll(len.c_str());
  return d;
}

std::string zip_readers_verdict(const ApplianceRoot& root, const std::string& ap,
                                const std::string& folder_ap, const std::vector<std::string>& files) {
  std::vector<std::string> args = {SLT_SOURCE_DIR "/tests/zip/check_zip.py", root.path(ap),
                                   root.path(folder_ap)};
  for (const auto& f : files) args.push_back(root.path(f));
  RunResult r = run_program("/usr/bin/python3", args, root);
  return r.status == 0 ? "" : "exit " + std::to_string(r.status) + ": " + r.out + r.err;
}

long zip_last_rss_kib(const ApplianceRoot& root) {
  // GNU time writes once the program has ended, which may be after the
  // client has its last byte.
  for (int i = 0; i < 100 && root.read("/web/rss").find('\n') == std::string::npos; ++i) {
    usleep(100 * 1000);
  }
  std::istringstream in(root.read("/web/rss"));
  root.remove("/web/rss");
  std::string line, last;
  while (std::getline(in, line)) {
    if (!line.empty() && isdigit(static_cast<unsigned char>(line[0]))) last = line;
  }
  return last.empty() ? -1 : atol(last.c_str());
}
