// Captures what code under test prints on standard output, by pointing
// descriptor 1 at a file in the test's appliance root for one call.
#ifndef SLT_TESTS_WEBLIB_STDOUT_CAPTURE_H_
#define SLT_TESTS_WEBLIB_STDOUT_CAPTURE_H_

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <functional>
#include <stdexcept>
#include <string>

#include "support/appliance.h"

inline std::string capture_stdout(const ApplianceRoot& root, const std::function<void()>& fn) {
  fflush(stdout);
  int saved = dup(1);
  int fd = open(root.path("/tmp/captured-stdout").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
  if (saved < 0 || fd < 0 || dup2(fd, 1) < 0) throw std::runtime_error("cannot redirect stdout");
  close(fd);
  clearerr(stdout);
  fn();
  fflush(stdout);
  dup2(saved, 1);
  close(saved);
  clearerr(stdout);
  return root.read("/tmp/captured-stdout");
}

#endif  // SLT_TESTS_WEBLIB_STDOUT_CAPTURE_H_
