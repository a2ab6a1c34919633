#include "mail/share_mail.h"

// Not yet built: the mode parses its command line and does nothing more.
int compose_share_mail(RunContext* ctx) {
  (void)ctx;
  return 0;
}
