// A count of the profile (INI) reads of one run, for checks that a run reads
// its configuration no more often than it must. Off unless the environment
// variable SHARELINK_DEBUG_PROFILE_READS is set and not empty; then, at exit,
// standard error gets one line per key asked for, per file looked at on the
// disk (stat) and per file parsed:
//   "profile-read\t<file>\t<section>\t<key>\t<count>\n"
//   "profile-check\t<file>\t<count>\n"
//   "profile-parse\t<file>\t<count>\n"
// with the appliance paths and names as the callers gave them.
#ifndef SLT_PLATFORM_PROFILE_READS_H_
#define SLT_PLATFORM_PROFILE_READS_H_

// One lookup of section/key in file (cached or not).
void profile_reads_note_lookup(const char* file, const char* section, const char* key);
// One look at file on the disk (whether it changed or exists).
void profile_reads_note_check(const char* file);
// One parse of file from the disk.
void profile_reads_note_parse(const char* file);

#endif  // SLT_PLATFORM_PROFILE_READS_H_
