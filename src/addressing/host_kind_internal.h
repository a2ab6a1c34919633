// Host classification against a given table, without running discovery; the
// public calls of host_kind.h fill the process-wide table first.
#ifndef SLT_ADDRESSING_HOST_KIND_INTERNAL_H_
#define SLT_ADDRESSING_HOST_KIND_INTERNAL_H_

#include <cstddef>

#include "addressing/host_address.h"

int classify_host_in(const HostAddressTable& table, const char* text);
int resolve_link_host_in(const HostAddressTable& table, char* out, const char* text, size_t size);

// The N of a stored ":N..." text when it is a kind 1..21, else -1. Needs no
// table.
int stored_kind_number(const char* text);

#endif  // SLT_ADDRESSING_HOST_KIND_INTERNAL_H_
