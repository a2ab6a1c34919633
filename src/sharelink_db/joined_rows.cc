#include "sharelink_db/joined_rows.h"

#include <string>

#include "sharelink_db/event_sql.h"
#include "sharelink_db/result_codes.h"
#include "sharelink_db/store_internal.h"

using namespace sf_internal;

namespace {

constexpr size_t kConditionBuffer = 4096;
constexpr int kEventColumns = 19;

const char* const kFidColumns[] = {"pkey", "fid", "sharefile"};
const char* const kUserColumns[] = {"pkey", "user", "description", "email"};

const char kCountSelectHead[] =
    "SELECT SHARELINK_EVENT.*, SHARELINK_FID.count FROM SHARELINK_EVENT AS SHARELINK_EVENT INNER "
    "JOIN(SELECT pkey, count(fid) AS count FROM SHARELINK_FID GROUP BY pkey) AS SHARELINK_FID ON "
    "SHARELINK_EVENT.pkey = SHARELINK_FID.pkey";

// The ordering of the joined recipient select: recipient columns, then a few
// link columns; other codes up to 37 give none.
bool user_join_order(int sort, std::string* out) {
  if (sort < 0 || sort > 37) return false;
  if (sort <= 7) return column_order(kUserColumns, 4, sort, true, "sharelink_user.", out);
  const char* column = nullptr;
  switch (sort / 2) {
    case 5: column = "filesize"; break;
    case 6: column = "start_time"; break;
    case 7: column = "expire"; break;
    case 8: column = "creator"; break;
    case 18: column = "link_name"; break;
    default: break;
  }
  if (column == nullptr) {
    out->clear();
    return true;
  }
  *out = std::string("ORDER BY sharelink_event.") + column + (sort % 2 == 1 ? " DESC " : " ");
  return true;
}

template <typename Rows>
auto* next_row(Rows* out) {
  using Record = decltype(out->rows);
  if (out->rows == nullptr || out->count >= out->capacity) {
    ++out->overflow;
    return static_cast<Record>(nullptr);
  }
  return &out->rows[out->count++];
}

}  // namespace

int sf_fid_join_select(SfRowCallback cb, const ShareLinkFidRecord* f, int sort, int start, int end,
                       void* user_data) {
  if (f == nullptr) return kSfBadParam;
  if (too_long(f->pkey, 40) || too_long(f->fid, 40) || too_long(f->sharefile, 4096)) {
    return kSfTooLong;
  }
  std::string order;
  if (!column_order(kFidColumns, 3, sort, true, "sharelink_fid.", &order) || bad_range(start, end)) {
    return kSfBadParam;
  }
  BoundedSql conditions(kConditionBuffer);
  if (has_text(f->pkey)) conditions.append("AND sharelink_fid.pkey = %.*Q ", SF_TXT(f->pkey));
  if (has_text(f->fid)) conditions.append("AND sharelink_fid.fid = %.*Q ", SF_TXT(f->fid));
  if (has_text(f->sharefile)) {
    conditions.append("AND sharelink_fid.sharefile LIKE '%%%.*q%%' ", SF_TXT(f->sharefile));
  }
  if (conditions.overflow()) return kSfTooLong;
  SqlText sql(sqlite3_mprintf(
      "SELECT * FROM SHARELINK_FID LEFT OUTER JOIN SHARELINK_EVENT ON sharelink_fid.pkey = "
      "sharelink_event.pkey %s %s %s;",
      where_clause(conditions).c_str(), order.c_str(), paging_clause(start, end, "").c_str()));
  return open_and_select(sql.get(), cb, user_data);
}

int sf_user_join_select(SfRowCallback cb, const ShareLinkUserRecord* f, int sort, int start,
                        int end, void* user_data) {
  if (f == nullptr) return kSfBadParam;
  if (too_long(f->pkey, 40) || too_long(f->user, 64) || too_long(f->description, 512) ||
      too_long(f->email, 512)) {
    return kSfTooLong;
  }
  std::string order;
  if (!user_join_order(sort, &order) || bad_range(start, end)) return kSfBadParam;
  BoundedSql conditions(kConditionBuffer);
  if (has_text(f->pkey)) conditions.append("AND sharelink_user.pkey = %.*Q ", SF_TXT(f->pkey));
  if (has_text(f->user)) conditions.append("AND sharelink_user.user = %.*Q ", SF_TXT(f->user));
  if (has_text(f->description)) {
    conditions.append("AND sharelink_user.description = %.*Q ", SF_TXT(f->description));
  }
  if (has_text(f->email)) {
    conditions.append("AND sharelink_user.email LIKE '%%%.*q%%' ", SF_TXT(f->email));
  }
  if (conditions.overflow()) return kSfTooLong;
  SqlText sql(sqlite3_mprintf(
      "SELECT * FROM SHARELINK_USER LEFT OUTER JOIN SHARELINK_EVENT ON sharelink_user.pkey = "
      "sharelink_event.pkey %s %s %s;",
      where_clause(conditions).c_str(), order.c_str(), paging_clause(start, end, "").c_str()));
  return open_and_select(sql.get(), cb, user_data);
}

int sf_event_fid_count_select(SfRowCallback cb, int sort, int start, int end, void* user_data) {
  std::string order;
  if (!event_order(sort, false, &order) || bad_range(start, end)) return kSfBadParam;
  SqlText sql(sqlite3_mprintf("%s %s %s;", kCountSelectHead, order.c_str(),
                              paging_clause(start, end, " ").c_str()));
  return open_and_select(sql.get(), cb, user_data);
}

int sf_event_fid_count_select_filter(SfRowCallback cb, const ShareLinkRecord* filter, int sort,
                                     int start, int end, void* user_data) {
  if (filter == nullptr || filter->ssl > 2) return kSfBadParam;
  std::string order;
  if (!event_order(sort, true, &order) || bad_range(start, end)) return kSfBadParam;
  BoundedSql conditions(kConditionBuffer);
  event_conditions(filter, EventFilterUse::kSelect, &conditions);
  if (conditions.overflow()) return kSfTooLong;
  SqlText sql(sqlite3_mprintf("%s %s %s %s;", kCountSelectHead, where_clause(conditions).c_str(),
                              order.c_str(), paging_clause(start, end, "").c_str()));
  return open_and_select(sql.get(), cb, user_data);
}

int sf_fill_fid_join_rows(void* user_data, int ncols, char** values, char** names) {
  auto* out = static_cast<SfFidJoinRows*>(user_data);
  if (ncols != 3 + kEventColumns || out == nullptr || values == nullptr) return 0;
  ShareLinkFidJoinRecord* r = next_row(out);
  if (r == nullptr) return 0;
  copy_column(r->fid.pkey, values[0], "");
  copy_column(r->fid.fid, values[1], "");
  copy_column(r->fid.sharefile, values[2], "");
  fill_event_record(&r->event, values + 3);
  return 0;
}

int sf_fill_user_join_rows(void* user_data, int ncols, char** values, char** names) {
  auto* out = static_cast<SfUserJoinRows*>(user_data);
  if (ncols != 4 + kEventColumns || out == nullptr || values == nullptr) return 0;
  ShareLinkUserJoinRecord* r = next_row(out);
  if (r == nullptr) return 0;
  copy_column(r->user.pkey, values[0], "");
  copy_column(r->user.user, values[1], "");
  copy_column(r->user.description, values[2], "");
  copy_column(r->user.email, values[3], "");
  fill_event_record(&r->event, values + 4);
  return 0;
}

int sf_fill_count_rows(void* user_data, int ncols, char** values, char** names) {
  auto* out = static_cast<SfCountRows*>(user_data);
  if (ncols != kEventColumns + 1 || out == nullptr || values == nullptr) return 0;
  ShareLinkCountRecord* r = next_row(out);
  if (r == nullptr) return 0;
  fill_event_record(&r->event, values);
  r->file_count = int_column(values[kEventColumns]);
  return 0;
}
