// The file manager's JSON replies: the CGI content-type headers and the four
// small envelopes that request handlers print on standard output.
//
// Each envelope is one json-c object with its members in a fixed order,
// printed as one line. "success" is always the string "true", even when the
// status reports a failure: the web pages test the status, not "success".
#ifndef SLT_WEBLIB_JSON_REPLY_H_
#define SLT_WEBLIB_JSON_REPLY_H_

// The application's version and build date carried by the status replies.
extern const char kAppVersion[];  // "6.0.1.6963"
extern const char kAppBuild[];    // "20250804"

// "Content-type: application/json; charset=\"UTF-8\"" and CR LF CR LF. 0.
int print_json_header();
// "Content-type: text/html" and CR LF CR LF. 0.
int print_html_header();

// True when a status reply carries "version" and "build": every status but
// 3, 15 and those with no bit other than 8 set (0 and 8).
bool status_carries_version(int status);

// {"version", "build",} "status", "success". 0.
int print_status(int status);
// "version", "build", "permission", "play", "success". 0.
int print_permission(int permission, int play);
// "status", "result". A null text is printed as "". 0.
int print_status_result(int status, const char* text);
// "status", "success", "err_code", "err_msg". A null message is "". 0.
int print_status_error(int status, int err_code, const char* err_msg);

#endif  // SLT_WEBLIB_JSON_REPLY_H_
