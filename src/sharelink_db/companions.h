// The files that live beside the store and move with it: the share page's
// access file "share_link_access.db" (throttling, counted visitors, audit,
// kept CRCs) with its "-wal", "-shm" and "-journal" files, and the appliance
// secret "share_link_secret". The zip slot lock files stay where they are:
// they hold nothing.
//
// A relocation copies them into the new folder, repoints the configuration
// and only then removes the originals, so the configuration never names a
// folder that holds half of them and a failure leaves the old ones working.
#ifndef SLT_SHARELINK_DB_COMPANIONS_H_
#define SLT_SHARELINK_DB_COMPANIONS_H_

extern const char kSfAccessDbName[];  // "share_link_access.db"
extern const char kSfSecretName[];    // "share_link_secret"

// Copies the companions found in folder `from` into folder `to` (appliance
// paths), replacing any left in `to`. Each copy gets its original's mode and,
// where the process may set it, its owner. The access file is copied through
// SQLite's backup, so what its -wal holds arrives and a hot -journal is rolled
// back first. True when all that exist were copied and flushed; on false,
// nothing of them is left in `to` and `from` is untouched.
bool sf_copy_companions(const char* from, const char* to);

// Removes the companions (and the access file's -wal, -shm, -journal) from
// `folder`. True when none is left.
bool sf_remove_companions(const char* folder);

#endif  // SLT_SHARELINK_DB_COMPANIONS_H_
