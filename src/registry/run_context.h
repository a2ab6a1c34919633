// RunContext: the one process-wide record of the parsed command line.
//
// Cleared by the entry before it reads the mode; written by the entry, by the
// share URL parser (url_host, ssid) and by the share mail (link_count, ssid).
// Owned texts are heap copies made by the entry and released at exit.
#ifndef SLT_REGISTRY_RUN_CONTEXT_H_
#define SLT_REGISTRY_RUN_CONTEXT_H_

#include <cstdint>

struct RunContext {
  int32_t mode;                 // 1, 2 or 4; 0 for mode 3 and unknown modes
  char url_host[513];           // host of the share URL being handled
  char personal_account[65];    // mode 1, argument 11
  char field9_value[129];       // mode 4, argument 2
  int32_t append_line2;         // mode 1, argument 3
  int64_t new_expire;           // mode 4, argument 5; 1 = keep
  int32_t link_count;           // mode 1, argument 2
  int32_t recipients_len;
  char* recipients;             // mode 1, argument 5
  int32_t subject_len;
  char* subject;                // mode 1, argument 6
  int32_t message_len;
  char* message;                // mode 1, argument 7
  char* mail_line1;             // mode 1, argument 8
  char* mail_line2;             // mode 1, argument 9
  int32_t new_ssl;              // mode 4, argument 3
  char ssid[96];                // share-link id being handled
  int32_t edit_input_len;
  char* edit_input;             // mode 2, argument 2 / mode 4, argument 4
  int32_t link_ids_len;
  char* link_ids;               // mode 1, argument 4
  char account_type[17];        // mode 1, argument 10
  char sender[256];             // mode 1, argument 12
  int32_t new_expire_breaks;    // mode 4: argument 5 holds a tab, CR or LF
};

extern RunContext g_run_context;

#endif  // SLT_REGISTRY_RUN_CONTEXT_H_
