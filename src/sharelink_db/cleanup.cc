#include "sharelink_db/cleanup.h"

#include <cstdlib>

#include "platform/profile.h"
#include "sharelink_db/result_codes.h"
#include "sharelink_db/store_internal.h"

using namespace sf_internal;

namespace {

// Runs a delete statement built from a format; -27 when it cannot be built.
int run_delete(const char* sql) {
  if (sql == nullptr) return kSfDeleteFailed;
  return open_and_run(sql, true, kSfDeleteFailed);
}

bool delete_link_rows(sqlite3* db, const char* key) {
  SqlText event(sqlite3_mprintf("DELETE FROM SHARELINK_EVENT WHERE pkey = %Q;", key));
  SqlText fid(sqlite3_mprintf("DELETE FROM SHARELINK_FID WHERE pkey = %Q;", key));
  return exec(db, event.get()) && exec(db, fid.get());
}

// Deletes the rows of `keys` (mode 0) in one transaction. Mode 7 deletes the
// links expired before keys[0] and, like every mode but 0, leaves the
// transaction uncommitted: that delete is never kept. Such a connection is
// parked with its transaction open.
int delete_in_mode(int mode, const char* const* keys) {
  DbGuard db;
  int rc = open_store(&db, true);
  if (rc != 0) return rc;
  Transaction txn(db.get());
  if (!txn.begun()) return kSfDeleteFailed;
  if (mode == 7) {
    SqlText sql(sqlite3_mprintf("DELETE FROM SHARELINK_EVENT WHERE expire > 0 AND expire < %d;",
                                static_cast<int>(strtol(keys[0], nullptr, 10))));
    if (!exec(db.get(), sql.get())) return kSfDeleteFailed;
  }
  if (mode != 0) {
    txn.leave_open();
    park_connection(db.release());
    return kSfBadParam;
  }
  for (const char* const* key = keys; *key != nullptr; ++key) {
    if (!delete_link_rows(db.get(), *key)) return kSfDeleteFailed;
  }
  return txn.commit() ? 0 : kSfDeleteFailed;
}

}  // namespace

int sf_delete_link(int mode, const char* arg) {
  if (arg == nullptr) return kSfBadParam;
  const char* keys[] = {arg, nullptr};
  return delete_in_mode(mode, keys);
}

int sf_delete_links(int mode, const char* const* keys) {
  if (keys == nullptr || (mode == 7 && keys[0] == nullptr)) return kSfBadParam;
  return delete_in_mode(mode, keys);
}

int sf_delete_orphan_fid() {
  return run_delete(
      "DELETE FROM SHARELINK_FID WHERE PKEY NOT IN (SELECT PKEY FROM SHARELINK_EVENT);");
}

int sf_delete_expired(int now) {
  SqlText sql(
      sqlite3_mprintf("DELETE FROM SHARELINK_EVENT WHERE EXPIRE <= %d AND EXPIRE > 0", now));
  return run_delete(sql.get());
}

int sf_delete_event_without_fid() {
  return run_delete(
      "DELETE FROM SHARELINK_EVENT WHERE SHARELINK_EVENT.PKEY NOT IN (SELECT PKEY FROM "
      "SHARELINK_FID);");
}

int sf_delete_orphan_user() {
  return run_delete(
      "DELETE FROM SHARELINK_USER WHERE PKEY NOT IN (SELECT PKEY FROM SHARELINK_EVENT);");
}

int sf_rewrite_relay_host() {
  char old_domain[256];
  char new_domain[256];
  Get_Profile_String("ShareLink", "Relay Domain Old", "", old_domain, sizeof old_domain);
  Get_Profile_String("ShareLink", "Relay Domain New", "", new_domain, sizeof new_domain);
  if (old_domain[0] == '\0' || new_domain[0] == '\0') return 1;
  // The www form: a "www" label in front of the domain.
  SqlText www(sqlite3_mprintf(old_domain[0] == '.' ? "www%s" : "www.%s", old_domain));
  SqlText sql(sqlite3_mprintf(
      "UPDATE SHARELINK_EVENT SET host = REPLACE(host, %Q, %Q) WHERE host LIKE '%%%q%%' AND host "
      "NOT LIKE '%%%q%%';",
      old_domain, new_domain, old_domain, www.get()));
  if (sql.get() == nullptr || www.get() == nullptr) return kSfUpdateFailed;
  DbGuard db;
  int rc = open_store(&db, true);
  if (rc != 0) return rc;
  return exec(db.get(), sql.get()) ? 1 : kSfUpdateFailed;
}
