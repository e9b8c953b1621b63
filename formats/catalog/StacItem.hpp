// SPDX-License-Identifier: Apache-2.0
//
// StacItem: one tile as an item of a virtual point cloud (.vpc), which is a STAC item collection:
// GeoJSON features with prescribed members, that point cloud programs open as one cloud.
// Source: STAC item specification 1.0.0; STAC extensions pointcloud 1.0.0 and projection 1.1.0.

#pragma once

#include <optional>
#include <string>

#include "formats/catalog/CatalogDescription.hpp"
#include "formats/catalog/FootprintProjector.hpp"

namespace Formats {

/// What all items of a collection share.
struct StacContext {
  std::string wkt2;         ///< Empty: not known.
  std::optional<int> epsg;  ///< Absent: not known.
  std::string datetime;
};

/// Stands for a date that nobody knows: items must have one.
inline constexpr const char* kUnknownDatetime = "1970-01-01T00:00:00Z";

/// The item of a tile as JSON on one line. `id` must be unique in the collection. Heights in "bbox"
/// are those of the cloud. Without a footprint "geometry" is null and there is no "bbox", as the
/// specification has it.
std::string stacItem(const CatalogTile& tile, const std::string& id,
                     const std::optional<Footprint>& footprint,
                     const CatalogDescription& description, const StacContext& context);

}  // namespace Formats
