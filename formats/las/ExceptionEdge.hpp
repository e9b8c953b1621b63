// SPDX-License-Identifier: Apache-2.0
//
// ExceptionEdge: where exceptions of the standard library (no memory, above all) become texts. The
// public steps of the readers and writers run inside it, so that their callers meet texts only.

#pragma once

#include <fmt/format.h>

#include <exception>
#include <string>

#include "datamodel/memcore/Outcome.hpp"

namespace Formats {

/// Runs `body`, which returns an Outcome; what it throws becomes "<objectName>: failed, <reason>".
template <class Body>
auto withoutExceptions(const std::string& objectName, Body body) -> decltype(body()) {
  try {
    return body();
  } catch (const std::exception& thrown) {
    return MemCore::Failure{fmt::format("{}: failed, {}", objectName, thrown.what())};
  }
}

}  // namespace Formats
