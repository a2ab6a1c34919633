// One link, its files and its recipients, written whole.
#include <vector>

#include "sharelink_db/event_rows.h"
#include "sharelink_db/event_sql.h"
#include "sharelink_db/result_codes.h"
#include "sharelink_db/store_internal.h"

using namespace sf_internal;

namespace {

// A statement of each part, checked before the store is opened.
struct Part {
  int which;
  char* sql;
};

class Statements {
 public:
  ~Statements() {
    for (Part& p : parts_) sqlite3_free(p.sql);
  }
  // Adds a statement made by `make`; its code when the record is refused.
  template <class Make>
  int add(int which, Make make) {
    char* sql = nullptr;
    int rc = make(&sql);
    parts_.push_back(Part{which, sql});
    return rc;
  }
  std::vector<Part>& parts() { return parts_; }

 private:
  std::vector<Part> parts_;
};

bool key_exists(sqlite3* db, const char* key, int* rc) {
  SqlText sql(sqlite3_mprintf("SELECT COUNT(*) FROM SHARELINK_EVENT WHERE pkey = %Q;", key));
  *rc = count_rows(db, sql.get());
  return *rc > 0;
}

}  // namespace

int sf_add_link(ShareLinkRecord* link, const ShareLinkFidRecord* fids, int nfids,
                const ShareLinkUserRecord* users, int nusers, int* failed_part) {
  int unused = 0;
  int* part = failed_part != nullptr ? failed_part : &unused;
  *part = 0;
  if (link == nullptr || nfids < 0 || nusers < 0 || (nfids > 0 && fids == nullptr) ||
      (nusers > 0 && users == nullptr)) {
    return kSfBadParam;
  }
  Statements st;
  int rc = st.add(0, [&](char** sql) { return event_insert_statement(link, sql); });
  for (int i = 0; rc == 0 && i < nfids; ++i) {
    *part = 1;
    rc = st.add(1, [&](char** sql) { return fid_insert_statement(fids[i], sql); });
  }
  for (int i = 0; rc == 0 && i < nusers; ++i) {
    *part = 2;
    rc = st.add(2, [&](char** sql) { return user_insert_statement(users[i], sql); });
  }
  if (rc != 0) return rc;
  *part = 0;

  DbGuard db;
  rc = open_store(&db, true);
  if (rc != 0) return rc;
  // IMMEDIATE takes the write lock before the key is looked up, so a second
  // add of the same key waits and then finds it.
  Transaction txn(db.get(), "BEGIN IMMEDIATE");
  if (!txn.begun()) return kSfInsertFailed;
  int count = 0;
  if (key_exists(db.get(), link->pkey, &count)) return kSfLinkExists;
  if (count < 0) return count;
  for (const Part& p : st.parts()) {
    *part = p.which;
    if (!exec(db.get(), p.sql)) return kSfInsertFailed;
  }
  *part = 0;
  return txn.commit() ? 0 : kSfInsertFailed;
}
