#include "sharelink_db/link_lookup.h"

#include "sharelink_db/store_internal.h"

using sf_internal::DbGuard;
using sf_internal::StmtGuard;

namespace {

std::string text(sqlite3_stmt* s, int i) {
  const unsigned char* t = sqlite3_column_text(s, i);
  return t != nullptr ? reinterpret_cast<const char*>(t) : "";
}

bool prepare(sqlite3* db, const char* sql, const std::string& key, StmtGuard* stmt) {
  if (sqlite3_prepare_v2(db, sql, -1, stmt->out(), nullptr) != SQLITE_OK) return false;
  return sqlite3_bind_text(stmt->get(), 1, key.data(), static_cast<int>(key.size()),
                           SQLITE_TRANSIENT) == SQLITE_OK;
}

LinkLookup read_link(sqlite3* db, const std::string& key, LinkRow* out) {
  StmtGuard link;
  if (!prepare(db,
               "SELECT sharefile, creator, expire, accesscode, download_count, download_limit "
               "FROM SHARELINK_EVENT WHERE pkey = ? LIMIT 1",
               key, &link)) {
    return LinkLookup::kUnreadable;
  }
  int rc = sqlite3_step(link.get());
  if (rc == SQLITE_DONE) return LinkLookup::kNoSuchKey;
  if (rc != SQLITE_ROW) return LinkLookup::kUnreadable;
  out->pkey = key;
  out->sharefile = text(link.get(), 0);
  out->creator = text(link.get(), 1);
  out->expire = sqlite3_column_int64(link.get(), 2);
  out->accesscode = text(link.get(), 3);
  out->download_count = sqlite3_column_int(link.get(), 4);
  out->download_limit = sqlite3_column_int(link.get(), 5);

  StmtGuard files;
  if (!prepare(db, "SELECT fid, sharefile FROM SHARELINK_FID WHERE pkey = ? ORDER BY rowid", key,
               &files)) {
    return LinkLookup::kUnreadable;
  }
  while ((rc = sqlite3_step(files.get())) == SQLITE_ROW) {
    out->fids.emplace_back(text(files.get(), 0), text(files.get(), 1));
  }
  return rc == SQLITE_DONE ? LinkLookup::kFound : LinkLookup::kUnreadable;
}

}  // namespace

LinkLookup sf_lookup_link(const std::string& key, LinkRow* out) {
  *out = LinkRow();
  DbGuard db;
  if (sf_internal::open_store(&db, true, false) != 0) return LinkLookup::kUnreadable;
  // Both reads see one state of the store.
  sf_internal::Transaction txn(db.get(), "BEGIN");
  if (!txn.begun()) return LinkLookup::kUnreadable;
  LinkLookup outcome = read_link(db.get(), key, out);
  if (outcome != LinkLookup::kFound) *out = LinkRow();
  return outcome;
}
