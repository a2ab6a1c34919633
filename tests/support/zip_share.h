// share.cgi's archives behind lighttpd, for the zip tests: a server whose
// CGI runs under GNU time (peak RSS to /web/rss), downloads to a file with
// curl, and the three readers' verdict.
#ifndef SLT_TESTS_SUPPORT_ZIP_SHARE_H_
#define SLT_TESTS_SUPPORT_ZIP_SHARE_H_

#include <memory>
#include <string>
#include <vector>

#include "support/appliance.h"
#include "support/web_server.h"

// The public share's folder in the zip tests' roots.
extern const char kZipPublic[];

// smb.conf for the share and an initialised store.
void zip_prepare_root(const ApplianceRoot& root);

// lighttpd over share.cgi, which it runs through /usr/bin/time when
// measure is set. The response body is streamed to the client as the
// CGI writes it (no buffering of whole archives in the server).
std::unique_ptr<WebServer> zip_server(const ApplianceRoot& root, bool measure);

struct Download {
  int status = 0;
  std::string head;         // header lines as received, lower-case names
  long long length = -1;    // Content-Length
  long long received = -1;  // bytes written to the file
  std::string header(const std::string& name) const;
};

// curl's GET of url into the root's file `ap` (extra arguments first).
Download zip_fetch(const ApplianceRoot& root, const std::string& url, const std::string& ap,
                   const std::vector<std::string>& extra = {});

// check_zip.py's verdict on the archive at appliance path `ap` against the
// folder at `folder_ap` (or exactly `files`): "" when all three readers
// accept it byte for byte, else the problems.
std::string zip_readers_verdict(const ApplianceRoot& root, const std::string& ap,
                                const std::string& folder_ap,
                                const std::vector<std::string>& files = {});

// Peak RSS in KiB of the last measured CGI run (waited for, then taken
// away), -1 when none.
long zip_last_rss_kib(const ApplianceRoot& root);

#endif  // SLT_TESTS_SUPPORT_ZIP_SHARE_H_
