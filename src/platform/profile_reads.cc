#include "platform/profile_reads.h"

#include <cstdio>
#include <cstdlib>
#include <map>
#include <string>
#include <tuple>

namespace {

struct Counts {
  std::map<std::tuple<std::string, std::string, std::string>, long> lookups;
  std::map<std::string, long> checks;
  std::map<std::string, long> parses;
};

// Decided once: the report is a property of the whole run.
bool enabled() {
  static const bool on = [] {
    const char* v = getenv("SHARELINK_DEBUG_PROFILE_READS");
    return v != nullptr && v[0] != '\0';
  }();
  return on;
}

void report();

// Never destroyed, so that the report at exit still finds it.
Counts& counts() {
  static Counts* c = [] {
    atexit(report);
    return new Counts();
  }();
  return *c;
}

void report() {
  const Counts& c = counts();
  for (const auto& l : c.lookups) {
    fprintf(stderr, "profile-read\t%s\t%s\t%s\t%ld\n", std::get<0>(l.first).c_str(),
            std::get<1>(l.first).c_str(), std::get<2>(l.first).c_str(), l.second);
  }
  for (const auto& k : c.checks) fprintf(stderr, "profile-check\t%s\t%ld\n", k.first.c_str(), k.second);
  for (const auto& p : c.parses) fprintf(stderr, "profile-parse\t%s\t%ld\n", p.first.c_str(), p.second);
}

const char* text(const char* s) { return s != nullptr ? s : ""; }

}  // namespace

void profile_reads_note_lookup(const char* file, const char* section, const char* key) {
  if (!enabled()) return;
  ++counts().lookups[std::make_tuple(text(file), text(section), text(key))];
}

void profile_reads_note_check(const char* file) {
  if (!enabled()) return;
  ++counts().checks[text(file)];
}

void profile_reads_note_parse(const char* file) {
  if (!enabled()) return;
  ++counts().parses[text(file)];
}
