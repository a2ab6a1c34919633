#include "sharelink_db/fid_rows.h"

#include "sharelink_db/row_table.h"

using namespace sf_internal;

namespace {

const char* const kColumns[] = {"pkey", "fid", "sharefile"};

const RowTable<ShareLinkFidRecord> kFid{
    {"SHARELINK_FID", kColumns, 3},
    [](const ShareLinkFidRecord& r, ColumnText* t) {
      t[0] = {SF_TXT(r.pkey)};
      t[1] = {SF_TXT(r.fid)};
      t[2] = {SF_TXT(r.sharefile)};
    },
    1u << 2,  // a path filter matches anywhere inside the path
    nullptr,
};

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
  if (r == nullptr) return kSfBadParam;
  if (kFid.too_long(*r)) return kSfTooLong;
  if (!has_text(r->pkey) || !has_text(r->fid)) return kSfBadParam;
  BoundedSql list(kConditionBuffer);
  list.append(", fid = %.*Q ", SF_TXT(r->fid));
  if (has_text(r->sharefile)) list.append(", sharefile = %.*Q ", SF_TXT(r->sharefile));
  if (list.overflow()) return kSfTooLong;
  // The fid is set to itself, so this form always has something to set.
  return update_target(kFid.table, sqlite3_mprintf("SET %s WHERE pkey = %.*Q AND fid = %.*Q",
                                                   list.c_str() + 2, SF_TXT(r->pkey),
                                                   SF_TXT(r->fid)));
}

int sf_fill_fid_rows(void* user_data, int ncols, char** values, char** names) {
  ShareLinkFidRecord* r = next_row<SfFidRows>(user_data, ncols, 3, values);
  if (r == nullptr) return 0;
  copy_column(r->pkey, values[0], "");
  copy_column(r->fid, values[1], "");
  copy_column(r->sharefile, values[2], "");
  return 0;
}
