// The throttled clean-up pass run at the start of every share-link listing:
// removes the links of sync-service owners whose shared path no longer
// resolves, with their file, access and recipient rows.
//
// At most one pass runs per 61 seconds across processes, throttled by the
// modification time of "/tmp/.kdx_sf_clean_flag". Links of ordinary owners
// and expired links are left to their own deletes.
#ifndef SLT_SHARELINK_DB_CLEAN_PASS_H_
#define SLT_SHARELINK_DB_CLEAN_PASS_H_

extern const char kCleanFlagPath[];  // "/tmp/.kdx_sf_clean_flag"

// 0 (also when throttled or when the store holds no link), -1 when memory
// runs out, or the select's store error code.
int sf_clean_sharelink();

#endif  // SLT_SHARELINK_DB_CLEAN_PASS_H_
