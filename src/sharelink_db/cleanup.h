// Removal of what is no longer valid in the store: expired links, rows left
// without their partner rows, single links by key, and the rewrite of an
// obsolete relay host suffix. Each call opens the store, runs its statements
// in a transaction (rolled back on failure) and closes it again, with the
// busy time-out of 20000 ms.
#ifndef SLT_SHARELINK_DB_CLEANUP_H_
#define SLT_SHARELINK_DB_CLEANUP_H_

// Deletes a link and its file rows. Mode 0: the link whose key is `arg`, in
// one transaction; 0, -27, -20, or -11 for a null arg. Mode 7: the links
// whose expiry (`arg`, epoch seconds as decimal text) has passed; the delete
// runs but is never committed and the result is -11 (as for any other mode
// once the transaction has begun); the connection is parked, not closed
// (see store.h). -27 when the delete itself fails.
int sf_delete_link(int mode, const char* arg);
// The same for a null-terminated list of keys in one transaction; mode 7
// takes the time from the first entry. 0, -11, -27, -20.
int sf_delete_links(int mode, const char* const* keys);

// File rows whose link is gone. 0, -27, -20.
int sf_delete_orphan_fid();
// Links with an expiry at or before `now`. 0, -27, -20.
int sf_delete_expired(int now);
// Links without any file row. 0, -27, -20.
int sf_delete_event_without_fid();
// Recipient rows whose link is gone. 0, -27, -20.
int sf_delete_orphan_user();

// Replaces the old relay domain with the new one in the hosts that contain it
// (but not its "www" form). The domains are "Relay Domain Old" and "Relay
// Domain New" of section "ShareLink" in the system configuration; when either
// is empty nothing is done. 1 on success, -28, -20.
int sf_rewrite_relay_host();

#endif  // SLT_SHARELINK_DB_CLEANUP_H_
