// The rows of the share-link store as plain fixed-size records.
//
// Buffer sizes are part of the behaviour: each text holds its column's bound
// plus a terminator, and longer values are cut by the bounded writes (or
// refused with -10 where an operation checks lengths). A record also serves
// as a filter: a text takes part when it is not empty, an integer when it is
// 0 or more (`ssl` only when 0 or 1).
#ifndef SLT_SHARELINK_DB_RECORDS_H_
#define SLT_SHARELINK_DB_RECORDS_H_

#include <cstdint>

// One row of SHARELINK_EVENT: one share link.
struct ShareLinkRecord {
  char pkey[41];          // link key; "----" when NULL
  char reserved_key[41];  // not read or written by the store
  char host[513];         // stored host text; "localhost" when NULL
  int32_t ssl;            // 1 secure link, 0 plain; 2 in a filter means any
  int32_t reserved_ssl;
  char sharefile[4097];   // shared path; "----" when NULL
  char useraddr[513];     // recipient address; "none@none" when NULL
  char filesize[17];      // size as text; "0" when NULL
  int32_t reserved_size;  // set to 0 by the row readers
  int32_t createtic;      // creation time, epoch seconds
  int32_t expire;         // expiry time, epoch seconds; 0 = never
  char creator[65];       // owner; "Mirra:<user>" for a sync-service owner
  char accesscode[129];
  int32_t download_count;
  int32_t download_limit;
  char misc[41];
  char create_date[12];
  char create_time[13];
  char title[257];
  char description[257];
  int32_t type;
  char link_name[257];
  int32_t trailing_a;  // carried through to the display record unchanged
  int32_t trailing_b;
};

// A record in a singly linked list (the list update).
struct ShareLinkListNode {
  ShareLinkRecord record;
  ShareLinkListNode* next;
};

// One row of SHARELINK_FID: a file of a link.
struct ShareLinkFidRecord {
  char pkey[41];
  char fid[41];
  char sharefile[4097];
};

// One row of SHARELINK_ACX: an access entry of a link.
struct ShareLinkAcxRecord {
  char pkey[41];
  char acx[41];
};

// One row of SHARELINK_USER: a recipient of a link.
struct ShareLinkUserRecord {
  char pkey[41];
  char user[65];
  char description[513];
  char email[513];
};

struct ShareLinkFidJoinRecord {
  ShareLinkFidRecord fid;
  ShareLinkRecord event;
};

struct ShareLinkUserJoinRecord {
  ShareLinkUserRecord user;
  ShareLinkRecord event;
};

// Makes `filter` select everything: texts empty, the integer selectors (ssl,
// createtic, expire, download_count, download_limit, type) -1.
void sf_filter_reset(ShareLinkRecord* filter);

// A row callback of the store's selects (the shape of sqlite3_exec's).
using SfRowCallback = int (*)(void* user_data, int ncols, char** values, char** names);

// A caller's array that a select fills; rows beyond `capacity` are counted in
// `overflow` and skipped. NULL columns read as empty texts (as their
// defaults for links).
// The operations every companion table has, declared for table `t` with
// records of type R: sf_<t>_count() (count, -24, -20); sf_<t>_count_filter
// (count, -10, -11, -24, -20); sf_<t>_select and sf_<t>_select_filter (sort
// codes take the columns two by two, ascending then descending; start/end as
// for links; 0, -10, -11, -24, -20); sf_<t>_update (sets the record's
// non-empty texts on the rows of its pkey or, without one, of its second
// key; 0, -10, -11, -28, -20); sf_<t>_delete_by_field (a column by its
// number; 0, -11, -27, -20); sf_<t>_delete_filter (0, -10, -11, -27, -20);
// sf_<t>_delete_all (0, -22, -20); sf_<t>_drop (0, -21, -20).
#define SF_DECLARE_ROW_TABLE(t, R)                                                           \
  int sf_##t##_count();                                                                      \
  int sf_##t##_count_filter(const R* filter);                                                \
  int sf_##t##_select(SfRowCallback cb, int sort, int start, int end, void* user_data);      \
  int sf_##t##_select_filter(SfRowCallback cb, const R* filter, int sort, int start, int end, \
                             void* user_data);                                               \
  int sf_##t##_update(const R* record);                                                      \
  int sf_##t##_delete_by_field(int field, const char* value);                                \
  int sf_##t##_delete_filter(const R* filter);                                               \
  int sf_##t##_delete_all();                                                                 \
  int sf_##t##_drop()

template <class Record>
struct SfRows {
  Record* rows;
  int capacity;
  int count;
  int overflow;
};

#endif  // SLT_SHARELINK_DB_RECORDS_H_
