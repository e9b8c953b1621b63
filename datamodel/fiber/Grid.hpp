// SPDX-License-Identifier: Apache-2.0
//
// Grid: one named point cloud of a time slice, with its charts, skeletons and attributes, and the
// views that arrange its vertices.

#pragma once

#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "datamodel/fiber/Representation.hpp"

namespace Fiber {

/// Threads: lookups and makeCartesianChart may run at once; everything else that changes the grid
/// is for one thread.
class FIBER_API Grid : public std::enable_shared_from_this<Grid> {
 public:
  explicit Grid(std::string name) : name_(std::move(name)) {}

  const std::string& name() const { return name_; }
  MemCore::StrongPtr<Grid> handle() { return MemCore::selfHandle(*this); }

  /// The chart of that name, made when the grid has none. The number is reserved and must be 0.
  MemCore::StrongPtr<ChartID> makeCartesianChart(const std::string& name, unsigned short reserved);
  /// The chart of that name, "" meaning the standard one; empty when the grid has none.
  MemCore::StrongPtr<ChartID> findCartesianChart(const std::string& name) const;
  /// The base space of a chart; empty when the grid has no such chart.
  MemCore::StrongPtr<BaseSpace> baseSpace(const std::string& chart) const;

  /// Finds or makes the vertex representation in a chart ("" = the standard one) of a space of
  /// that dimension (3 is the only one known: others yield an empty handle).
  MemCore::StrongPtr<Representation> makeCartesianRepresentation(int dimension,
                                                                 const std::string& chart,
                                                                 unsigned short reserved);
  /// An existing vertex representation ("" = the standard chart); empty when there is none.
  MemCore::StrongPtr<Representation> getCartesianRepresentation(const std::string& chart) const;
  MemCore::StrongPtr<Representation> getCartesianRepresentation(const Skeleton& skeleton,
                                                                const std::string& chart) const;
  /// The "Positions" field of the vertices in the standard chart; empty when absent.
  MemCore::StrongPtr<Field> CartesianPositions() const;
  /// A named field of a skeleton in a chart; empty when any of the three is absent.
  MemCore::StrongPtr<Field> getField(const MemCore::StrongPtr<ChartID>& chart,
                                     const std::string& name,
                                     const MemCore::StrongPtr<Skeleton>& skeleton) const;

  SkeletonMap& skeletons() { return skeletons_; }
  const SkeletonMap& skeletons() const { return skeletons_; }

  /// The grid's property table, and the number kept beside it.
  MemCore::Attributes& attributes() { return attributes_; }
  const MemCore::Attributes& attributes() const { return attributes_; }
  std::uint64_t propertyBits = 0;

 private:
  std::string name_;
  mutable std::mutex chartMutex_;
  std::map<std::string, MemCore::StrongPtr<BaseSpace>> charts_;
  SkeletonMap skeletons_;
  MemCore::Attributes attributes_;
};

/// A kind of grid, recognised by the layout of its vertices.
class FIBER_API TypedGrid {
 public:
  explicit TypedGrid(MemCore::StrongPtr<Grid> grid) : grid_(std::move(grid)) {}
  virtual ~TypedGrid() = default;
  const MemCore::StrongPtr<Grid>& grid() const { return grid_; }

 private:
  MemCore::StrongPtr<Grid> grid_;
};

/// Makes sure that the grid has a vertex skeleton with `positions` installed in the standard chart.
/// Without a grid it does nothing; without positions the skeleton is made alone.
class FIBER_API GridWithCartesianVertices : public TypedGrid {
 public:
  GridWithCartesianVertices(const MemCore::StrongPtr<Grid>& grid,
                            const MemCore::StrongPtr<Field>& positions);
};

/// A grid whose positions are regularly fragmented, seen as an nx x ny x nz array of fragments.
class FIBER_API FragmentedUniformGrid3D : public TypedGrid {
 public:
  explicit FragmentedUniformGrid3D(const MemCore::StrongPtr<Grid>& grid);
  /// False when the grid's positions are not regularly fragmented: the view then has no array.
  bool hasFragments() const { return bool(positions_); }
  /// Tiles per axis; all 0 without an array.
  MultiIndex<3> counts() const;
  /// The output fragment at (i, j, k); empty without an array. Threads: may be called at once.
  FragmentHandle fragmentAt(const MultiIndex<3>& index) const;
  /// The output fragments of `count` indices in a row along x, each as fragmentAt gives it.
  std::vector<FragmentHandle> fragmentsFrom(const MultiIndex<3>& first, std::uint64_t count) const;

 private:
  MemCore::StrongPtr<RegularlyFragmentedField<3>> positions_;
};

}  // namespace Fiber
