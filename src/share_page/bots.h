// Link-preview and mail-scanner clients: they fetch a mailed link before (or
// instead of) the person it was meant for, so they see only the page and
// never start or count a download.
#ifndef SLT_SHARE_PAGE_BOTS_H_
#define SLT_SHARE_PAGE_BOTS_H_

// True when the User-Agent names one of them (case-insensitive substring
// match against the maintained table in bots.cc). Null is no bot.
bool is_preview_bot(const char* user_agent);

#endif  // SLT_SHARE_PAGE_BOTS_H_
