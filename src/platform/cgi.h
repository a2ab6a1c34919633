// The web request as the CGI environment gives it: parameters from
// QUERY_STRING (and an application/x-www-form-urlencoded POST body), the
// request host, and the other request variables the library reads.
#ifndef SLT_PLATFORM_CGI_H_
#define SLT_PLATFORM_CGI_H_

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

struct CgiRequest {
  std::vector<std::pair<std::string, std::string>> params;  // in arrival order
};

// Appends the parameters of an urlencoded text ("a=1&b=x+y%21") to req:
// "+" is a blank, "%XX" a byte; an item without "=" has an empty value;
// a malformed escape is kept as it stands.
void cgi_parse_params(const char* text, size_t len, CgiRequest* req);

// The request of this process: QUERY_STRING, then for a POST with an
// urlencoded body, CONTENT_LENGTH bytes (at most 1 MiB) of standard input.
CgiRequest cgi_read_request();

// The first value of parameter `name`, or null when absent.
const char* CGI_Find_Parameter(const CgiRequest* req, const char* name);

struct HttpInfo {
  char host[257];  // HTTP_HOST, "" when unset
};
// Fills info from the environment; always 0.
int CGI_Get_Http_Info(HttpInfo* info);

// A request variable of the environment (HTTP_RANGE, HTTP_USER_AGENT,
// IF_MODIFIED_SINCE, REMOTE_USER, ...), or null when unset.
const char* cgi_env(const char* name);

#endif  // SLT_PLATFORM_CGI_H_
