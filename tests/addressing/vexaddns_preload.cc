// Stand-in for the platform's optional relay DDNS functions, preloaded into the programs under
// test; the answers come from SLT_TEST_RELAY_NAME, SLT_TEST_RELAY_DOMAIN, SLT_TEST_RELAY_ENABLED.
#include <cstdio>
#include <cstdlib>

extern "C" void Get_VexaDDNS_DNAME(char* name, int name_size, char* domain, int domain_size) {
  const char *n = getenv("SLT_TEST_RELAY_NAME"), *d = getenv("SLT_TEST_RELAY_DOMAIN");
  if (n != nullptr && name_size > 0) snprintf(name, static_cast<size_t>(name_size), "%s", n);
  if (d != nullptr && domain_size > 0) snprintf(domain, static_cast<size_t>(domain_size), "%s", d);
}
extern "C" int Is_VexaDDNS_Enabled() {
  const char* e = getenv("SLT_TEST_RELAY_ENABLED");
  return e != nullptr ? atoi(e) : 0;
}
