// The log library's column migration: brings an existing table up to a list
// of columns by adding the ones an older file lacks.
#ifndef SLT_PLATFORM_NASLOG_MIGRATE_H_
#define SLT_PLATFORM_NASLOG_MIGRATE_H_

// One column of a table; `add_statement` is the statement that adds it when
// missing, or null for a column every version of the table has.
struct NaslogColumn {
  const char* name;
  const char* add_statement;
};

// Opens the SQLite file at appliance path `db_path`, lists the columns of
// `table` (PRAGMA table_info; names compared without regard to case) and runs
// the add statement of each listed column that is missing. 0 when the table
// has every listed column afterwards. Negative on failure: -1 bad arguments,
// -2 the file could not be opened, -3 the columns could not be listed, -4 an
// add statement failed, -5 a column without an add statement is missing.
int naslog_common_migrate_db(const char* db_path, const char* table, const NaslogColumn* columns,
                             int count);

#endif  // SLT_PLATFORM_NASLOG_MIGRATE_H_
