#include "sharelink_db/records.h"

#include <cstring>

void sf_filter_reset(ShareLinkRecord* filter) {
  if (filter == nullptr) return;
  memset(filter, 0, sizeof *filter);
  filter->ssl = -1;
  filter->createtic = -1;
  filter->expire = -1;
  filter->download_count = -1;
  filter->download_limit = -1;
  filter->type = -1;
}
