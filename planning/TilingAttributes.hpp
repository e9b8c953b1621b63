// SPDX-License-Identifier: Apache-2.0
//
// Names of the attributes that every output grid carries.

#pragma once

#include <string>

namespace LidarLib {

/// Edge lengths of a tile: one point.
inline const std::string kFragLengthAttribute = "FragLength";
/// Tiles along x, y, z: three unsigned ints.
inline const std::string kFragDimsAttribute = "FragDims";
/// The normalised overlap: one double. Deliberate: spelled without the "d" of the parameter
/// NormalizedOverlap; files are read back by this name.
inline const std::string kOverlapAttribute = "NormalizeOverlap";

}  // namespace LidarLib
