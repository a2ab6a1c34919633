#include "paths/path_macros.h"

#include <strings.h>

#include <cctype>
#include <cstdio>
#include <cstring>
#include <string>

#include "platform/profile.h"
#include "platform/users.h"

namespace {

LoginIdentity g_login;

void copy_cased(char* out, size_t size, const char* from, size_t len, bool upper) {
  if (len > size - 1) len = size - 1;
  for (size_t i = 0; i < len; ++i) {
    unsigned char c = static_cast<unsigned char>(from[i]);
    out[i] = static_cast<char>(upper ? toupper(c) : tolower(c));
  }
  out[len] = '\0';
}

// Replaces the macro at `at` (two bytes) with `value` followed by `tail`.
void replace_macro(char* path, size_t size, char* at, const char* value, const std::string& tail) {
  size_t offset = static_cast<size_t>(at - path);
  snprintf(at, size - offset, "%s%s", value, tail.c_str());
}

}  // namespace

void set_login_identity(const char* login) {
  LoginIdentity id;
  memset(&id, 0, sizeof id);
  if (login != nullptr) {
    snprintf(id.login, sizeof id.login, "%s", login);
    char configured[16];
    GetProfileString("Samba", "winbind separator", "", configured, sizeof configured);
    char separator = strcmp(configured, "+") == 0 ? '+' : '\\';
    const char* sep = strchr(id.login, separator);
    if (sep != nullptr) {
      copy_cased(id.domain, sizeof id.domain, id.login, static_cast<size_t>(sep - id.login), true);
      copy_cased(id.user, sizeof id.user, sep + 1, strlen(sep + 1), false);
    } else {
      copy_cased(id.user, sizeof id.user, id.login, strlen(id.login), false);
    }
  }
  g_login = id;
}

const LoginIdentity& login_identity() { return g_login; }

void expand_share_path_macros(char* path, size_t size, const char* user) {
  if (path == nullptr || size == 0) return;
  if (char* at = strstr(path, "%D")) {
    std::string tail(at + 2);
    // Without a domain the separator that followed it goes too.
    if (g_login.domain[0] == '\0' && !tail.empty()) tail.erase(0, 1);
    replace_macro(path, size, at, g_login.domain, tail);
  }
  if (char* at = strstr(path, "%U")) {
    replace_macro(path, size, at, g_login.user, std::string(at + 2));
  }
  if (char* at = strstr(path, "%H")) {
    const char* who = (user != nullptr && user[0] != '\0' && strcasecmp(user, g_login.login) != 0)
                          ? user
                          : g_login.login;
    char home[4096];
    if (user_home_dir(who, home, sizeof home) == 0) {
      size_t offset = static_cast<size_t>(at - path);
      snprintf(at, size - offset, "%s", home);
    }
  }
}
