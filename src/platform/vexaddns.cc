#include "platform/vexaddns.h"

#ifndef _GNU_SOURCE
#define _GNU_SOURCE
#endif
#include <dlfcn.h>

void vexaddns_get_dname(char* name, int name_size, char* domain, int domain_size) {
  using Fn = void (*)(char*, int, char*, int);
  void* sym = dlsym(RTLD_NEXT, "Get_VexaDDNS_DNAME");
  if (sym == nullptr) return;
  reinterpret_cast<Fn>(sym)(name, name_size, domain, domain_size);
}

int vexaddns_enabled() {
  using Fn = int (*)();
  void* sym = dlsym(RTLD_NEXT, "Is_VexaDDNS_Enabled");
  if (sym == nullptr) return 0;
  return reinterpret_cast<Fn>(sym)();
}
