#include "cli/entry.h"

#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "cli/dispatch.h"
#include "diag/debug_log.h"
#include "listing/share_link_list.h"
#include "platform/run_scope.h"
#include "registry/refresh.h"
#include "registry/run_context.h"
#include "registry/slots.h"

namespace {

constexpr int kNoMode = 1;
constexpr int kBadOption = 1;
constexpr int kMailTooFewArguments = 3;
constexpr int kMailBadRecipients = 2;
constexpr int kDeleteTooFewArguments = 4;

// Argument k, or "" when the command line is shorter.
const char* arg(int argc, char** argv, int k) { return k < argc && argv[k] != nullptr ? argv[k] : ""; }

long number(const char* text) { return strtol(text, nullptr, 10); }

// A zero-filled heap copy of text; *len gets its length.
char* owned_copy(const char* text, int32_t* len) {
  size_t n = strlen(text);
  char* copy = static_cast<char*>(calloc(n + 1, 1));
  if (copy != nullptr) memcpy(copy, text, n);
  if (len != nullptr) *len = static_cast<int32_t>(n);
  return copy;
}

// Copies at most `limit` bytes of text into a cleared field; the byte after
// them is still the terminator the clearing left.
void bounded_copy(char* field, size_t limit, const char* text) {
  size_t n = strnlen(text, limit);
  memcpy(field, text, n);
}

// Mode 1: 0 when parsed, else the exit status.
int parse_mail(RunContext& ctx, int argc, char** argv) {
  if (argc < 9) return kMailTooFewArguments;
  ctx.mode = 1;
  ctx.link_count = static_cast<int32_t>(number(argv[2]));
  ctx.append_line2 = static_cast<int32_t>(number(argv[3]));
  ctx.link_ids = owned_copy(argv[4], &ctx.link_ids_len);
  if (strchr(argv[5], '@') == nullptr) return kMailBadRecipients;
  ctx.recipients = owned_copy(argv[5], &ctx.recipients_len);
  ctx.subject = owned_copy(argv[6], &ctx.subject_len);
  ctx.message = owned_copy(argv[7], &ctx.message_len);
  ctx.mail_line1 = owned_copy(argv[8], nullptr);
  ctx.mail_line2 = owned_copy(arg(argc, argv, 9), nullptr);
  if (argc > 10 && argv[10][0] != '\0') bounded_copy(ctx.account_type, sizeof ctx.account_type - 1, argv[10]);
  if (argc > 11 && argv[11][0] != '\0') {
    bounded_copy(ctx.personal_account, sizeof ctx.personal_account - 1, argv[11]);
  }
  // The field has no room after 256 bytes for a terminator: 255 at most.
  if (argc > 12 && argv[12][0] != '\0') bounded_copy(ctx.sender, sizeof ctx.sender - 1, argv[12]);
  return 0;
}

// Mode 3: the options, then the listing. 0 when listed, else the exit status.
int run_listing(int argc, char** argv) {
  int sort = 6;
  int start = 0;
  int rows = 0;
  char user[256] = "";
  char name_filter[256] = "";
  // The mode stands where getopt expects the program's name.
  int count = argc - 1;
  char** args = argv + 1;
  opterr = 0;
  optind = 0;  // a full restart of the parser state, not only the index
  int opt;
  while ((opt = getopt(count, args, "m:s:u:n:f:")) != -1) {
    switch (opt) {
      case 'm':
        sort = static_cast<int>(number(optarg));
        break;
      case 's':
        start = static_cast<int>(number(optarg));
        break;
      case 'n':
        rows = static_cast<int>(number(optarg));
        break;
      case 'u':
        snprintf(user, sizeof user, "%s", optarg);
        break;
      case 'f':
        snprintf(name_filter, sizeof name_filter, "%s", optarg);
        break;
      default:
        return kBadOption;
    }
  }
  print_share_link_list(sort, start, rows, user, name_filter);
  return 0;
}

void parse_rewrite(RunContext& ctx, int argc, char** argv) {
  ctx.mode = 4;
  const char* value = arg(argc, argv, 2);
  if (value[0] != '\0') snprintf(ctx.field9_value, sizeof ctx.field9_value, "%s", value);
  ctx.new_ssl = static_cast<int32_t>(number(arg(argc, argv, 3)));
  const char* url = arg(argc, argv, 4);
  if (url[0] != '\0') ctx.edit_input = owned_copy(url, &ctx.edit_input_len);
  const char* expire = arg(argc, argv, 5);
  ctx.new_expire = expire[0] != '\0' ? static_cast<int64_t>(number(expire)) : 1;
  // strtol skips leading blanks; the mode must still see them to refuse them.
  ctx.new_expire_breaks = strpbrk(expire, "\t\r\n") != nullptr ? 1 : 0;
}

void release(RunContext& ctx) {
  free_slot(&ctx.recipients);
  free_slot(&ctx.subject);
  free_slot(&ctx.message);
  free_slot(&ctx.edit_input);
  free_slot(&ctx.mail_line1);
  free_slot(&ctx.mail_line2);
  // link_ids is deliberately not released.
}

}  // namespace

int entry_exit_status(int result) { return result == -20 ? -20 : 0; }

int sharelink_main(int argc, char** argv) {
  // A run is short and changes no configuration or folder: look at each once.
  RunScope scope;
  configure_debug_log_from_env();
  if (argc < 2 || argv == nullptr || argv[1] == nullptr) return kNoMode;
  RunContext& ctx = g_run_context;
  memset(&ctx, 0, sizeof ctx);

  int result = 0;
  const long mode = number(argv[1]);
  if (mode == 3) {
    int status = run_listing(argc, argv);
    if (status != 0) return status;
    result = 1;
  } else {
    if (mode == 1) {
      int status = parse_mail(ctx, argc, argv);
      if (status != 0) return status;
    } else if (mode == 2) {
      if (argc < 3) return kDeleteTooFewArguments;
      ctx.mode = 2;
      ctx.edit_input = owned_copy(argv[2], &ctx.edit_input_len);
    } else if (mode == 4) {
      parse_rewrite(ctx, argc, argv);
    }
    result = refresh_registry();
    if (result == 1) result = dispatch_mode();
  }
  release(ctx);
  return entry_exit_status(result);
}
