// HTTP dates: the caching headers write them, and the CGI front reads the
// browser's If-Modified-Since back into seconds.
#ifndef SLT_WEBLIB_HTTP_DATE_H_
#define SLT_WEBLIB_HTTP_DATE_H_

#include <cstddef>
#include <ctime>

constexpr size_t kHttpDateSize = 128;

// Writes `when` in UTC as "%a, %d %b %Y %T %Z" ("Sun, 06 Nov 1994 08:49:37
// GMT") into out (at most size - 1 characters). Returns the length, or 0
// (out empty) when the time cannot be broken down or does not fit.
size_t format_http_date(time_t when, char* out, size_t size);

// Reads an IMF-fixdate exactly: "Sun, 06 Nov 1994 08:49:37 GMT", with the
// weekday matching the date, every field in range and nothing around it.
// Returns true and the seconds since the epoch in *when; false otherwise
// (*when unchanged).
bool parse_http_date(const char* text, time_t* when);

#endif  // SLT_WEBLIB_HTTP_DATE_H_
