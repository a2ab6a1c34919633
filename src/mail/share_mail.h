// Mode 1: the share mail that announces share links.
#ifndef SLT_MAIL_SHARE_MAIL_H_
#define SLT_MAIL_SHARE_MAIL_H_

#include "registry/run_context.h"

// Composes the mail body from ctx and delivers it. -20 without link ids or
// when delivery fails, -1 when an id cannot be read, -2 when a link is
// missing, else the last pass's result (1 for "NULL", 0 for a found link).
int compose_share_mail(RunContext* ctx);

#endif  // SLT_MAIL_SHARE_MAIL_H_
