// Edits of single registry lines (modes 2 and 4) and the plain read-through
// of the registry (the dispatcher's mode 3).
//
// Both edits name a link by its share URL (see share_url.h), read their
// inputs from g_run_context and rewrite the registry through a companion
// file that replaces it with one rename; until that rename the registry is
// unchanged. They run only after a successful refresh.
#ifndef SLT_REGISTRY_EDITS_H_
#define SLT_REGISTRY_EDITS_H_

// Mode 2: removes the lines whose field 1 equals the id of one of the
// comma-separated URLs in edit_input; an empty list removes every line. The
// kept lines go to "/etc/config/shareFileEx.ini.del", which is not truncated
// first (lines already in it end up in front), and that file becomes the
// registry. 1 on success. -1 when the registry cannot be read, a line has no
// field 1 or a URL item reached cannot be read (the ".del" file then stays
// with the lines kept so far), or the new file cannot be written or renamed
// (the ".del" file is removed).
int delete_registry_links();

// Mode 4: in the line whose field 1 equals the id of the URL in edit_input,
// rewrites field 4 (https flag, when new_ssl is 1), field 9 (field9_value,
// when not empty), field 2 (the URL's host, unless it is "HOSTNAME") and
// field 7 (new_expire, unless it is 1). A rewrite that yields nothing, such
// as an unparsable host, drops the line. 1 on success; -1 when the temporary
// file cannot be made, the registry cannot be read or a line has no field 1
// (the temporary file then stays), or the new file cannot be written or
// renamed (the temporary file is removed).
int rewrite_registry_link();

// Reads the registry through to its end and changes nothing. 1, or -1 when
// it cannot be opened.
int scan_registry();

#endif  // SLT_REGISTRY_EDITS_H_
