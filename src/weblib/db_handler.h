// The request handler that points the share-link store at another file, and
// its two companions that place the store on a volume and open up its
// permissions. They work on the store's configuration key (section "Depot",
// key "Share_Link_Db" of the system configuration) and reuse the store's
// table creation and row count.
#ifndef SLT_WEBLIB_DB_HANDLER_H_
#define SLT_WEBLIB_DB_HANDLER_H_

#include "platform/cgi.h"

// Status replies of sf_set_db_handler.
constexpr int kDbStatusSet = 1;          // store path set, made or validated
constexpr int kDbStatusNotAdmin = 4;     // the logged-in user is not "admin"
constexpr int kDbStatusUnusable = 19;    // tables not made, or not a usable store
constexpr int kDbStatusBadPath = 20;     // no path, or its folder is not a folder
constexpr int kDbStatusNoFolder = 35;    // the folder part could not be taken

// The handler for parameters "share_link_db" (the new store path) and
// "force_delete" (1: replace an existing file). The logged-in user comes from
// REMOTE_USER; without one the request proceeds. Prints one status reply.
// Returns 0 when the request was carried out or lacked a path (the reply
// tells the outcome), -1 when it was refused before the configuration was
// touched or the configuration could not be written.
int sf_set_db_handler(const CgiRequest* request);

// Creates the EVENT, FID, ACX and USER tables in this order in the
// configured store; the sum of their results (0, or negative on a failure).
int sf_create_all_tables();

// Adds 0777 to the mode of the configured store's folder and then of the
// file, each only when it lacks the write bit for others. 0 when no path is
// configured or the file does not exist; 1 otherwise.
int sf_fix_db_permissions();

// Makes "<volume>/.@kdx/share_link_db" with "/bin/mkdir" "-p", sets its mode
// to 0777 and points the configuration at "share_link.db" in it. 1 when
// done; 0 for a null volume or one of at most one character; -1 when a path
// would be longer than 511 bytes, the folder could not be made (the
// configuration then stays as it was) or the configuration write failed.
int sf_set_db_volume(const char* volume);

#endif  // SLT_WEBLIB_DB_HANDLER_H_
