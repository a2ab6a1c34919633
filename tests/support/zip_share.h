// Share links behind the real lighttpd for the share and zip tests: a root
// with the Public share, the server over share.cgi, curl as the client, and
// the three zip readers' verdict.
#ifndef SLT_TESTS_SUPPORT_ZIP_SHARE_H_
#define SLT_TESTS_SUPPORT_ZIP_SHARE_H_

#include <memory>
#include <string>
#include <vector>

#include "support/appliance.h"
#include "support/web_server.h"

extern const char kZipPublic[];  // the Public share's folder

// smb.conf for the share and an initialised store.
void zip_prepare_root(const ApplianceRoot& root);
// `sharelinkctl add ARGS --creator admin`'s exit status.
int share_add(const ApplianceRoot& root, std::vector<std::string> args);
// The link's download count.
int share_count(const ApplianceRoot& root, const std::string& key);

// lighttpd over share.cgi, streaming the CGI's answer as it comes. measure:
// the CGI runs under GNU time (peak RSS to /web/rss); x_sendfile: the server
// takes file bodies by X-Sendfile.
std::unique_ptr<WebServer> zip_server(const ApplianceRoot& root, bool measure,
                                      bool x_sendfile = false);

struct Download : Response {
  long long length = -1;    // Content-Length
  long long received = -1;  // bytes written to the file
};

// curl's GET of url (extra arguments after the defaults). With `ap` the body
// goes to that file of the root, else into `body`.
Download zip_fetch(const ApplianceRoot& root, const std::string& url, const std::string& ap = "",
                   const std::vector<std::string>& extra = {});

// check_zip.py's verdict on the archive at `ap` against the folder at
// `folder_ap` (or exactly `files`): "" when all three readers accept it
// byte for byte, else the problems.
std::string zip_readers_verdict(const ApplianceRoot& root, const std::string& ap,
                                const std::string& folder_ap,
                                const std::vector<std::string>& files = {});

// Peak RSS in KiB of the last measured CGI run (waited for, then taken
// away), -1 when none.
long zip_last_rss_kib(const ApplianceRoot& root);

#endif  // SLT_TESTS_SUPPORT_ZIP_SHARE_H_
