#include "sharelink_db/acx_rows.h"

#include "sharelink_db/row_table.h"

using namespace sf_internal;

namespace {

const char* const kColumns[] = {"pkey", "acx"};

// Both columns match whole in a filter.
const RowTable<ShareLinkAcxRecord> kAcx{
    {"SHARELINK_ACX", kColumns, 2},
    [](const ShareLinkAcxRecord& r, ColumnText* t) { t[0] = {SF_TXT(r.pkey)}, t[1] = {SF_TXT(r.acx)}; },
    0u, nullptr};

}  // namespace

SF_DEFINE_ROW_TABLE(acx, ShareLinkAcxRecord, kAcx)
int sf_acx_insert(const ShareLinkAcxRecord* r) { return kAcx.insert(r); }
