// SPDX-License-Identifier: Apache-2.0
//
// TileIndex: one tile as a feature of a GeoJSON tile index, for maps and geographic information
// systems: its outline and what a person wants to know of it.
// Source: RFC 7946.

#pragma once

#include <optional>
#include <string>

#include "formats/catalog/CatalogDescription.hpp"
#include "formats/catalog/FootprintProjector.hpp"

namespace Formats {

/// The feature of a tile as JSON on one line. Properties: file, points; with points, xmin to zmax
/// in the coordinates of the cloud; where known, i, j and k. Without a footprint "geometry" is
/// null.
std::string tileFeature(const CatalogTile& tile, const std::optional<Footprint>& footprint);

}  // namespace Formats
