// SPDX-License-Identifier: Apache-2.0
//
// The index of a tile in the name of its file: "F", i, "x", j, "x", k, "T" and any text.

#pragma once

#include <optional>
#include <string>

#include "datamodel/fiber/DynamicSize.hpp"

namespace LidarLib {

/// The index in the base name of a file; absent where one of the three letters is missing. The
/// first character may be any. Numbers are read as std::stoi reads them (blanks before them and a
/// sign are accepted, what follows the digits is not looked at); throws as it does. Negative
/// numbers wrap.
std::optional<Fiber::MultiIndex<3>> parseFragmentIndex(const std::string& baseName);

}  // namespace LidarLib
