// SPDX-License-Identifier: Apache-2.0

#include "host/Signals.hpp"

#include <signal.h>

#include <atomic>

namespace Host {

namespace {

// A signal handler reaches nothing but an object of static life, hence this one variable.
std::atomic<bool> stopWanted{false};
static_assert(std::atomic<bool>::is_always_lock_free, "the handler must not take a lock");

void noteStop(int /*signal*/) { stopWanted.store(true, std::memory_order_relaxed); }

}  // namespace

void noteStopSignals() {
  struct sigaction action {};
  action.sa_handler = noteStop;
  // Back to the default after the first: whoever insists gets out at once.
  action.sa_flags = static_cast<int>(SA_RESETHAND) | SA_RESTART;
  sigemptyset(&action.sa_mask);
  ::sigaction(SIGINT, &action, nullptr);
  ::sigaction(SIGTERM, &action, nullptr);
  // A file beyond the user's limit is a failed write like any other.
  ::signal(SIGXFSZ, SIG_IGN);
}

bool stopRequested() { return stopWanted.load(std::memory_order_relaxed); }

}  // namespace Host
