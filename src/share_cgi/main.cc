// share.cgi: the recipient's side of share links, behind a web server (CGI/1.1).
#include "share_page/share_main.h"

int main() { return share_cgi_main(); }
