// The store's result codes: negative errno values, the same in every table.
#ifndef SLT_SHARELINK_DB_RESULT_CODES_H_
#define SLT_SHARELINK_DB_RESULT_CODES_H_

constexpr int kSfTooLong = -10;       // ECHILD: a text is longer than its column's bound
constexpr int kSfBadParam = -11;      // EAGAIN: unknown field or sort code, bad range, null
constexpr int kSfOpenFailed = -20;    // ENOTDIR: the store could not be opened
constexpr int kSfLinkExists = -17;   // EEXIST: a link with that key is in the store
constexpr int kSfSchemaFailed = -21;  // EISDIR: a table creation, a table drop or the index drops failed
constexpr int kSfDeleteAllFailed = -22;  // EINVAL
constexpr int kSfInsertFailed = -23;  // ENFILE
constexpr int kSfQueryFailed = -24;   // EMFILE: a query or count failed
constexpr int kSfTriggerCreateFailed = -25;  // ENOTTY
constexpr int kSfTriggerDropFailed = -26;    // ETXTBSY
constexpr int kSfDeleteFailed = -27;  // EFBIG
constexpr int kSfUpdateFailed = -28;  // ENOSPC: update failed or has no target
constexpr int kSfLockHeld = -100;     // ENETDOWN: a fresh marker lock is held
constexpr int kSfLockCreateFailed = -102;  // ENETRESET

// A short English meaning of a code, for operator messages.
const char* sf_result_text(int code);

#endif  // SLT_SHARELINK_DB_RESULT_CODES_H_
