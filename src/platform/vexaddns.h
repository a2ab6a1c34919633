// The vendor relay DDNS functions: optional platform symbols, looked up at run
// time with dlsym(RTLD_NEXT, ...), so the program has no link-time need of
// them. Tests provide them through an LD_PRELOAD library.
#ifndef SLT_PLATFORM_VEXADDNS_H_
#define SLT_PLATFORM_VEXADDNS_H_

// Fills name and domain when Get_VexaDDNS_DNAME exists; otherwise leaves
// them untouched.
void vexaddns_get_dname(char* name, int name_size, char* domain, int domain_size);
// Is_VexaDDNS_Enabled(), or 0 when the symbol is absent.
int vexaddns_enabled();

#endif  // SLT_PLATFORM_VEXADDNS_H_
