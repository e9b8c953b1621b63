// SPDX-License-Identifier: Apache-2.0
//
// Records that name coordinate systems, for the tests of the catalog.

#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "formats/las/VariableRecord.hpp"

namespace Formats {

/// A GeoTIFF key: number, where its value stands (0 = here), count, value.
using GeoKey = std::array<std::uint16_t, 4>;

VariableRecord wktRecord(const std::string& text);
VariableRecord geoKeyRecord(const std::vector<GeoKey>& keys);

/// ETRS89 / UTM zone 32N as files carry it: the first form of WKT.
extern const char* const kUtm32Wkt;

}  // namespace Formats
