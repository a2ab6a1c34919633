// The INI reader and writer on arbitrary file content: reading never fails
// hard, and a value written with the writer reads back as written.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "fuzz_support.h"
#include "platform/profile.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz_root();
  fuzz_write_file("/etc/config/fuzz.ini", data, size);
  profile_cache_clear();
  char out[64];
  const char* sections[] = {"", "System", "a", "Depot"};
  const char* keys[] = {"Port", "k", "Share_Link_Db", "a b"};
  for (const char* s : sections) {
    for (const char* k : keys) {
      int n = Get_Private_Profile_String(s, k, "dflt", out, sizeof out, "/etc/config/fuzz.ini");
      if (n < 0 || n >= static_cast<int>(sizeof out) || strlen(out) != static_cast<size_t>(n)) abort();
      Get_Private_Profile_Integer(s, k, 3, "/etc/config/fuzz.ini");
      Get_Private_Profile_Boolean(s, k, 3, "/etc/config/fuzz.ini");
    }
  }
  if (Set_Private_Profile_String("Depot", "Share_Link_Db", "/share/x.db", "/etc/config/fuzz.ini") == 0) {
    profile_cache_clear();
    Get_Private_Profile_String("Depot", "Share_Link_Db", "", out, sizeof out, "/etc/config/fuzz.ini");
    // An earlier [Depot] section or key in the input wins the lookup; the
    // writer changed that one, so the value must read back.
    if (strcmp(out, "/share/x.db") != 0) abort();
  }
  return 0;
}
