#include "listing/share_link_list.h"

#include <libgen.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "addressing/share_link_view.h"
#include "listing/xml_row.h"
#include "platform/os.h"
#include "sharelink_db/clean_pass.h"
#include "sharelink_db/event_rows.h"
#include "sharelink_db/records.h"

namespace {

constexpr int kPageBeyondEnd = -5;

void print_report(int count, int ret) {
  printf("\t<count>%d</count>\n", count);
  printf("\t<ret>%d</ret>\n", ret);
}

// The page fetch: rows go into the caller's array through the listing's row
// reader, never beyond the rows it was sized for.
struct PageSink {
  ShareLinkRecord* records;
  int capacity;
};

int fill_page(void* user_data, int ncols, char** values, char** names) {
  PageSink* sink = static_cast<PageSink*>(user_data);
  if (sf_record_array_count >= sink->capacity) return 0;
  return sf_fill_record_array(sink->records, ncols, values, names);
}

struct FreeDeleter {
  void operator()(void* p) const { free(p); }
};

}  // namespace

int print_share_link_list(int sort, int start, int rows_wanted, const char* user,
                          const char* name_filter) {
  if (user == nullptr) user = "";
  if (name_filter == nullptr) name_filter = "";
  int32_t now = static_cast<int32_t>(os.time(nullptr));

  ShareLinkRecord filter;
  sf_filter_reset(&filter);
  filter.expire = now;

  sf_clean_sharelink();

  // The count selector reads "expire <= now", so links that never expire
  // (0) are counted too; the delete itself spares them.
  int expired = sf_event_count_filter(&filter);
  if (expired < 0) return -1;
  if (expired > 0) {
    sf_event_delete_by_field(7, &now);
    os.usleep(10000);
  }

  sf_filter_reset(&filter);
  snprintf(filter.creator, sizeof filter.creator, "%s:%s", "Mirra", user);
  snprintf(filter.link_name, sizeof filter.link_name, "%s", name_filter);
  int total = sf_event_count_filter(&filter);

  if (total < 0 || rows_wanted <= 0) {
    print_report(0, total);
    return total;
  }
  int64_t rows;
  if (total > static_cast<int64_t>(start) + rows_wanted - 1) {
    rows = rows_wanted;
  } else if (total >= start) {
    rows = static_cast<int64_t>(total) - start;
  } else {
    print_report(0, kPageBeyondEnd);
    rows = 0;
  }

  // A negative start is refused by the fetch before it reads anything, so
  // no page is allocated for it.
  int64_t capacity = start < 0 ? 0 : rows;
  std::unique_ptr<ShareLinkRecord, FreeDeleter> records(
      static_cast<ShareLinkRecord*>(calloc(capacity > 0 ? capacity : 1, sizeof(ShareLinkRecord))));
  std::unique_ptr<ShareLinkView, FreeDeleter> views(
      static_cast<ShareLinkView*>(calloc(capacity > 0 ? capacity : 1, sizeof(ShareLinkView))));
  if (!records || !views) {
    print_report(total, -1);
    return -1;
  }

  PageSink sink{records.get(), static_cast<int>(capacity)};
  sf_record_array_count = 0;
  int64_t end = static_cast<int64_t>(start) + rows;
  int r = sf_event_select_filter(fill_page, &filter, sort, start,
                                 end > INT32_MAX ? INT32_MAX : static_cast<int>(end), &sink);
  if (r != 0) {
    print_report(total, r);
    return r;
  }

  int count = static_cast<int>(capacity);
  build_share_link_views(views.get(), count, records.get());
  printf("\t<count>%d</count>\n", total);
  puts("\t<data>");
  for (int i = 0; i < count; ++i) print_share_link_row(&views.get()[i]);
  puts("\t</data>");
  printf("\t<ret>%d</ret>\n", 0);
  free_share_link_views(count, views.release());
  return 0;
}
