// Share links behind the real lighttpd for the share and zip tests: a root
// with the Public share, lighttpd over share.cgi, curl, the zip readers.
#ifndef SLT_TESTS_SUPPORT_ZIP_SHARE_H_
#define SLT_TESTS_SUPPORT_ZIP_SHARE_H_

#include <memory>
#include <string>
#include <vector>

#include "support/appliance.h"
#include "support/web_server.h"

extern const char kZipPublic[];  // the Public share's folder

void zip_prepare_root(const ApplianceRoot& root);  // smb.conf for the share, the store
int share_add(const ApplianceRoot& root, std::vector<std::string> args);  // add ARGS --creator admin
int share_count(const ApplianceRoot& root, const std::string& key);       // its download count

// lighttpd streaming share.cgi's answers as written; with measure, the CGI
// runs under GNU time.
std::unique_ptr<WebServer> zip_server(const ApplianceRoot& root, bool measure);

struct Download : Response {
  long long length = -1, received = -1;  // Content-Length, bytes written to the file
};
// curl's GET (extra arguments after the defaults); the body to the root's
// file `ap`, or into `body` when ap is "".
Download zip_fetch(const ApplianceRoot& root, const std::string& url, const std::string& ap = "",
                   const std::vector<std::string>& extra = {});

// check_zip.py on the archive `ap` against the folder `folder_ap` (or exactly
// `files`): "" when all three readers accept it byte for byte, else why not.
std::string zip_readers_verdict(const ApplianceRoot& root, const std::string& ap, const std::string& folder_ap,
                                const std::vector<std::string>& files = {});

long zip_last_rss_kib(const ApplianceRoot& root);  // the last measured run's peak RSS, taken away

// A chain of `depth` folders "d/d/.../d" in the root's folder `ap` (made
// first), each holding a file "f" with its level when `files`. Removed with
// remove_deep_chain: deeper than any path, so the root's own removal fails.
void make_deep_chain(const ApplianceRoot& root, const std::string& ap, int depth, bool files);
void remove_deep_chain(const ApplianceRoot& root, const std::string& ap);

#endif  // SLT_TESTS_SUPPORT_ZIP_SHARE_H_
