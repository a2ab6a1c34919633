// Appending text to a file, with each failure reported to the system log.
//
// sf_appendData is the appender shared by the registry, the share mail and
// its template code: one open, write, error test and close per call. The
// registry rewrites, which append many lines to one file, use
// append_to_stream on a stream they keep open; it reports a failed line with
// the very message sf_appendData would send.
#ifndef SLT_REGISTRY_APPEND_H_
#define SLT_REGISTRY_APPEND_H_

#include <cstddef>
#include <cstdio>

// Appends `data` (its strlen bytes) to the appliance file `path`, opened in
// mode "ab". Results: 1 success; -1 the file could not be opened; -ENOENT (-2)
// fewer bytes written; -ESRCH (-3) the stream's error flag is set; -EINTR
// (-4) the close failed. Each failure sends
// "[sf_appendData][<step>]data=<data>(<errno>:<text>)" to the system log
// under the identity "VEXA" (step: fopen, fwrite, ferror, fclose).
int sf_appendData(const char* path, const char* data);

// Writes len bytes of `data` to the open stream f, then tests its error flag.
// 1 success; -ENOENT on a short write, -ESRCH when the error flag is set,
// each reported as sf_appendData reports it. The stream stays open.
int append_to_stream(FILE* f, const char* data, size_t len);

#endif  // SLT_REGISTRY_APPEND_H_
