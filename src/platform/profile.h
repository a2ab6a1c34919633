// The appliance's INI ("profile") files: readers with defaults, and writers
// that change one key and keep every other line byte for byte.
//
// Dialect: "[name]" starts a section (lines before the first header form
// section ""); "key = value" with key and value trimmed of blanks and tabs;
// section and key names match without regard to case, the first match wins;
// ";" and "#" start comment lines. Values are taken as they stand. Paths are
// appliance paths. A file is parsed once and kept until it changes on disk.
#ifndef SLT_PLATFORM_PROFILE_H_
#define SLT_PLATFORM_PROFILE_H_

#include <string>
#include <vector>

// The system configuration file that the *Profile* calls without a file use.
extern const char kSystemConfigPath[];  // "/etc/config/Korvix.conf"

// Copies the value (or `def` when the file, section or key is missing) into
// out, at most size - 1 bytes and a terminator. Returns the length written.
int Get_Private_Profile_String(const char* section, const char* key, const char* def, char* out,
                               int size, const char* file);
// strtol base 10 of the value; `def` when missing or empty.
int Get_Private_Profile_Integer(const char* section, const char* key, int def, const char* file);
// TRUE/YES/ON/1 and FALSE/NO/OFF/0 (any case); anything else gives `def`.
int Get_Private_Profile_Boolean(const char* section, const char* key, int def, const char* file);
// Sets key to value: in place, at the end of its section, or in a new section
// at the end. The file is created when missing and replaced through a
// temporary file in the same folder. 0, or -1 when it could not be written.
int Set_Private_Profile_String(const char* section, const char* key, const char* value,
                               const char* file);

// The same on the system configuration file.
int Get_Profile_String(const char* section, const char* key, const char* def, char* out, int size);
int GetProfileString(const char* section, const char* key, const char* def, char* out, int size);
int Set_Profile_String(const char* section, const char* key, const char* value);

// One key of any INI file, read without the file's lock. 0 when found (out
// holds the value), -1 when not (out is emptied).
int Conf_Get_Field_NoLock(const char* file, const char* section, const char* key, char* out,
                          int size);

// The value of `key` in every section of `file` that has one, in file order
// (a section's first). 0, or -1 when the file cannot be read (out emptied).
int Get_Private_Profile_Values(const char* key, std::vector<std::string>* out, const char* file);

// Forgets every parsed file (tests that rewrite a file within one clock tick).
void profile_cache_clear();

#endif  // SLT_PLATFORM_PROFILE_H_
