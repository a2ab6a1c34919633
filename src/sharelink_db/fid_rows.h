// SHARELINK_FID: the files of a share link (key, file id, path).
#ifndef SLT_SHARELINK_DB_FID_ROWS_H_
#define SLT_SHARELINK_DB_FID_ROWS_H_

#include "sharelink_db/records.h"

int sf_fid_count();
int sf_fid_count_filter(const ShareLinkFidRecord* filter);
int sf_fid_insert(const ShareLinkFidRecord* record);
// count records in one transaction.
int sf_fid_insert_many(const ShareLinkFidRecord* records, int count);
int sf_fid_select(SfRowCallback cb, int sort, int start, int end, void* user_data);
int sf_fid_select_filter(SfRowCallback cb, const ShareLinkFidRecord* filter, int sort, int start,
                         int end, void* user_data);
int sf_fid_update(const ShareLinkFidRecord* record);
int sf_fid_update_by_keys(const ShareLinkFidRecord* record);
int sf_fid_delete_by_field(int field, const char* value);
int sf_fid_delete_filter(const ShareLinkFidRecord* filter);
int sf_fid_delete_all();
int sf_fid_drop();

#endif  // SLT_SHARELINK_DB_FID_ROWS_H_
