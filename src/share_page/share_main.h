// share.cgi: the recipient's side of a share link (CGI/1.1): the request is
// read once, the gate decides it, and the answer follows the verdict's kind.
#ifndef SLT_SHARE_PAGE_SHARE_MAIN_H_
#define SLT_SHARE_PAGE_SHARE_MAIN_H_

// Serves one request from the CGI environment. The exit status.
int share_cgi_main();

#endif  // SLT_SHARE_PAGE_SHARE_MAIN_H_
