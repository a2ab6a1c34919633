#include "cli/dispatch.h"

#include "mail/share_mail.h"
#include "registry/edits.h"
#include "registry/run_context.h"

int dispatch_mode() {
  switch (g_run_context.mode) {
    case 1:
      compose_share_mail(&g_run_context);
      break;
    case 2:
      delete_registry_links();
      break;
    case 3:
      scan_registry();
      break;
    case 4:
      rewrite_registry_link();
      break;
    default:
      break;
  }
  return 0;
}
