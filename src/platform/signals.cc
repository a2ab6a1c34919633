#include "platform/signals.h"

#include <pthread.h>

#include <initializer_list>

HeldSignals::HeldSignals() {
  sigset_t set;
  sigemptyset(&set);
  for (int s : {SIGTERM, SIGINT, SIGHUP, SIGPIPE}) sigaddset(&set, s);
  held_ = pthread_sigmask(SIG_BLOCK, &set, &old_) == 0;
}

HeldSignals::~HeldSignals() {
  if (held_) pthread_sigmask(SIG_SETMASK, &old_, nullptr);
}
