// SPDX-License-Identifier: Apache-2.0
//
// FootprintProjector: where boxes of a cloud lie on the globe: longitudes and latitudes (WGS 84, in
// degrees) of their outline. The only code that uses PROJ; it never fetches anything from a
// network.

#pragma once

#include <array>
#include <memory>
#include <optional>
#include <string>

#include "datamodel/memcore/Outcome.hpp"
#include "formats/catalog/CoordinateSystem.hpp"

namespace Formats {

/// Units: degrees, longitude first.
struct Footprint {
  /// The box's corners, counterclockwise seen from above.
  std::array<std::array<double, 2>, 4> corners{};
  /// Of the whole outline, whose edges may bulge out between the corners.
  double west = 0;
  double south = 0;
  double east = 0;
  double north = 0;
};

/// Projects boxes of one coordinate system. Movable. Threads: one at a time per object.
class FootprintProjector {
 public:
  /// Errors: a system that PROJ does not know, that has no place on the globe, or whose axes are
  /// not horizontal; a PROJ without its database.
  static MemCore::Outcome<FootprintProjector> make(const CoordinateSystem& system);

  FootprintProjector(FootprintProjector&&) noexcept;
  FootprintProjector& operator=(FootprintProjector&&) noexcept;
  ~FootprintProjector();

  /// The outline of a box. Absent where it cannot be transformed, or where it crosses the meridian
  /// of 180 degrees. Known defect: such boxes have no footprint instead of one in two parts.
  std::optional<Footprint> project(const std::array<double, 3>& minimum,
                                   const std::array<double, 3>& maximum) const;

  /// The system, heights included, as WKT 2; empty where it cannot be said so.
  const std::string& wkt2() const { return wkt2_; }
  /// Its code in the EPSG register, heights included; absent where it has none.
  std::optional<int> epsg() const { return epsg_; }

 private:
  struct Machine;
  explicit FootprintProjector(std::unique_ptr<Machine> machine);

  std::unique_ptr<Machine> machine_;
  std::string wkt2_;
  std::optional<int> epsg_;
};

}  // namespace Formats
