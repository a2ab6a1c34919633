// Share mail delivery: one message per recipient, made by filling the mail
// template "/home/httpd/cgi-bin/html/email.tpl" into a temporary file and
// handing that file to "/usr/sbin/sendmail" on its standard input.
//
// The transport account is the system's alert account, or a user's personal
// account when RunContext asks for one. Nothing here prints or logs; results
// are plain codes.
#ifndef SLT_MAIL_MAIL_DELIVERY_H_
#define SLT_MAIL_MAIL_DELIVERY_H_

#include <cstddef>
#include <cstdio>
#include <string>

#include "registry/run_context.h"

extern const char kMailTemplatePath[];  // "/home/httpd/cgi-bin/html/email.tpl"
extern const char kMailProgramPath[];   // "/usr/sbin/sendmail"
extern const char kMailTempPattern[];   // "/tmp/share_mail.html.XXXXXX"

constexpr int kMaxMailRecipients = 20;

// The header values of one message; the buffer sizes bound the values.
struct MailHeader {
  char to_name[64];        // recipient before its first "@"
  char from_name[64];
  char reply_hint[64];     // carried, never printed
  char subject[1024];
  char to_address[256];
  char from_address[256];
  std::string content;     // the body
};

// Sends the mail to every recipient of ctx->recipients (split on "," and line
// feed, trimmed, at most 20 kept; items of 2 characters or fewer skipped).
// 0 when every attempted delivery went out; -20 when there is no recipient,
// none long enough, the copy cannot be made, or one delivery failed (later
// recipients then get nothing).
int deliver_share_mail(const char* subject, const char* body, const char* sender_override,
                       const char* sender, const RunContext* ctx = &g_run_context);

// send_share_mail's results; any other value is the mail program's raw
// wait status.
constexpr int kMailSent = 0;
constexpr int kMailNoServer = 1;        // no outgoing mail server
constexpr int kMailNoRecipient = 2;     // empty recipient
constexpr int kMailNotWritten = 3;      // message file not made or written, or no mail program
constexpr int kMailNoAccount = -1;      // alert account off, or no such personal account

// One message to one recipient: a result above. The message file is removed
// on every path.
int send_share_mail(const char* subject, const char* body, const char* sender,
                    const char* recipient, const char* reply_hint,
                    const RunContext* ctx = &g_run_context);

// Writes the value of template placeholder `name` to out; an unknown name
// writes nothing. Header values (MAIL_TO, MAIL_FROM, MAIL_SUBJECT_TXT) are
// written without carriage returns and line feeds so that no value can start
// a header line of its own. Always 0.
int fill_placeholder(FILE* out, const char* name, const MailHeader* header);

// Removes leading blanks and tabs and trailing carriage returns, blanks, tabs
// and line feeds. With out the result goes there (bounded by size) and text
// is unchanged; without, the result replaces text (bounded by size).
// Returns the length of the result as written.
int trim_text(char* text, char* out, size_t size);

// Template splitter: when text holds two `delimiter` characters, cuts text at
// the first (text then holds the part before), cuts the name at the second,
// sets *rest to the text after it and returns the name. Otherwise returns
// null and leaves text and *rest unchanged.
char* strstrip(char* text, char delimiter, char** rest);

#endif  // SLT_MAIL_MAIL_DELIVERY_H_
