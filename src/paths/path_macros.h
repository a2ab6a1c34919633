// The login identity of the web user and the macros of share paths.
//
// A share's configured path may name the user it belongs to: "%D" the login
// domain, "%U" the login user, "%H" a home folder. The identity is process
// wide and empty until set_login_identity runs (the command-line tool never
// runs it, so its macros expand to empty texts).
#ifndef SLT_PATHS_PATH_MACROS_H_
#define SLT_PATHS_PATH_MACROS_H_

#include <cstddef>

struct LoginIdentity {
  char login[255];   // the login name as given
  char domain[255];  // text before the separator, upper-cased
  char user[255];    // text after the separator (or the whole name), lower-cased
};

// Splits `login` at the winbind separator ("+" when the "winbind separator" of
// section "Samba" of the system configuration is exactly "+", else "\").
// A null login empties the identity.
void set_login_identity(const char* login);
const LoginIdentity& login_identity();

// Expands the first "%D", then "%U", then "%H" of `path` in place, bounded by
// size. "%H" is the home folder of `user` when it is given and differs from
// the login name (ignoring case), else of the login name; the text after it is
// dropped. An unknown user leaves "%H" and what follows as they are.
void expand_share_path_macros(char* path, size_t size, const char* user);

#endif  // SLT_PATHS_PATH_MACROS_H_
