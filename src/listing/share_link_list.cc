#include "listing/share_link_list.h"

// Not yet built: mode 3 parses its options and prints nothing.
int print_share_link_list(int sort, int start, int rows_wanted, const char* user,
                          const char* name_filter) {
  (void)sort;
  (void)start;
  (void)rows_wanted;
  (void)user;
  (void)name_filter;
  return 0;
}
