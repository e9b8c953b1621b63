// SPDX-License-Identifier: Apache-2.0

#include "datamodel/memcore/Console.hpp"

#include <cstdio>
#include <mutex>
#include <utility>

#include "datamodel/memcore/HandleDiagnostics.hpp"
#include "datamodel/memcore/Text.hpp"

namespace MemCore {

namespace {

// The process's console: one destination, one lock.
struct Destination {
  std::mutex mutex;
  Console::Sink sink;
};

Destination& destination() {
  static Destination theDestination;
  return theDestination;
}

}  // namespace

Console::~Console() {
  Destination& target = destination();
  const std::lock_guard lock(target.mutex);
  try {
    if (target.sink) {
      target.sink(message_);
    } else {
      std::fputs((message_ + '\n').c_str(), stderr);
    }
  } catch (...) {
    breakpoint();  // a message that cannot be shown must not end the process
  }
}

Console& Console::operator<<(const char* text) {
  if (text != nullptr) message_ += text;
  return *this;
}

Console& Console::operator<<(const std::string& text) {
  message_ += text;
  return *this;
}

Console& Console::operator<<(double value) { return *this << formatFixed(value); }

Console::Sink Console::setSink(Sink sink) {
  Destination& target = destination();
  const std::lock_guard lock(target.mutex);
  return std::exchange(target.sink, std::move(sink));
}

}  // namespace MemCore
