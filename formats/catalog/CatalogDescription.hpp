// SPDX-License-Identifier: Apache-2.0
//
// CatalogDescription: what a catalog is told about the tile files that it lists.

#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "formats/catalog/CoordinateSystem.hpp"
#include "formats/las/PointLayout.hpp"

namespace Formats {

enum class NumberKind { Signed, Unsigned, Floating };

/// One value that every point has.
struct CatalogDimension {
  std::string name;
  NumberKind kind = NumberKind::Unsigned;
  std::uint32_t bytes = 1;

  friend bool operator==(const CatalogDimension&, const CatalogDimension&) = default;
};

/// The values of one dimension in one tile.
struct DimensionStatistics {
  std::string name;
  double minimum = 0;
  double maximum = 0;
};

/// One tile file.
struct CatalogTile {
  std::string file;  ///< Relative to the catalog's folder, folders parted by '/'.
  std::uint64_t pointCount = 0;
  /// Range: closed, in the coordinates of the cloud. Ignored without points.
  std::array<double, 3> minimum{};
  std::array<double, 3> maximum{};
  std::optional<std::array<std::int64_t, 3>> index;  ///< Place in the grid of tiles: i, j, k.
  std::vector<DimensionStatistics> statistics;       ///< Of some dimensions, or of none.
};

/// All tiles of a cloud.
struct CatalogDescription {
  std::vector<CatalogTile> tiles;
  std::vector<CatalogDimension> dimensions;  ///< Those of every tile.
  std::optional<CoordinateSystem> system;    ///< Absent: not known.
  std::optional<std::string> datetime;       ///< RFC 3339, such as "2023-06-14T00:00:00Z".
  bool isDurable = false;                    ///< Flush to the disk before the files get names.
};

/// X, Y and Z as doubles, then the fields of a layout.
std::vector<CatalogDimension> dimensionsOf(const PointLayout& layout);

/// Midnight (UTC) of the day on which a header says that its file was made; absent where it says
/// none, or none that exists.
std::optional<std::string> datetimeOf(const LasHeader& header);

}  // namespace Formats
