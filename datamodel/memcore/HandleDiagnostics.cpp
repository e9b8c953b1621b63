// SPDX-License-Identifier: Apache-2.0

#include "datamodel/memcore/HandleDiagnostics.hpp"

namespace MemCore {

std::atomic<SpeakPtr*> SpeakPtr::theSpeaker{nullptr};

void breakpoint() {}

namespace {

void speak(const std::string& text) {
  breakpoint();
  if (SpeakPtr* speaker = SpeakPtr::theSpeaker.load()) speaker->speak(text);
}

}  // namespace

void InconsistentDynPtr::raise() {
  const std::string text = "handle: an empty handle was followed";
  speak(text);
  throw InconsistentDynPtr(text);
}

void SelfConstruction::raise() {
  const std::string text = "handle: an object asked for itself before any handle holds it";
  speak(text);
  throw SelfConstruction(text);
}

}  // namespace MemCore
