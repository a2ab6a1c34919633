// Counting one download of a link: the statement runs on a connection where
// the store is attached under a schema name, so that the share page can
// commit the count together with its own records in one transaction.
#ifndef SLT_SHARELINK_DB_DOWNLOAD_COUNT_H_
#define SLT_SHARELINK_DB_DOWNLOAD_COUNT_H_

#include <string>

// One UPDATE with the link's key as its only parameter: the count goes up by
// one when the link has no limit (0 or less) or is below it. A row that did
// not change means the limit was reached (or the link is gone).
std::string sf_count_download_sql(const char* schema);

#endif  // SLT_SHARELINK_DB_DOWNLOAD_COUNT_H_
