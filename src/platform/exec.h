// Running the appliance's programs: an argument vector, never a shell.
//
// The program path is an appliance path (rooted like any other file); the
// arguments go to the program unchanged and the child inherits the
// environment, SHARELINK_ROOT included. Standard error is left alone.
#ifndef SLT_PLATFORM_EXEC_H_
#define SLT_PLATFORM_EXEC_H_

#include "platform/io_buffer.h"

// Runs `path` with argv (argv[0] first, null-terminated), waits for it and
// appends its standard output to `out` when out is given (else the output is
// discarded). Returns the child's exit code (0 = success), 128 + the signal
// number when a signal ended it, or -1 when it could not be started.
int _hs_secure_execv(const char* path, const char* const argv[], HsIo* out);

// Runs `path` with argv, its standard input read from the appliance file
// `stdin_path` and every descriptor from 3 up closed, and waits for it.
// Returns the raw wait status (0 when the program exited 0), 256 (exit
// status 1) when the program or the input file could not be opened in the
// child, or -1 when no child could be started.
int spawn_with_stdin_file(const char* path, const char* const argv[], const char* stdin_path);

#endif  // SLT_PLATFORM_EXEC_H_
