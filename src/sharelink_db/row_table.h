// One shape for the store's tables: a descriptor (name, columns, bounds,
// filter conditions) and the operations every table has, written once.
// Each table's file keeps its descriptor, its insert and update quirks and
// the named entry points. Not for use outside sharelink_db/.
#ifndef SLT_SHARELINK_DB_ROW_TABLE_H_
#define SLT_SHARELINK_DB_ROW_TABLE_H_

#include <string>

#include "sharelink_db/records.h"
#include "sharelink_db/result_codes.h"
#include "sharelink_db/store_internal.h"

namespace sf_internal {

constexpr size_t kConditionBuffer = 4096;

// The table-level statements; `name` is the table as the statements spell it.
struct TableName {
  const char* name;
  const char* const* columns;
  int ncolumns;
};

int count_all(const TableName& t);                                    // count, -24, -20
int count_where(const TableName& t, const BoundedSql& conditions);     // count, -11, -24, -20
int select_all(const TableName& t, const std::string& order, int start, int end, SfRowCallback cb,
               void* user_data);
int select_where(const TableName& t, const BoundedSql& conditions, const std::string& order,
                 int start, int end, SfRowCallback cb, void* user_data);
int delete_where(const TableName& t, const BoundedSql& conditions, bool ignore_commit);
int delete_field(const TableName& t, int field, const char* value);  // text columns
int delete_all(const TableName& t);                                  // 0, -22, -20
int drop_table(const TableName& t);                                  // 0, -21, -20
// "UPDATE <table> <target>;" in a transaction; takes a target made by
// sqlite3_mprintf (null when memory ran out). 0, -28, -20.
int update_target(const TableName& t, char* target);

// A record's column text as SF_TXT gives it: the most bytes it may hold and
// the buffer.
struct ColumnText {
  int size;
  const char* text;
};
constexpr int kMaxRowColumns = 4;

// A companion table of link keys: every column is a text; column 0 is the
// link key and column 1 the key an update falls back to without one.
template <class Record>
struct RowTable {
  TableName table;
  // The record's column texts in column order.
  void (*texts)(const Record& r, ColumnText* out);
  // Bit i: a filter matches column i anywhere inside (LIKE, case-sensitive
  // on the store's connections) instead of equal.
  unsigned contains;
  // The filtered select's sort texts; null: the columns two by two.
  const char* const* filtered_order;

  bool too_long(const Record& r) const {
    ColumnText t[kMaxRowColumns];
    texts(r, t);
    for (int i = 0; i < table.ncolumns; ++i) {
      if (strnlen(t[i].text, t[i].size + 1) > static_cast<size_t>(t[i].size)) return true;
    }
    return false;
  }
  // -11 for no filter, -10 for an over-long text or conditions that do not
  // fit their buffer; else 0 with the conditions in `out`.
  int filter_of(const Record* f, BoundedSql* out) const {
    if (f == nullptr) return kSfBadParam;
    if (too_long(*f)) return kSfTooLong;
    ColumnText t[kMaxRowColumns];
    texts(*f, t);
    for (int i = 0; i < table.ncolumns; ++i) {
      if (!has_text(t[i].text)) continue;
      const char* c = table.columns[i];
      if ((contains >> i) & 1u) {
        out->append("AND %s LIKE '%%%.*q%%' ", c, t[i].size, t[i].text);
      } else {
        out->append("AND %s = %.*Q ", c, t[i].size, t[i].text);
      }
    }
    return out->overflow() ? kSfTooLong : 0;
  }
  // "INSERT INTO <table> ( <columns> ) VALUES ( <texts> );", null when memory
  // ran out.
  char* insert_sql(const Record& r) const {
    ColumnText t[kMaxRowColumns];
    texts(r, t);
    BoundedSql names(kConditionBuffer);
    BoundedSql values(2 * 4097 * kMaxRowColumns + 64);
    for (int i = 0; i < table.ncolumns; ++i) {
      names.append(i == 0 ? "%s" : ", %s", table.columns[i]);
      values.append(i == 0 ? "%.*Q" : ", %.*Q", t[i].size, t[i].text);
    }
    if (names.overflow() || values.overflow()) return nullptr;
    return sqlite3_mprintf("INSERT INTO %s ( %s ) VALUES ( %s );", table.name, names.c_str(),
                           values.c_str());
  }
  // The insert of one record for a caller's transaction: 0 (the statement
  // null when memory ran out) or -10.
  int insert_statement(const Record& r, char** sql) const {
    *sql = nullptr;
    if (too_long(r)) return kSfTooLong;
    *sql = insert_sql(r);
    return 0;
  }
  // One record in its own transaction. 0, -10, -11, -23, -20.
  int insert(const Record* r) const {
    if (r == nullptr) return kSfBadParam;
    if (too_long(*r)) return kSfTooLong;
    SqlText sql(insert_sql(*r));
    if (sql.get() == nullptr) return kSfInsertFailed;
    return open_and_run(sql.get(), true, kSfInsertFailed);
  }
  // Row reader for an SfRows<Record> at user_data: NULL columns read as
  // empty texts, each cut to its buffer.
  int fill_row(void* user_data, int ncols, char** values) const {
    auto* out = static_cast<SfRows<Record>*>(user_data);
    if (ncols != table.ncolumns || out == nullptr || values == nullptr) return 0;
    if (out->rows == nullptr || out->count >= out->capacity) {
      ++out->overflow;
      return 0;
    }
    Record* r = &out->rows[out->count++];
    ColumnText t[kMaxRowColumns];
    texts(*r, t);
    for (int i = 0; i < table.ncolumns; ++i) {
      // The texts are the record's own buffers.
      char* dst = const_cast<char*>(t[i].text);
      const char* src = values[i] != nullptr ? values[i] : "";
      size_t n = strnlen(src, t[i].size);
      memcpy(dst, src, n);
      dst[n] = '\0';
    }
    return 0;
  }
  int count() const { return count_all(table); }
  int count_filter(const Record* f) const {
    BoundedSql where(kConditionBuffer);
    int rc = filter_of(f, &where);
    return rc != 0 ? rc : count_where(table, where);
  }
  int select(SfRowCallback cb, int sort, int start, int end, void* user_data) const {
    std::string order;
    if (!column_order(table.columns, table.ncolumns, sort, false, "", &order) ||
        bad_range(start, end)) {
      return kSfBadParam;
    }
    return select_all(table, order, start, end, cb, user_data);
  }
  int select_filter(SfRowCallback cb, const Record* f, int sort, int start, int end,
                    void* user_data) const {
    if (f == nullptr) return kSfBadParam;
    if (too_long(*f)) return kSfTooLong;
    std::string order;
    bool known = filtered_order != nullptr
                     ? sort >= 0 && sort < 2 * table.ncolumns && (order = filtered_order[sort], true)
                     : column_order(table.columns, table.ncolumns, sort, true, "", &order);
    if (!known || bad_range(start, end)) return kSfBadParam;
    BoundedSql where(kConditionBuffer);
    int rc = filter_of(f, &where);
    return rc != 0 ? rc : select_where(table, where, order, start, end, cb, user_data);
  }
  // Sets every non-empty text, the key included (to itself), on the rows of
  // the record's pkey or, without one, of its column 1.
  int update(const Record* r) const {
    if (r == nullptr) return kSfBadParam;
    if (too_long(*r)) return kSfTooLong;
    ColumnText t[kMaxRowColumns];
    texts(*r, t);
    if (!has_text(t[0].text) && !has_text(t[1].text)) return kSfBadParam;
    BoundedSql items(kConditionBuffer);
    for (int i = 0; i < table.ncolumns; ++i) {
      if (has_text(t[i].text)) items.append(", %s = %.*Q ", table.columns[i], t[i].size, t[i].text);
    }
    if (items.overflow()) return kSfTooLong;
    int key = has_text(t[0].text) ? 0 : 1;
    return update_target(table, sqlite3_mprintf("SET %s WHERE %s = %.*Q", items.c_str() + 2,
                                                table.columns[key], t[key].size, t[key].text));
  }
  // Sets what `items_of` lists on the rows with both keys (columns 0 and 1).
  // With nothing to set, the statement is the WHERE clause alone and fails.
  int update_by_keys(const Record* r, void (*items_of)(const Record&, BoundedSql*)) const {
    if (r == nullptr) return kSfBadParam;
    if (too_long(*r)) return kSfTooLong;
    ColumnText t[kMaxRowColumns];
    texts(*r, t);
    if (!has_text(t[0].text) || !has_text(t[1].text)) return kSfBadParam;
    BoundedSql items(kConditionBuffer);
    items_of(*r, &items);
    if (items.overflow()) return kSfTooLong;
    const char* key = table.columns[1];
    return update_target(
        table, items.empty() ? sqlite3_mprintf("WHERE pkey = %.*Q AND %s = %.*Q", t[0].size,
                                               t[0].text, key, t[1].size, t[1].text)
                             : sqlite3_mprintf("SET %s WHERE pkey = %.*Q AND %s = %.*Q",
                                               items.c_str() + 2, t[0].size, t[0].text, key,
                                               t[1].size, t[1].text));
  }
  int delete_by_field(int field, const char* value) const {
    return delete_field(table, field, value);
  }
  int delete_filter(const Record* f) const {
    BoundedSql where(kConditionBuffer);
    int rc = filter_of(f, &where);
    return rc != 0 ? rc : delete_where(table, where, false);
  }
  int delete_all() const { return sf_internal::delete_all(table); }
  int drop() const { return drop_table(table); }
};

// Defines the entry points that SF_DECLARE_ROW_TABLE declares over `desc`.
#define SF_DEFINE_ROW_TABLE(t, R, desc)                                                      \
  int sf_##t##_count() { return desc.count(); }                                             \
  int sf_##t##_count_filter(const R* f) { return desc.count_filter(f); }                    \
  int sf_##t##_select(SfRowCallback cb, int sort, int start, int end, void* user_data) {    \
    return desc.select(cb, sort, start, end, user_data);                                    \
  }                                                                                         \
  int sf_##t##_select_filter(SfRowCallback cb, const R* f, int sort, int start, int end,    \
                             void* user_data) {                                             \
    return desc.select_filter(cb, f, sort, start, end, user_data);                          \
  }                                                                                         \
  int sf_##t##_update(const R* r) { return desc.update(r); }                                \
  int sf_##t##_delete_by_field(int field, const char* v) { return desc.delete_by_field(field, v); } \
  int sf_##t##_delete_filter(const R* f) { return desc.delete_filter(f); }                  \
  int sf_##t##_delete_all() { return desc.delete_all(); }                                   \
  int sf_##t##_drop() { return desc.drop(); }                                               \
  int sf_fill_##t##_rows(void* user_data, int ncols, char** values, char**) {               \
    return desc.fill_row(user_data, ncols, values);                                         \
  }

// The next record of a caller's row array, or null (counted in `overflow`)
// when the array is full. Rows of another width are skipped. For the link
// rows, whose fill has defaults of its own.
template <class Rows>
auto next_row(void* user_data, int ncols, int width, char** values) -> decltype(Rows::rows) {
  auto* out = static_cast<Rows*>(user_data);
  if (ncols != width || out == nullptr || values == nullptr) return nullptr;
  if (out->rows == nullptr || out->count >= out->capacity) {
    ++out->overflow;
    return nullptr;
  }
  return &out->rows[out->count++];
}

}  // namespace sf_internal

#endif  // SLT_SHARELINK_DB_ROW_TABLE_H_
