#include "sharelink_db/fid_rows.h"

#include "sharelink_db/event_sql.h"
#include "sharelink_db/row_table.h"

using namespace sf_internal;

namespace {

const char* const kColumns[] = {"pkey", "fid", "sharefile"};

void texts(const ShareLinkFidRecord& r, ColumnText* t) {
  t[0] = {SF_TXT(r.pkey)}, t[1] = {SF_TXT(r.fid)}, t[2] = {SF_TXT(r.sharefile)};
}

// A path filter (column 2) matches anywhere inside the path.
const RowTable<ShareLinkFidRecord> kFid{{"SHARELINK_FID", kColumns, 3}, texts, 1u << 2, nullptr};

}  // namespace

SF_DEFINE_ROW_TABLE(fid, ShareLinkFidRecord, kFid)

int sf_fid_insert(const ShareLinkFidRecord* record) { return sf_fid_insert_many(record, 1); }

// All or none: the files of one link go in one transaction.
int sf_fid_insert_many(const ShareLinkFidRecord* records, int count) {
  if (count < 0 || (count > 0 && records == nullptr)) return kSfBadParam;
  for (int i = 0; i < count; ++i) {
    if (kFid.too_long(records[i])) return kSfTooLong;
  }
  if (count == 0) return 0;
  DbGuard db;
  int rc = open_store(&db, true);
  if (rc != 0) return rc;
  Transaction txn(db.get());
  if (!txn.begun()) return kSfInsertFailed;
  for (int i = 0; i < count; ++i) {
    SqlText sql(kFid.insert_sql(records[i]));
    if (!exec(db.get(), sql.get())) return kSfInsertFailed;
  }
  return txn.commit() ? 0 : kSfInsertFailed;
}

int sf_fid_update_by_keys(const ShareLinkFidRecord* r) {
  // The fid is set to itself, so this form always has something to set.
  return kFid.update_by_keys(r, [](const ShareLinkFidRecord& k, BoundedSql* items) {
    items->append(", fid = %.*Q ", SF_TXT(k.fid));
    if (has_text(k.sharefile)) items->append(", sharefile = %.*Q ", SF_TXT(k.sharefile));
  });
}


int sf_internal::fid_insert_statement(const ShareLinkFidRecord& r, char** sql) {
  return kFid.insert_statement(r, sql);
}
