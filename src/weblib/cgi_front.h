// The CGI front of the request library: what sharelink.cgi does for one
// request. Parameter "func" selects the handler:
//   mime_table                       the MIME table as JSON
//   form_token                       the user's form token: {"status": 1, "result": TOKEN}
//   set_share_link_db                the store relocation handler (changes state)
//   download  (path)                 a file inline, with ranges
//   transcode (path, variant)        a transcoded variant as an attachment
// Only requests the web server authenticated (REMOTE_USER set and not empty)
// are answered; any other gets "Status: 403 Forbidden" and status reply 4,
// and nothing is read or changed.
// A function that changes state runs only on a POST (otherwise 405, "Allow:
// POST", status reply 20) whose Origin and Sec-Fetch-Site do not name
// another site and whose urlencoded body carries the user's "form_token"
// (otherwise 403, status reply 4); form_token itself is refused to another
// site the same way. Without the appliance secret both answer 503 with
// Retry-After and status reply 19. Anything else, and a request whose file
// cannot be found or sent before any byte went out, gets the JSON header and
// a status reply.
#ifndef SLT_WEBLIB_CGI_FRONT_H_
#define SLT_WEBLIB_CGI_FRONT_H_

#include "platform/cgi.h"

// Status replies of the front (the numbers the handlers use).
constexpr int kCgiStatusMissing = 20;   // unknown func, missing parameter, no such file
constexpr int kCgiStatusFailed = 19;    // the file exists but could not be opened
constexpr int kCgiStatusNotAdmin = 4;   // no authenticated user, another site, no valid token
constexpr int kCgiStatusDone = 1;       // the form token follows as "result"

// The body parameter that carries the form token.
constexpr char kFormTokenParam[] = "form_token";

// Turns the browser's If-Modified-Since (HTTP_IF_MODIFIED_SINCE, an
// IMF-fixdate) into IF_MODIFIED_SINCE, seconds since the epoch, which file
// delivery compares with the file's time. An absent or malformed date
// removes IF_MODIFIED_SINCE. Returns true when it was set.
bool translate_if_modified_since();

// Answers one request on standard output. Always 0 (the exit status of the
// program: the outcome is in the answer).
int handle_cgi_request(const CgiRequest* request);

// The whole program: reads the request from the environment (and standard
// input), translates If-Modified-Since, answers. Always 0.
int sharelink_cgi_main();

#endif  // SLT_WEBLIB_CGI_FRONT_H_
