#include "platform/profile.h"

#include <fcntl.h>
#include <strings.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "platform/fs.h"
#include "platform/os.h"
#include "platform/profile_reads.h"
#include "platform/root.h"
#include "platform/run_scope.h"

const char kSystemConfigPath[] = "/etc/config/Korvix.conf";

namespace {

struct Entry {
  std::string key;
  std::string value;
};

struct Section {
  std::string name;
  std::vector<Entry> entries;
};

struct ParsedFile {
  dev_t dev = 0;
  ino_t ino = 0;
  off_t size = 0;
  struct timespec mtime = {0, 0};
  std::vector<Section> sections;
};

std::map<std::string, ParsedFile>& cache() {
  static std::map<std::string, ParsedFile> files;
  return files;
}

// Files found missing during a run scope.
std::set<std::string>& missing() {
  static std::set<std::string> files;
  return files;
}

std::string trim_blanks(const std::string& s) {
  size_t b = 0, e = s.size();
  while (b < e && (s[b] == ' ' || s[b] == '\t')) ++b;
  while (e > b && (s[e - 1] == ' ' || s[e - 1] == '\t' || s[e - 1] == '\r' || s[e - 1] == '\n')) --e;
  return s.substr(b, e - b);
}

bool read_all(const char* path, std::string* out) {
  FILE* f = fs_fopen(path, "rb");
  if (f == nullptr) return false;
  char buf[8192];
  size_t n;
  while ((n = fread(buf, 1, sizeof buf, f)) > 0) out->append(buf, n);
  fclose(f);
  return true;
}

std::vector<std::string> split_lines(const std::string& text) {
  std::vector<std::string> lines;
  size_t start = 0;
  while (start < text.size()) {
    size_t nl = text.find('\n', start);
    if (nl == std::string::npos) {
      lines.push_back(text.substr(start));
      break;
    }
    lines.push_back(text.substr(start, nl - start + 1));
    start = nl + 1;
  }
  return lines;
}

// Section name of a header line, or false when the line is no header.
bool header_name(const std::string& line, std::string* name) {
  std::string t = trim_blanks(line);
  if (t.size() < 2 || t[0] != '[') return false;
  size_t close = t.find(']');
  if (close == std::string::npos) return false;
  *name = trim_blanks(t.substr(1, close - 1));
  return true;
}

bool key_value(const std::string& line, std::string* key, std::string* value) {
  std::string t = trim_blanks(line);
  if (t.empty() || t[0] == ';' || t[0] == '#') return false;
  size_t eq = t.find('=');
  if (eq == std::string::npos) return false;
  *key = trim_blanks(t.substr(0, eq));
  *value = trim_blanks(t.substr(eq + 1));
  return true;
}

std::vector<Section> parse(const std::string& text) {
  std::vector<Section> sections(1);
  for (const std::string& line : split_lines(text)) {
    std::string name, key, value;
    if (header_name(line, &name)) {
      sections.push_back(Section{name, {}});
    } else if (key_value(line, &key, &value)) {
      sections.back().entries.push_back(Entry{key, value});
    }
  }
  return sections;
}

// The parsed file, or null when it cannot be read.
const ParsedFile* load(const char* file) {
  if (file == nullptr) return nullptr;
  std::string real = rooted_path(file);
  // Within a run scope a file is looked at once (see run_scope.h).
  if (run_scope_active()) {
    if (missing().count(real) != 0) return nullptr;
    auto known = cache().find(real);
    if (known != cache().end()) return &known->second;
  }
  struct stat st;
  profile_reads_note_check(file);
  if (fs_stat(file, &st) != 0 || !S_ISREG(st.st_mode)) {
    cache().erase(real);
    if (run_scope_active()) missing().insert(real);
    return nullptr;
  }
  auto it = cache().find(real);
  if (it != cache().end() && it->second.dev == st.st_dev && it->second.ino == st.st_ino &&
      it->second.size == st.st_size && it->second.mtime.tv_sec == st.st_mtim.tv_sec &&
      it->second.mtime.tv_nsec == st.st_mtim.tv_nsec) {
    return &it->second;
  }
  std::string text;
  if (!read_all(file, &text)) return nullptr;
  profile_reads_note_parse(file);
  ParsedFile parsed;
  parsed.dev = st.st_dev;
  parsed.ino = st.st_ino;
  parsed.size = st.st_size;
  parsed.mtime = st.st_mtim;
  parsed.sections = parse(text);
  ParsedFile& slot = cache()[real];
  slot = std::move(parsed);
  return &slot;
}

// The value of section/key, or null.
const std::string* lookup(const char* file, const char* section, const char* key) {
  if (section == nullptr || key == nullptr) return nullptr;
  profile_reads_note_lookup(file, section, key);
  const ParsedFile* f = load(file);
  if (f == nullptr) return nullptr;
  for (const Section& s : f->sections) {
    if (strcasecmp(s.name.c_str(), section) != 0) continue;
    for (const Entry& e : s.entries) {
      if (strcasecmp(e.key.c_str(), key) == 0) return &e.value;
    }
    return nullptr;
  }
  return nullptr;
}

int copy_out(const char* value, char* out, int size) {
  if (out == nullptr || size <= 0) return 0;
  int w = snprintf(out, static_cast<size_t>(size), "%s", value ? value : "");
  if (w < 0) {
    out[0] = '\0';
    return 0;
  }
  return w >= size ? size - 1 : w;
}

bool write_replacing(const char* file, const std::string& content) {
  std::string dir(file);
  size_t slash = dir.rfind('/');
  std::string tmp = (slash == std::string::npos ? std::string() : dir.substr(0, slash + 1)) + "tmpXXXXXX";
  std::vector<char> name(tmp.begin(), tmp.end());
  name.push_back('\0');
  if (vexa_mktmpname(name.data()) != 0) return false;
  FILE* f = fs_fopen(name.data(), "wb");
  if (f == nullptr) {
    remove_file(name.data());
    return false;
  }
  bool ok = os.fwrite(content.data(), 1, content.size(), f) == content.size();
  ok = fs_sync_stream(f) == 0 && ok;
  ok = os.fclose(f) == 0 && ok;
  if (ok) {
    // Keep the mode of the file being replaced.
    struct stat st;
    if (fs_stat(file, &st) == 0) fs_chmod(name.data(), st.st_mode & 07777);
    ok = fs_rename(name.data(), file) == 0;
  }
  if (!ok) {
    remove_file(name.data());
    return false;
  }
  fs_sync_parent_dir(file);
  return true;
}

}  // namespace

int Get_Private_Profile_String(const char* section, const char* key, const char* def, char* out,
                               int size, const char* file) {
  const std::string* v = lookup(file, section, key);
  return copy_out(v ? v->c_str() : def, out, size);
}

int Get_Private_Profile_Integer(const char* section, const char* key, int def, const char* file) {
  const std::string* v = lookup(file, section, key);
  if (v == nullptr || v->empty()) return def;
  return static_cast<int>(strtol(v->c_str(), nullptr, 10));
}

int Get_Private_Profile_Boolean(const char* section, const char* key, int def, const char* file) {
  const std::string* v = lookup(file, section, key);
  if (v == nullptr) return def;
  static const char* const kTrue[] = {"TRUE", "YES", "ON", "1"};
  static const char* const kFalse[] = {"FALSE", "NO", "OFF", "0"};
  for (const char* t : kTrue)
    if (strcasecmp(v->c_str(), t) == 0) return 1;
  for (const char* f : kFalse)
    if (strcasecmp(v->c_str(), f) == 0) return 0;
  return def;
}

int Set_Private_Profile_String(const char* section, const char* key, const char* value,
                               const char* file) {
  if (section == nullptr || key == nullptr || file == nullptr) return -1;
  if (value == nullptr) value = "";
  std::string text;
  read_all(file, &text);  // a missing file starts empty
  std::vector<std::string> lines = split_lines(text);
  if (!lines.empty() && lines.back().back() != '\n') lines.back() += '\n';

  std::string current;  // section of the line being looked at
  bool in_target = strcasecmp(section, "") == 0;
  bool seen_target = in_target;
  long last_in_section = -1;  // index of the last non-blank line of the target section
  long insert_at = -1;
  bool done = false;
  for (size_t i = 0; i < lines.size() && !done; ++i) {
    std::string name, k, v;
    if (header_name(lines[i], &name)) {
      if (in_target) {
        insert_at = last_in_section + 1;
        break;
      }
      in_target = !seen_target && strcasecmp(name.c_str(), section) == 0;
      if (in_target) {
        seen_target = true;
        last_in_section = static_cast<long>(i);
      }
      continue;
    }
    if (!in_target) continue;
    if (!trim_blanks(lines[i]).empty()) last_in_section = static_cast<long>(i);
    if (key_value(lines[i], &k, &v) && strcasecmp(k.c_str(), key) == 0) {
      lines[i] = k + " = " + value + "\n";
      done = true;
    }
  }
  if (!done) {
    std::string line = std::string(key) + " = " + value + "\n";
    if (seen_target) {
      if (in_target && insert_at < 0) insert_at = last_in_section + 1;
      lines.insert(lines.begin() + insert_at, line);
    } else {
      lines.push_back(std::string("[") + section + "]\n");
      lines.push_back(line);
    }
  }
  std::string content;
  for (const std::string& l : lines) content += l;
  if (!write_replacing(file, content)) return -1;
  cache().erase(rooted_path(file));
  missing().erase(rooted_path(file));
  return 0;
}

int Get_Profile_String(const char* section, const char* key, const char* def, char* out, int size) {
  return Get_Private_Profile_String(section, key, def, out, size, kSystemConfigPath);
}

int GetProfileString(const char* section, const char* key, const char* def, char* out, int size) {
  return Get_Private_Profile_String(section, key, def, out, size, kSystemConfigPath);
}

int Set_Profile_String(const char* section, const char* key, const char* value) {
  return Set_Private_Profile_String(section, key, value, kSystemConfigPath);
}

int Conf_Get_Field_NoLock(const char* file, const char* section, const char* key, char* out,
                          int size) {
  const std::string* v = lookup(file, section, key);
  copy_out(v ? v->c_str() : "", out, size);
  return v ? 0 : -1;
}

int Get_Private_Profile_Values(const char* key, std::vector<std::string>* out, const char* file) {
  out->clear();
  const ParsedFile* f = key != nullptr ? load(file) : nullptr;
  if (f == nullptr) return -1;
  for (const Section& s : f->sections) {
    for (const Entry& e : s.entries) {
      if (strcasecmp(e.key.c_str(), key) != 0) continue;
      out->push_back(e.value);
      break;
    }
  }
  return 0;
}

void profile_cache_clear() {
  cache().clear();
  missing().clear();
}
