// SPDX-License-Identifier: Apache-2.0
//
// Diagnostics for the misuse of handles: a programming error, never a consequence of input data.
// The handle templates raise them; the operation's own logic never does.

#pragma once

#include <atomic>
#include <stdexcept>
#include <string>

#include "datamodel/memcore/Export.hpp"

namespace MemCore {

/// Hook for a debugger, called on internal inconsistencies. Does nothing.
FIBER_API void breakpoint();

/// Receives the text of every handle misuse before it is raised.
class FIBER_API SpeakPtr {
 public:
  virtual ~SpeakPtr() = default;
  virtual void speak(const std::string& text) = 0;

  /// The process's speaker, none by default. The caller keeps the object alive.
  static std::atomic<SpeakPtr*> theSpeaker;
};

/// Raised when an empty handle is followed.
class FIBER_API InconsistentDynPtr : public std::logic_error {
 public:
  using std::logic_error::logic_error;
  [[noreturn]] static void raise();
};

/// Raised when an object asks for a handle on itself before any handle holds it.
class FIBER_API SelfConstruction : public std::logic_error {
 public:
  using std::logic_error::logic_error;
  [[noreturn]] static void raise();
};

}  // namespace MemCore
