// Mode 3: a page of one sync-service user's share links as an XML fragment on
// standard output.
#ifndef SLT_LISTING_SHARE_LINK_LIST_H_
#define SLT_LISTING_SHARE_LINK_LIST_H_

// sort: sort code 0..37; start: first row; rows_wanted: page size (0 or less
// asks for the count alone); user and name_filter may be empty.
int print_share_link_list(int sort, int start, int rows_wanted, const char* user,
                          const char* name_filter);

#endif  // SLT_LISTING_SHARE_LINK_LIST_H_
