#include "mail/mail_delivery.h"

#include <cstdarg>
#include <cstring>
#include <ctime>
#include <memory>
#include <new>

#include "platform/base64.h"
#include "platform/exec.h"
#include "platform/facts.h"
#include "platform/fs.h"
#include "platform/os.h"
#include "platform/profile.h"
#include "platform/users.h"

const char kMailTemplatePath[] = "/home/httpd/cgi-bin/html/email.tpl";
const char kMailProgramPath[] = "/usr/sbin/sendmail";
const char kMailTempPattern[] = "/tmp/share_mail.html.XXXXXX";

namespace {

const char kSsmtpConfPath[] = "/etc/config/ssmtp/ssmtp.conf";
const char kIsGMarkerPath[] = "/etc/IS_G";
const char kCompanyLine[] = "Vexa Systems Inc.\n";

// The encoded subject lives in 512 bytes; 381 bytes encode to 508 characters.
constexpr size_t kSubjectBase64Size = 512;
constexpr size_t kMaxEncodedSubject = (kSubjectBase64Size - 1) / 4 * 3;
static_assert(base64_size(kMaxEncodedSubject) <= kSubjectBase64Size, "subject bound");

bool put(FILE* out, const char* data, size_t len) {
  if (len == 0) return true;
  return os.fwrite(data, 1, len, out) == len;
}

bool put(FILE* out, const char* text) { return put(out, text, strlen(text)); }

// A header value: formatted, then every CR and LF dropped so the value stays
// on its own header line.
void put_header_value(FILE* out, const char* format, ...) __attribute__((format(printf, 2, 3)));
void put_header_value(FILE* out, const char* format, ...) {
  char line[sizeof(MailHeader::subject) + sizeof(MailHeader::to_address) + 16];
  va_list ap;
  va_start(ap, format);
  vsnprintf(line, sizeof line, format, ap);
  va_end(ap);
  size_t kept = 0;
  for (size_t i = 0; line[i] != '\0'; ++i) {
    if (line[i] != '\r' && line[i] != '\n') line[kept++] = line[i];
  }
  put(out, line, kept);
}

// The longest prefix of text that fits `limit` bytes without splitting a
// UTF-8 sequence.
size_t utf8_prefix(const char* text, size_t limit) {
  size_t len = strlen(text);
  if (len <= limit) return len;
  len = limit;
  while (len > 0 && (static_cast<unsigned char>(text[len]) & 0xC0) == 0x80) --len;
  return len;
}

// Copies the part of `address` before its first "@" (all of it without one).
void local_part(char* out, size_t size, const char* address) {
  const char* at = strchr(address, '@');
  size_t len = at != nullptr ? static_cast<size_t>(at - address) : strlen(address);
  snprintf(out, size, "%.*s", static_cast<int>(len < size ? len : size - 1), address);
}

// Removes the message file however send_share_mail ends.
class MessageFile {
 public:
  explicit MessageFile(const char* name) : name_(name) {}
  ~MessageFile() {
    if (file_ != nullptr) os.fclose(file_);
    remove_file(name_);
  }
  MessageFile(const MessageFile&) = delete;
  MessageFile& operator=(const MessageFile&) = delete;
  bool open() {
    file_ = fs_fopen(name_, "w+");
    return file_ != nullptr;
  }
  FILE* get() const { return file_; }
  // Closes the file; true when every byte reached it.
  bool close() {
    bool ok = os.ferror(file_) == 0;
    ok = os.fclose(file_) == 0 && ok;
    file_ = nullptr;
    return ok;
  }

 private:
  const char* name_;
  FILE* file_ = nullptr;
};

class ReadFile {
 public:
  explicit ReadFile(const char* path) : file_(fs_fopen(path, "r")) {}
  ~ReadFile() {
    if (file_ != nullptr) os.fclose(file_);
  }
  ReadFile(const ReadFile&) = delete;
  ReadFile& operator=(const ReadFile&) = delete;
  FILE* get() const { return file_; }

 private:
  FILE* file_;
};

// Fills the template into msg. A missing template leaves the message empty.
// False when a write failed.
bool write_from_template(FILE* msg, const MailHeader& header) {
  ReadFile tpl(kMailTemplatePath);
  if (tpl.get() == nullptr) return true;
  bool ok = true;
  char line[2048];
  while (fgets(line, sizeof line, tpl.get()) != nullptr) {
    char* text = line;
    for (;;) {
      char* rest = nullptr;
      char* name = strstrip(text, '$', &rest);
      ok = put(msg, text) && ok;
      if (name == nullptr) break;
      fill_placeholder(msg, name, &header);
      text = rest;
    }
  }
  return ok;
}

}  // namespace

char* strstrip(char* text, char delimiter, char** rest) {
  if (text == nullptr || delimiter == '\0') return nullptr;
  char* first = strchr(text, delimiter);
  if (first == nullptr) return nullptr;
  char* second = strchr(first + 1, delimiter);
  if (second == nullptr) return nullptr;
  *first = '\0';
  *second = '\0';
  if (rest != nullptr) *rest = second + 1;
  return first + 1;
}

int trim_text(char* text, char* out, size_t size) {
  if (size == 0) return 0;
  if (text == nullptr) {
    if (out != nullptr) out[0] = '\0';
    return 0;
  }
  const char* start = text;
  while (*start == ' ' || *start == '\t') ++start;
  size_t len = strlen(start);
  while (len > 0 && strchr("\r \t\n", start[len - 1]) != nullptr) --len;
  if (len > size - 1) len = size - 1;
  char* dest = out != nullptr ? out : text;
  memmove(dest, start, len);
  dest[len] = '\0';
  return static_cast<int>(len);
}

int fill_placeholder(FILE* out, const char* name, const MailHeader* header) {
  if (out == nullptr || name == nullptr || header == nullptr) return 0;
  const MailHeader& h = *header;
  if (strcmp(name, "MAIL_TO") == 0) {
    put_header_value(out, "\"%s\" <%s>", h.to_name, h.to_address);
  } else if (strcmp(name, "MAIL_FROM") == 0) {
    if (h.from_name[0] != '\0' && h.from_address[0] != '\0') {
      put_header_value(out, "\"%s\" <%s>", h.from_name, h.from_address);
    } else {
      put_header_value(out, "\"%s\" <%s>", h.from_name, h.from_name);
    }
  } else if (strcmp(name, "MAIL_SUBJECT") == 0) {
    char encoded[kSubjectBase64Size];
    size_t len = utf8_prefix(h.subject, kMaxEncodedSubject);
    to64frombits(encoded, reinterpret_cast<const unsigned char*>(h.subject),
                 static_cast<int>(len));
    char word[kSubjectBase64Size + 16];
    snprintf(word, sizeof word, "=?UTF-8?B?%s?=", encoded);
    put(out, word);
  } else if (strcmp(name, "MAIL_SUBJECT_TXT") == 0) {
    put_header_value(out, "%s", h.subject);
  } else if (strcmp(name, "YEAR") == 0) {
    time_t now = os.time(nullptr);
    struct tm local;
    if (localtime_r(&now, &local) != nullptr) {
      char year[16];
      snprintf(year, sizeof year, "%04d", local.tm_year + 1900);
      put(out, year);
    }
  } else if (strcmp(name, "VEXA") == 0) {
    if (!fs_exists(kIsGMarkerPath)) put(out, kCompanyLine, sizeof kCompanyLine - 1);
  } else if (strcmp(name, "CONTENT") == 0) {
    put(out, h.content.data(), h.content.size());
  }
  return 0;
}

int send_share_mail(const char* subject, const char* body, const char* sender,
                    const char* recipient, const char* reply_hint, const RunContext* ctx) {
  char server[64] = {0};
  Get_Alert_SMTP_Server_IP(server, sizeof server);
  if (server[0] == '\0') return kMailNoServer;
  if (recipient == nullptr || recipient[0] == '\0') return kMailNoRecipient;

  char msg_name[sizeof kMailTempPattern];
  snprintf(msg_name, sizeof msg_name, "%s", kMailTempPattern);
  // Without a reserved name there is nothing of ours to open or remove.
  if (vexa_mktmpname(msg_name) != 0) return kMailNotWritten;
  MessageFile msg(msg_name);
  if (!msg.open()) return kMailNotWritten;

  MailHeader header{};
  if (reply_hint != nullptr) snprintf(header.reply_hint, sizeof header.reply_hint, "%s", reply_hint);
  local_part(header.to_name, sizeof header.to_name, recipient);
  snprintf(header.to_address, sizeof header.to_address, "%s", recipient);
  if (sender == nullptr || sender[0] == '\0') {
    char alert_sender[256] = {0};
    Get_Profile_String("Alert", "Sender", "", alert_sender, sizeof alert_sender);
    const char* from = alert_sender[0] != '\0' ? alert_sender : recipient;
    local_part(header.from_name, sizeof header.from_name, from);
    snprintf(header.from_address, sizeof header.from_address, "%s", from);
  } else {
    snprintf(header.from_name, sizeof header.from_name, "%s", sender);
  }
  snprintf(header.subject, sizeof header.subject, "%s", subject != nullptr ? subject : "");
  try {
    header.content = body != nullptr ? body : "";
  } catch (const std::bad_alloc&) {
    return kMailNotWritten;
  }

  bool written = write_from_template(msg.get(), header);
  if (!msg.close() || !written) return kMailNotWritten;

  char auth_user[128] = {0};
  char uid_text[32] = {0};
  const char* argv[6] = {kMailProgramPath};
  int argc = 1;
  bool personal = ctx != nullptr && strcmp(ctx->account_type, "personal") == 0 &&
                  ctx->personal_account[0] != '\0';
  if (!personal) {
    if (Is_SMTP_Enable() == 0) return kMailNoAccount;
    if (Get_Private_Profile_String("", "AuthUser", "", auth_user, sizeof auth_user,
                                   kSsmtpConfPath) > 0) {
      argv[argc++] = "-au";
      argv[argc++] = auth_user;
    }
  } else {
    long uid = 0;
    if (user_uid(ctx->personal_account, &uid) != 0) return kMailNoAccount;
    snprintf(uid_text, sizeof uid_text, "%d", static_cast<int>(uid));
    argv[argc++] = "-u";
    argv[argc++] = uid_text;
  }
  argv[argc++] = "-t";
  argv[argc] = nullptr;

  int status = spawn_with_stdin_file(kMailProgramPath, argv, msg_name);
  return status == -1 ? kMailNotWritten : status;
}

int deliver_share_mail(const char* subject, const char* body, const char* sender_override,
                       const char* sender, const RunContext* ctx) {
  if (ctx == nullptr || ctx->recipients == nullptr || ctx->recipients_len < 0) return -20;
  size_t copy_size = static_cast<size_t>(ctx->recipients_len) + 1;
  std::unique_ptr<char[]> copy(new (std::nothrow) char[copy_size]());
  if (!copy) return -20;
  snprintf(copy.get(), copy_size, "%s", ctx->recipients);

  char items[kMaxMailRecipients][257];
  int count = 0;
  char* save = nullptr;
  for (char* item = strtok_r(copy.get(), ",\n", &save); item != nullptr && count < kMaxMailRecipients;
       item = strtok_r(nullptr, ",\n", &save)) {
    snprintf(items[count], sizeof items[count], "%.256s", item);
    trim_text(items[count], nullptr, sizeof items[count]);
    ++count;
  }
  if (count == 0) return -20;

  int result = -20;
  for (int i = 0; i < count; ++i) {
    if (strlen(items[i]) <= 2) continue;
    if (send_share_mail(subject, body, sender, items[i], sender_override, ctx) != kMailSent) {
      return -20;
    }
    result = 0;
  }
  return result;
}
