#include "sharelink_db/acx_rows.h"

#include "sharelink_db/row_table.h"

using namespace sf_internal;

namespace {

const char* const kColumns[] = {"pkey", "acx"};

const RowTable<ShareLinkAcxRecord> kAcx{
    {"SHARELINK_ACX", kColumns, 2},
    [](const ShareLinkAcxRecord& r, ColumnText* t) {
      t[0] = {SF_TXT(r.pkey)};
      t[1] = {SF_TXT(r.acx)};
    },
    0u,  // both columns match whole
    nullptr,
};

}  // namespace

SF_DEFINE_ROW_TABLE(acx, ShareLinkAcxRecord, kAcx)

int sf_acx_insert(const ShareLinkAcxRecord* r) {
  if (r == nullptr) return kSfBadParam;
  if (kAcx.too_long(*r)) return kSfTooLong;
  SqlText sql(kAcx.insert_sql(*r));
  if (sql.get() == nullptr) return kSfInsertFailed;
  return open_and_run(sql.get(), true, kSfInsertFailed);
}

int sf_fill_acx_rows(void* user_data, int ncols, char** values, char** names) {
  ShareLinkAcxRecord* r = next_row<SfAcxRows>(user_data, ncols, 2, values);
  if (r != nullptr) {
    copy_column(r->pkey, values[0], "");
    copy_column(r->acx, values[1], "");
  }
  return 0;
}
