// SPDX-License-Identifier: Apache-2.0
//
// Read failures: a fragment that exists but cannot be read looks like one without data. Nothing may
// be written that silently lacks its points, so whoever writes asks here first.

#pragma once

#include <string>

#include "planning/FragmentMapping.hpp"

namespace LidarLib {

/// Why a creator of the field could not make its data; empty when none failed so far.
std::string readFailure(const Fiber::Field& field);

/// The same for some fragments, named as in another field of the same representation.
std::string readFailure(const Fiber::Field& field, const FragmentSet& fragments);

}  // namespace LidarLib
