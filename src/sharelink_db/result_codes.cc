#include "sharelink_db/result_codes.h"

const char* sf_result_text(int code) {
  if (code >= 0) return "success";
  switch (code) {
    case kSfTooLong:
      return "a text is longer than its column allows";
    case kSfBadParam:
      return "bad parameter";
    case kSfLinkExists:
      return "a link with that key exists";
    case kSfOpenFailed:
      return "the store could not be opened";
    case kSfSchemaFailed:
      return "table creation, a table drop or the index drops failed";
    case kSfDeleteAllFailed:
      return "deleting all rows of a table failed";
    case kSfInsertFailed:
      return "an insert failed";
    case kSfQueryFailed:
      return "a query or count failed";
    case kSfTriggerCreateFailed:
      return "trigger creation failed";
    case kSfTriggerDropFailed:
      return "trigger drop failed";
    case kSfDeleteFailed:
      return "a delete failed";
    case kSfUpdateFailed:
      return "an update failed or has no target";
    case kSfLockHeld:
      return "the store lock is held by another process";
    case kSfLockCreateFailed:
      return "the store lock could not be created";
    default:
      return "unknown failure";
  }
}
