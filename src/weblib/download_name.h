// File names in download headers: the escaping that older Microsoft browsers
// need, and the URL escaping of the name that every header carries.
#ifndef SLT_WEBLIB_DOWNLOAD_NAME_H_
#define SLT_WEBLIB_DOWNLOAD_NAME_H_

#include <cstddef>
#include <string>

// True when the user agent is one of the Microsoft browsers ("MSIE",
// "Trident" or "Edge" in it).
bool is_ie_user_agent(const char* user_agent);

// Makes name safe for those browsers: ";" "#" "-" become %3B %23 %2D, then
// every byte of 128 or more becomes "%" and two lower-case hex digits.
// Writes at most size - 1 bytes and a terminator into out (a longer result
// is cut). Returns the length written.
size_t CGI_Handle_IE_Filename(const char* name, char* out, size_t size);

// curl_easy_escape of text without its hidden controls (bidi, format, C0
// and C1 controls, platform/terminal_text.h): every byte but ALPHA / DIGIT /
// "-._~" as %XX. Returns false (out empty) when the escaping failed.
bool url_escape_name(const char* text, std::string* out);

#endif  // SLT_WEBLIB_DOWNLOAD_NAME_H_
