// Holding off the signals that would end this process in the middle of a
// clean-up it owes: the web server ends a CGI with SIGTERM as soon as it
// has taken an answer over, and a client gone away raises SIGPIPE on the
// next write.
#ifndef SLT_PLATFORM_SIGNALS_H_
#define SLT_PLATFORM_SIGNALS_H_

#include <signal.h>

// Blocks SIGTERM, SIGINT, SIGHUP and SIGPIPE for one scope. On leaving it the
// previous mask comes back, and a signal that came meanwhile takes effect
// then, as it would have without the hold.
class HeldSignals {
 public:
  HeldSignals();
  ~HeldSignals();
  HeldSignals(const HeldSignals&) = delete;
  HeldSignals& operator=(const HeldSignals&) = delete;

 private:
  sigset_t old_;
  bool held_ = false;
};

#endif  // SLT_PLATFORM_SIGNALS_H_
