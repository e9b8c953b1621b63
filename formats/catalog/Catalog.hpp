// SPDX-License-Identifier: Apache-2.0
//
// Catalog: two files beside a set of tile files that make one cloud of them for other programs:
//   NAME.vpc      a virtual point cloud, opened as if it were one file (see StacItem.hpp)
//   NAME.geojson  a tile index: outlines on a map (see TileIndex.hpp)
// They read no points and are written tile by tile. Outlines are WGS 84 longitudes and latitudes.
//
// Known limits: heights are taken as they are, in the cloud's unit; a tile across the meridian of
// 180 degrees has no outline.

#pragma once

#include <string>
#include <vector>

#include "datamodel/memcore/Outcome.hpp"
#include "formats/catalog/CatalogDescription.hpp"

namespace Formats {

/// Writes both files into a folder that exists, replacing older ones, and returns one line for each
/// thing that is not as one would expect it: an unknown coordinate system (no outlines then, and
/// null geometries), tiles without an outline, names that JSON cannot say, an unknown date. Errors:
/// a name with a folder in it, tiles whose names are not relative, a folder that cannot be written;
/// neither file is changed then, unless the second one cannot be put in place at the very end.
MemCore::Outcome<std::vector<std::string>> writeCatalog(const std::string& folder,
                                                        const std::string& name,
                                                        const CatalogDescription& description);

}  // namespace Formats
