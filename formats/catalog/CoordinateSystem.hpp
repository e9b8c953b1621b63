// SPDX-License-Identifier: Apache-2.0
//
// CoordinateSystem: the coordinate system that a LAS file names in its records, found without
// looking anything up: the WKT text of one record, or the codes in the GeoTIFF keys of another.
// Source: ASPRS LAS Specification 1.4 - R15, section 3 (records 2112 and 34735); OGC GeoTIFF 1.1,
// section 7.

#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "formats/las/LasHeader.hpp"
#include "formats/las/VariableRecord.hpp"

namespace Formats {

/// A coordinate system by text or by code. Invariant: either `wkt` is not empty or `epsg` is set.
struct CoordinateSystem {
  std::string wkt;                          ///< As the file has it, WKT 1 or 2.
  std::optional<std::uint16_t> epsg;        ///< Of the horizontal system.
  std::optional<std::uint16_t> heightEpsg;  ///< Of the heights, where the keys name them.

  friend bool operator==(const CoordinateSystem&, const CoordinateSystem&) = default;
};

/// What the records (VLRs, EVLRs or both) say: WKT first, then the GeoTIFF keys. Absent where they
/// say nothing, nothing readable, or describe a system by its parameters instead of by its code.
std::optional<CoordinateSystem> coordinateSystemOf(std::span<const VariableRecord> records);

}  // namespace Formats
