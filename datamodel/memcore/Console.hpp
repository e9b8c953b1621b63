// SPDX-License-Identifier: Apache-2.0
//
// Console: one message to the user, made on the stack, filled with operator<< and emitted when it
// is destroyed. Where messages go is the host's choice.

#pragma once

#include <concepts>
#include <functional>
#include <string>

#include "datamodel/memcore/Export.hpp"

namespace MemCore {

/// Threads: each console object belongs to one thread; emission is serialised over all of them.
class FIBER_API Console {
 public:
  using Sink = std::function<void(const std::string& message)>;

  Console() = default;
  ~Console();
  Console(const Console&) = delete;
  Console& operator=(const Console&) = delete;

  Console& operator<<(const char* text);
  Console& operator<<(const std::string& text);
  Console& operator<<(double value);  ///< six decimals, independent of the locale
  template <std::unsigned_integral T>
  Console& operator<<(T value) {
    return *this << std::to_string(value);
  }
  template <std::signed_integral T>
  Console& operator<<(T value) {
    return *this << std::to_string(value);
  }

  /// Sets where the process's messages go and returns the former sink; an empty one means
  /// standard error, one line per message.
  static Sink setSink(Sink sink);

 private:
  std::string message_;
};

/// Sends the console's messages elsewhere for as long as it lives.
class FIBER_API ConsoleRedirection {
 public:
  explicit ConsoleRedirection(Console::Sink sink) : former_(Console::setSink(std::move(sink))) {}
  ~ConsoleRedirection() { Console::setSink(std::move(former_)); }
  ConsoleRedirection(const ConsoleRedirection&) = delete;
  ConsoleRedirection& operator=(const ConsoleRedirection&) = delete;

 private:
  Console::Sink former_;
};

}  // namespace MemCore
