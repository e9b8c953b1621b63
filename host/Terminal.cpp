// SPDX-License-Identifier: Apache-2.0

#include "host/Terminal.hpp"

#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdlib>
#include <string_view>

namespace Host {

namespace {

/// A variable of the environment; empty when it is not set.
std::string_view variable(const char* name) {
  const char* value = std::getenv(name);
  return value == nullptr ? std::string_view() : std::string_view(value);
}

}  // namespace

Terminal inspectTerminal() {
  Terminal terminal;
  terminal.isTerminal = ::isatty(STDERR_FILENO) == 1 && variable("TERM") != "dumb";
  terminal.hasColour = terminal.isTerminal && variable("NO_COLOR").empty();
  winsize window{};
  if (::ioctl(STDERR_FILENO, TIOCGWINSZ, &window) == 0 && window.ws_col > 0) {
    terminal.columns = window.ws_col;
  }
  return terminal;
}

}  // namespace Host
