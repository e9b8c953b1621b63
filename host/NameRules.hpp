// SPDX-License-Identifier: Apache-2.0
//
// NameRules: which grid names the program accepts. A grid's name becomes part of the names of its
// tile files, so it must not lead elsewhere or hide anything.

#pragma once

#include <string>

#include "datamodel/memcore/Outcome.hpp"

namespace Host {

/// Errors: an empty name, more than 100 bytes, "/", "\", control characters, a leading dot.
MemCore::Outcome<void> checkGridName(const std::string& name);

/// The same for a grid to be written. Errors: also the name "myGrid", which the operation takes for
/// none at all.
MemCore::Outcome<void> checkOutputGridName(const std::string& name);

}  // namespace Host
