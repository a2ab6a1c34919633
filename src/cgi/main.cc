// sharelink.cgi: the request library behind a web server (CGI/1.1).
#include "weblib/cgi_front.h"

int main() { return sharelink_cgi_main(); }
