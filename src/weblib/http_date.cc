#include "weblib/http_date.h"

#include <cstring>

namespace {

const char* const kDays[7] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
const char* const kMonths[12] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                 "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};

bool is_leap(long year) { return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0; }

int days_in_month(long year, int month) {
  static const int kDaysIn[12] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  return month == 1 && is_leap(year) ? 29 : kDaysIn[month];
}

// Days from 1970-01-01 to the given civil date (proleptic Gregorian).
long long days_from_civil(long y, int m, int d) {
  y -= m <= 2;
  const long era = (y >= 0 ? y : y - 399) / 400;
  const long yoe = y - era * 400;
  const long doy = (153 * (m + (m > 2 ? -3 : 9)) + 2) / 5 + d - 1;
  const long doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
  return static_cast<long long>(era) * 146097 + doe - 719468;
}

// `n` digits at p into *value.
bool digits(const char* p, int n, int* value) {
  int v = 0;
  for (int i = 0; i < n; ++i) {
    if (p[i] < '0' || p[i] > '9') return false;
    v = v * 10 + (p[i] - '0');
  }
  *value = v;
  return true;
}

int index_of(const char* const* names, int count, const char* p) {
  for (int i = 0; i < count; ++i) {
    if (strncmp(names[i], p, 3) == 0) return i;
  }
  return -1;
}

}  // namespace

size_t format_http_date(time_t when, char* out, size_t size) {
  if (out == nullptr || size == 0) return 0;
  out[0] = '\0';
  struct tm tm;
  if (gmtime_r(&when, &tm) == nullptr) return 0;
  size_t n = strftime(out, size, "%a, %d %b %Y %T %Z", &tm);
  if (n == 0) out[0] = '\0';
  return n;
}

bool parse_http_date(const char* text, time_t* when) {
  // "Sun, 06 Nov 1994 08:49:37 GMT": 29 characters at fixed places.
  if (text == nullptr || strlen(text) != 29) return false;
  int weekday = index_of(kDays, 7, text);
  int month = index_of(kMonths, 12, text + 8);
  if (weekday < 0 || month < 0) return false;
  if (strncmp(text + 3, ", ", 2) != 0 || text[7] != ' ' || text[11] != ' ' || text[16] != ' ' ||
      text[19] != ':' || text[22] != ':' || strcmp(text + 25, " GMT") != 0) {
    return false;
  }
  int day, year, hour, minute, second;
  if (!digits(text + 5, 2, &day) || !digits(text + 12, 4, &year) || !digits(text + 17, 2, &hour) ||
      !digits(text + 20, 2, &minute) || !digits(text + 23, 2, &second)) {
    return false;
  }
  if (day < 1 || day > days_in_month(year, month) || hour > 23 || minute > 59 || second > 60) {
    return false;
  }
  long long days = days_from_civil(year, month + 1, day);
  // 1970-01-01 was a Thursday.
  long long wd = (days % 7 + 7 + 4) % 7;
  if (wd != weekday) return false;
  long long seconds = days * 86400LL + hour * 3600LL + minute * 60LL + second;
  if (static_cast<long long>(static_cast<time_t>(seconds)) != seconds) return false;
  *when = static_cast<time_t>(seconds);
  return true;
}
