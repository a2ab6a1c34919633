#include "sharelink_db/event_rows.h"

#include <cstdio>
#include <cstring>
#include <string>

#include "sharelink_db/event_sql.h"
#include "sharelink_db/result_codes.h"
#include "sharelink_db/row_table.h"

using namespace sf_internal;

int sf_record_array_count = 0;
int sf_clean_array_count = 0;

namespace {

constexpr int kEventColumns = 19;
constexpr int kLastSortCode = 37;

const char kUpdateListSql[] =
    "UPDATE sharelink_event SET ssl = IFNULL(@ssl, ssl), host = IFNULL(@host, host), misc = "
    "IFNULL(@misc, misc), type = IFNULL(@type, type), title = IFNULL(@title, title), expire = "
    "IFNULL(@expire, expire), link_name = IFNULL(@link_name, link_name), accesscode = "
    "IFNULL(@accesscode, accesscode), description = IFNULL(@description, description), "
    "download_count = IFNULL(@download_count, download_count), download_limit = "
    "IFNULL(@download_limit, download_limit) WHERE ((@pkey IS NULL) OR (pkey = @pkey))";

// Columns in table order; the sort codes use them two by two.
const char* const kColumns[kEventColumns] = {
    "pkey",       "host",           "ssl",            "sharefile", "useraddr",
    "filesize",   "createtic",      "expire",         "creator",   "accesscode",
    "download_count", "download_limit", "misc",       "create_date", "create_time",
    "title",      "description",    "type",           "link_name",
};

const TableName kEvent{"SHARELINK_EVENT", kColumns, kEventColumns};

bool expiry_before_creation(const ShareLinkRecord* r) {
  return r->expire >= 1 && r->expire < r->createtic;
}

// The texts the insert and both updates bound.
bool record_too_long(const ShareLinkRecord* r) {
  return too_long(r->pkey, 40) || too_long(r->host, 512) || too_long(r->useraddr, 512) ||
         too_long(r->filesize, 16) || too_long(r->creator, 64) || too_long(r->accesscode, 128) ||
         too_long(r->misc, 40) || too_long(r->title, 256) || too_long(r->description, 256) ||
         too_long(r->link_name, 256);
}

// A text bound by reference to the record: valid for the step that follows.
void bind_text_or_null(sqlite3_stmt* stmt, const char* name, const char* text, size_t size) {
  int index = sqlite3_bind_parameter_index(stmt, name);
  if (index == 0) return;
  size_t n = strnlen(text, size);
  if (n == 0) {
    sqlite3_bind_null(stmt, index);
  } else {
    sqlite3_bind_text(stmt, index, text, static_cast<int>(n), SQLITE_STATIC);
  }
}

void bind_int_or_null(sqlite3_stmt* stmt, const char* name, bool present, int value) {
  int index = sqlite3_bind_parameter_index(stmt, name);
  if (index == 0) return;
  if (present) {
    sqlite3_bind_int(stmt, index, value);
  } else {
    sqlite3_bind_null(stmt, index);
  }
}

#define SF_BIND_TEXT(stmt, name, field) bind_text_or_null(stmt, name, field, sizeof(field))

// A statement text that sqlite3_mprintf can take without arguments: every
// "%" is doubled.
bool format_needs_no_arguments(const char* text) {
  for (const char* p = text; *p != '\0'; ++p) {
    if (*p != '%') continue;
    if (p[1] != '%') return false;
    ++p;
  }
  return true;
}

int fill_array(ShareLinkRecord* rows, int* counter, int ncols, char** values) {
  if (ncols != kEventColumns || rows == nullptr || values == nullptr) return 0;
  fill_event_record(&rows[*counter], values);
  ++*counter;
  return 0;
}

}  // namespace

namespace sf_internal {

int check_event_filter(const ShareLinkRecord* f, bool check_title) {
  if (too_long(f->pkey, 40) || too_long(f->host, 512) || too_long(f->useraddr, 512) ||
      too_long(f->filesize, 16) || too_long(f->creator, 64) || too_long(f->accesscode, 128) ||
      too_long(f->misc, 40) || too_long(f->create_date, 11) || too_long(f->create_time, 12) ||
      too_long(f->link_name, 256)) {
    return kSfTooLong;
  }
  if (check_title && (too_long(f->title, 256) || too_long(f->description, 256))) return kSfTooLong;
  if (f->ssl > 2) return kSfBadParam;
  if (expiry_before_creation(f)) return kSfBadParam;
  return 0;
}

void event_conditions(const ShareLinkRecord* f, EventFilterUse use, BoundedSql* out) {
  if (f->ssl == 0 || f->ssl == 1) out->append("AND ssl = %d ", f->ssl);
  if (f->createtic >= 0) out->append("AND createtic = %d ", f->createtic);
  if (f->expire >= 0) {
    out->append(use == EventFilterUse::kSelect ? "AND expire = %d " : "AND expire <= %d ",
                f->expire);
  }
  if (f->download_count >= 0) out->append("AND download_count = %d ", f->download_count);
  if (f->download_limit >= 0) out->append("AND download_limit = %d ", f->download_limit);
  if (has_text(f->pkey)) out->append("AND pkey = %.*Q ", SF_TXT(f->pkey));
  if (has_text(f->host)) out->append("AND host LIKE '%%%.*q%%' ", SF_TXT(f->host));
  if (has_text(f->sharefile)) out->append("AND sharefile LIKE '%%%.*q%%' ", SF_TXT(f->sharefile));
  if (has_text(f->link_name)) out->append("AND link_name LIKE '%%%.*q%%' ", SF_TXT(f->link_name));
  if (has_text(f->useraddr)) out->append("AND useraddr LIKE '%%%.*q%%' ", SF_TXT(f->useraddr));
  if (has_text(f->creator)) {
    if (use == EventFilterUse::kDelete) {
      out->append("AND creator = %.*Q ", SF_TXT(f->creator));
    } else {
      // Ungrouped OR and no trailing blank, as the callers have always had it.
      out->append("AND creator = %.*Q OR creator = '%q:%.*q'", SF_TXT(f->creator), "Mirra",
                  SF_TXT(f->creator));
    }
  }
  if (has_text(f->accesscode)) out->append("AND accesscode = %.*Q ", SF_TXT(f->accesscode));
  if (has_text(f->misc)) out->append("AND misc LIKE '%%%.*q%%' ", SF_TXT(f->misc));
  if (has_text(f->title)) out->append("AND title LIKE '%%%.*q%%' ", SF_TXT(f->title));
  if (has_text(f->description)) {
    out->append("AND description LIKE '%%%.*q%%' ", SF_TXT(f->description));
  }
  if (f->type >= 0) out->append("AND type = %d ", f->type);
}

bool event_order(int sort, bool filtered, std::string* out) {
  if (sort < 0 || sort > kLastSortCode) return false;
  bool desc = (sort % 2) == 1;
  int column = sort / 2;
  if (column == 13 || column == 14) {
    if (!filtered) {
      out->clear();
      return true;
    }
    const char* first = column == 13 ? "create_date" : "create_time";
    const char* second = column == 13 ? "create_time" : "create_date";
    *out = std::string("ORDER BY ") + first + (desc ? " DESC, " : ", ") + second +
           (desc ? " DESC " : " ");
    return true;
  }
  *out = std::string("ORDER BY ") + kColumns[column] + (desc ? " DESC" : "") + (filtered ? " " : "");
  return true;
}

void fill_event_record(ShareLinkRecord* r, char** v) {
  copy_column(r->pkey, v[0], "----");
  copy_column(r->host, v[1], "localhost");
  r->ssl = int_column(v[2]);
  copy_column(r->sharefile, v[3], "----");
  copy_column(r->useraddr, v[4], "none@none");
  copy_column(r->filesize, v[5], "0");
  r->reserved_size = 0;
  r->createtic = int_column(v[6]);
  r->expire = int_column(v[7]);
  copy_column(r->creator, v[8], "UNKNOWN");
  copy_column(r->accesscode, v[9], "----");
  r->download_count = int_column(v[10]);
  r->download_limit = int_column(v[11]);
  copy_column(r->misc, v[12], "----");
  copy_column(r->create_date, v[13], "----");
  copy_column(r->create_time, v[14], "----");
  copy_column(r->title, v[15], "----");
  copy_column(r->description, v[16], "----");
  r->type = int_column(v[17]);
  copy_column(r->link_name, v[18], "----");
  r->trailing_a = 0;
  r->trailing_b = 0;
}

}  // namespace sf_internal

int sf_event_count() { return count_all(kEvent); }

int sf_event_count_filter(const ShareLinkRecord* filter) {
  if (filter == nullptr) return kSfBadParam;
  int rc = check_event_filter(filter, true);
  if (rc != 0) return rc;
  BoundedSql conditions(kConditionBuffer);
  event_conditions(filter, EventFilterUse::kCount, &conditions);
  if (conditions.overflow()) return kSfTooLong;
  return count_where(kEvent, conditions);
}

int sf_event_select(SfRowCallback cb, int sort, int start, int end, void* user_data) {
  std::string order;
  if (!event_order(sort, false, &order) || bad_range(start, end)) return kSfBadParam;
  return select_all(kEvent, order, start, end, cb, user_data);
}

int sf_event_select_filter(SfRowCallback cb, const ShareLinkRecord* filter, int sort, int start,
                           int end, void* user_data) {
  // Only the ssl code is checked: over-long texts are bounded by their buffers.
  if (filter == nullptr || filter->ssl > 2) return kSfBadParam;
  std::string order;
  if (!event_order(sort, true, &order) || bad_range(start, end)) return kSfBadParam;
  BoundedSql conditions(kConditionBuffer);
  event_conditions(filter, EventFilterUse::kSelect, &conditions);
  if (conditions.overflow()) return kSfTooLong;
  return select_where(kEvent, conditions, order, start, end, cb, user_data);
}

namespace sf_internal {

int event_insert_statement(ShareLinkRecord* r, char** sql) {
  *sql = nullptr;
  if (record_too_long(r)) return kSfTooLong;
  if (r->ssl > 2 || expiry_before_creation(r)) return kSfBadParam;
  if (!has_text(r->creator)) snprintf(r->creator, sizeof r->creator, "%s", "system");
  *sql = sqlite3_mprintf(
      "INSERT INTO SHARELINK_EVENT ( pkey, host, ssl, sharefile, useraddr, filesize, createtic, "
      "expire, creator, accesscode, download_count, download_limit, misc, title, description, "
      "type, link_name ) VALUES ( %.*Q, %.*Q, %d, %.*Q, %.*Q, %.*Q, %d, %d, %.*Q, %.*Q, %d, %d, "
      "%.*Q, %.*Q, %.*Q, %d, %.*Q );",
      SF_TXT(r->pkey), SF_TXT(r->host), r->ssl, SF_TXT(r->sharefile), SF_TXT(r->useraddr),
      SF_TXT(r->filesize), r->createtic, r->expire, SF_TXT(r->creator), SF_TXT(r->accesscode),
      r->download_count, r->download_limit, SF_TXT(r->misc), SF_TXT(r->title),
      SF_TXT(r->description), r->type, SF_TXT(r->link_name));
  return 0;
}

}  // namespace sf_internal

int sf_event_insert(ShareLinkRecord* r) {
  if (r == nullptr) return kSfBadParam;
  char* text = nullptr;
  int rc = event_insert_statement(r, &text);
  SqlText sql(text);
  if (rc != 0) return rc;
  if (sql.get() == nullptr) return kSfInsertFailed;
  return open_and_run(sql.get(), true, kSfInsertFailed);
}

int sf_event_update(const ShareLinkRecord* r) {
  if (r == nullptr) return kSfBadParam;
  if (record_too_long(r)) return kSfTooLong;
  if (expiry_before_creation(r)) return kSfBadParam;

  BoundedSql list(kConditionBuffer);
  if (r->expire >= 0) list.append(", expire = %d ", r->expire);
  if (has_text(r->sharefile)) list.append(", sharefile = %.*Q ", SF_TXT(r->sharefile));
  if (has_text(r->host)) list.append(", host = %.*Q ", SF_TXT(r->host));
  if (r->ssl == 0 || r->ssl == 1) list.append(", ssl = %d ", r->ssl);
  if (has_text(r->accesscode)) list.append(", accesscode = %.*Q ", SF_TXT(r->accesscode));
  if (r->download_count >= 0) list.append(", download_count = %d ", r->download_count);
  if (r->download_limit >= 0) list.append(", download_limit = %d ", r->download_limit);
  if (has_text(r->misc)) list.append(", misc = %.*Q ", SF_TXT(r->misc));
  if (has_text(r->title)) list.append(", title = %.*Q ", SF_TXT(r->title));
  if (has_text(r->description)) list.append(", description = %.*Q ", SF_TXT(r->description));
  if (has_text(r->link_name)) list.append(", link_name = %.*Q ", SF_TXT(r->link_name));
  if (r->type >= 0) list.append(", type = %d ", r->type);
  if (list.overflow()) return kSfTooLong;

  const std::string& items = list.str();
  const char* assignments = items.empty() ? "" : items.c_str() + 2;
  char* target = nullptr;
  if (has_text(r->pkey)) {
    // With nothing to set, the statement is the WHERE clause alone and fails.
    target = items.empty() ? sqlite3_mprintf("WHERE pkey = %.*Q", SF_TXT(r->pkey))
                           : sqlite3_mprintf("SET %s WHERE pkey = %.*Q", assignments,
                                             SF_TXT(r->pkey));
  } else if (items.compare(0, 6, ", misc") == 0) {
    target = sqlite3_mprintf("SET %s WHERE misc = %Q", assignments, "----");
  } else if (items.compare(0, 6, ", type") == 0) {
    target = sqlite3_mprintf("SET %s", assignments);
  } else {
    return kSfUpdateFailed;
  }
  return update_target(kEvent, target);
}

int sf_event_update_list(int count, ShareLinkListNode* first) {
  DbGuard db;
  int rc = open_store(&db, true);
  if (rc != 0) return rc;
  Transaction txn(db.get());
  if (!txn.begun()) return kSfUpdateFailed;
  StmtGuard stmt;
  if (sqlite3_prepare_v2(db.get(), kUpdateListSql, -1, stmt.out(), nullptr) != SQLITE_OK) {
    // The transaction stays open and the connection unclosed; it is parked
    // rather than lost.
    txn.leave_open();
    park_connection(db.release());
    return kSfUpdateFailed;
  }
  int done = 0;
  for (ShareLinkListNode* node = first; node != nullptr && done < count; node = node->next, ++done) {
    const ShareLinkRecord* r = &node->record;
    sqlite3_reset(stmt.get());
    if (too_long(r->accesscode, 128) || expiry_before_creation(r)) return kSfUpdateFailed;
    sqlite3_stmt* s = stmt.get();
    bind_int_or_null(s, "@expire", r->expire >= 0, r->expire);
    bind_int_or_null(s, "@ssl", r->ssl == 0 || r->ssl == 1, r->ssl);
    bind_int_or_null(s, "@download_count", r->download_count >= 0, r->download_count);
    bind_int_or_null(s, "@download_limit", r->download_limit >= 0, r->download_limit);
    bind_int_or_null(s, "@type", r->type >= 0, r->type);
    SF_BIND_TEXT(s, "@host", r->host);
    SF_BIND_TEXT(s, "@accesscode", r->accesscode);
    SF_BIND_TEXT(s, "@misc", r->misc);
    SF_BIND_TEXT(s, "@title", r->title);
    SF_BIND_TEXT(s, "@description", r->description);
    SF_BIND_TEXT(s, "@link_name", r->link_name);
    SF_BIND_TEXT(s, "@pkey", r->pkey);
    if (sqlite3_step(s) != SQLITE_DONE) return kSfUpdateFailed;
  }
  stmt.finalize();
  return txn.commit() ? 0 : kSfUpdateFailed;
}

int sf_event_delete_by_field(int field, const void* value) {
  if (value == nullptr || field < 0 || field > 18) return kSfBadParam;
  char* sql = nullptr;
  switch (field) {
    case 2:
    case 6:
    case 10:
    case 11:
    case 17:
      sql = sqlite3_mprintf("DELETE FROM SHARELINK_EVENT WHERE %s = %d;", kColumns[field],
                            *static_cast<const int32_t*>(value));
      break;
    case 7:
      sql = sqlite3_mprintf("DELETE FROM SHARELINK_EVENT WHERE expire > 0 AND expire < %d;",
                            *static_cast<const int32_t*>(value));
      break;
    default:
      sql = sqlite3_mprintf("DELETE FROM SHARELINK_EVENT WHERE %s = %Q;", kColumns[field],
                            static_cast<const char*>(value));
      break;
  }
  SqlText text(sql);
  if (sql == nullptr) return kSfDeleteFailed;
  return open_and_run(sql, false, kSfDeleteFailed);
}

int sf_event_delete_filter(const ShareLinkRecord* filter) {
  if (filter == nullptr) return kSfBadParam;
  int rc = check_event_filter(filter, false);
  if (rc != 0) return rc;
  BoundedSql conditions(kConditionBuffer);
  event_conditions(filter, EventFilterUse::kDelete, &conditions);
  if (conditions.overflow()) return kSfTooLong;
  // A failed commit still reports success here, as it always has.
  return delete_where(kEvent, conditions, true);
}

int sf_event_delete_all() { return delete_all(kEvent); }

int sf_event_drop() { return drop_table(kEvent); }

int sf_exec_sql(const char* statement) {
  if (statement == nullptr || !format_needs_no_arguments(statement)) return kSfBadParam;
  SqlText sql(sqlite3_mprintf(statement));
  if (sql.get() == nullptr) return kSfBadParam;
  DbGuard db;
  int rc = open_store(&db, true);
  if (rc != 0) return rc;
  rc = sqlite3_exec(db.get(), sql.get(), nullptr, nullptr, nullptr);
  return rc < 0 ? kSfQueryFailed : rc;
}

int sf_fill_record_array(void* user_data, int ncols, char** values, char** names) {
  return fill_array(static_cast<ShareLinkRecord*>(user_data), &sf_record_array_count, ncols, values);
}

int sf_fill_record_array_clean(void* user_data, int ncols, char** values, char** names) {
  return fill_array(static_cast<ShareLinkRecord*>(user_data), &sf_clean_array_count, ncols, values);
}

int sf_fill_record_single(void* user_data, int ncols, char** values, char** names) {
  if (ncols != kEventColumns || user_data == nullptr || values == nullptr) return 0;
  fill_event_record(static_cast<ShareLinkRecord*>(user_data), values);
  return 0;
}

int sf_fill_record_bounded(void* user_data, int ncols, char** values, char** names) {
  ShareLinkRecord* r = next_row<SfRecordArray>(user_data, ncols, kEventColumns, values);
  if (r != nullptr) fill_event_record(r, values);
  return 0;
}
