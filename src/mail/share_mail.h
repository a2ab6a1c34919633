// Mode 1: the share mail that announces share links.
//
// The body is the user's message followed by one line per link id of the run
// context: the link's download URL with a name, or a detail line given on
// the command line. Links are looked up in the share-link store (which also
// purges expired links) and their URLs composed by the addressing module;
// delivery is mail_delivery.h.
#ifndef SLT_MAIL_SHARE_MAIL_H_
#define SLT_MAIL_SHARE_MAIL_H_

#include <cstddef>

#include "registry/run_context.h"
#include "sharelink_db/records.h"

// Composes the mail body from ctx and delivers it. -20 without link ids or
// when delivery fails, -1 when an id cannot be read or the message cannot be
// converted, -2 when a link is missing, else the last pass's result (1 for
// "NULL", 0 for a found link). Corrects ctx->link_count and leaves the last
// id handled in ctx->ssid. A recipient of "none@none" composes and sends
// nothing but still looks every link up.
int compose_share_mail(RunContext* ctx);

// Number of non-empty ","-separated items of text; 0 for none or null.
int count_link_ids(const char* text);

// A malloc'ed copy of the first `length` bytes of text (up to its end) in
// which every line feed is "<br>"; null when text is null or memory runs out.
// A length below 1 gives "".
char* newlines_to_br(const char* text, int length);

// Looks link `id` up after purging expired links. 0 with its URL in url_out
// (and the row in record_out when given); -1 when the link does not exist or
// the store fails; else the select's own failure code.
int get_share_link(const char* id, char* url_out, size_t url_size, ShareLinkRecord* record_out);

#endif  // SLT_MAIL_SHARE_MAIL_H_
