// SPDX-License-Identifier: Apache-2.0
//
// SyntheticObjects: what stands on the terrain of a synthetic survey: buildings with flat or gabled
// roofs, one per lot of the street grid, and trees and shrubs, one per cell of a 9 m lattice. Every
// object lies inside its own cell, so that a beam asks only the few cells below it. Objects are
// functions of seed and cell; ObjectLookup remembers those it was asked for last.
// Units: metres; buildings in the axes of the street grid (u, v), trees in x and y.

#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <optional>

#include "host/synth/SyntheticBeam.hpp"
#include "host/synth/SyntheticTerrain.hpp"

namespace Synth {

/// No object is higher above the ground at its foot.
inline constexpr double kTallestObject = 22.0;

/// Two lots lie between two streets, in either direction.
inline constexpr double kLotLengthU = kStreetSpacingU / 2;
inline constexpr double kLotLengthV = kStreetSpacingV / 2;
inline constexpr double kTreeSpacing = 9.0;

/// A box with a roof whose ridge runs along u; rise 0 is a flat roof.
struct Building {
  StreetPosition centre;
  double halfU = 0;
  double halfV = 0;
  double eavesHeight = 0;  ///< Above the datum.
  double rise = 0;         ///< From the eaves to the ridge.
};

/// An ellipsoid of leaves; the stem is too thin to be hit.
struct Tree {
  Vector3 crownCentre;
  double crownRadius = 0;      ///< Horizontal.
  double crownHalfHeight = 0;  ///< Vertical.
  double groundHeight = 0;     ///< Of the foot, above the datum.
  double leafShare = 0;        ///< Part of the beam that a first hit takes.
};

/// Where a beam meets a surface.
struct SurfaceHit {
  double range = 0;
  double cosine = 1;  ///< Of the angle between the beam and the surface's normal.
};

/// A part of a beam. Range: [begin, end].
struct RangeInterval {
  double begin = 0;
  double end = 0;
};

/// The building of a lot, or none. Lots are numbered by floor(u / kLotLengthU) and so for v.
std::optional<Building> buildingInLot(const Terrain& terrain, std::uint64_t seed, std::int64_t lotU,
                                      std::int64_t lotV);

/// The tree of a cell of the tree lattice, or none. No crown reaches into a building.
std::optional<Tree> treeInCell(const Terrain& terrain, std::uint64_t seed, std::int64_t column,
                               std::int64_t row);

/// First hit of a roof or wall. Requires: the beam in street axes (x = u, y = v).
std::optional<SurfaceHit> hitBuilding(const Building& building, const Beam& streetBeam);

/// The part of the beam inside the crown, or none.
std::optional<RangeInterval> crossCrown(const Tree& tree, const Beam& beam);

/// A direct-mapped memory of objects by cell. It changes the cost of an answer, never the answer.
template <class Object>
class CellMemory {
 public:
  /// The object of a cell; `make()` is asked when the cell is not remembered.
  template <class Make>
  const std::optional<Object>& at(std::int64_t i, std::int64_t j, const Make& make) {
    Slot& slot = slots_[static_cast<std::size_t>((i & 7) | ((j & 127) << 3))];
    if (slot.i != i || slot.j != j) slot = {i, j, make()};
    return slot.object;
  }

 private:
  struct Slot {
    std::int64_t i = std::numeric_limits<std::int64_t>::min();
    std::int64_t j = std::numeric_limits<std::int64_t>::min();
    std::optional<Object> object;
  };
  std::array<Slot, 1024> slots_{};
};

/// The objects of one scene by cell. Threads: one object per thread. It is some 200 KB large: keep
/// it off the stack.
class ObjectLookup {
 public:
  /// Requires: the terrain outlives the lookup.
  ObjectLookup(const Terrain& terrain, std::uint64_t seed) : terrain_(terrain), seed_(seed) {}

  const std::optional<Building>& building(std::int64_t lotU, std::int64_t lotV) {
    return buildings_.at(lotU, lotV, [&] { return buildingInLot(terrain_, seed_, lotU, lotV); });
  }
  const std::optional<Tree>& tree(std::int64_t column, std::int64_t row) {
    return trees_.at(column, row, [&] { return treeInCell(terrain_, seed_, column, row); });
  }

 private:
  const Terrain& terrain_;
  std::uint64_t seed_;
  CellMemory<Building> buildings_;
  CellMemory<Tree> trees_;
};

}  // namespace Synth
