// SPDX-License-Identifier: Apache-2.0
//
// FragmentColumns: the data of one fragment that go into a file, in memory, and which of its points
// go.

#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "datamodel/memcore/Outcome.hpp"
#include "formats/export/ExportSource.hpp"

namespace Formats {

/// Which points of a fragment go, and which of those lie in the margin of their tile.
struct PointChoice {
  bool takesAll = true;
  std::vector<std::uint32_t> rows;     ///< ascending; those to take where not all are
  std::vector<std::uint8_t> isMargin;  ///< per point of the fragment; empty: none is

  std::uint64_t countOf(const ExportFragment& fragment) const {
    return takesAll ? fragment.pointCount : rows.size();
  }
};

using PositionArray = Fiber::MemArray<1, Eagle::PhysicalSpace::point>;

/// Invariant: all columns hold a value for each of the fragment's points.
struct FragmentColumns {
  const ExportFragment* fragment = nullptr;
  MemCore::StrongPtr<PositionArray> positions;  ///< empty: as whole numbers, see ColumnNeeds
  Fiber::GridPointsHandle gridPoints;           ///< empty: as points
  /// By number of the field in ExportSource; empty where the field is not needed or the fragment
  /// has none, which stands for zeros.
  std::vector<MemCore::StrongPtr<Fiber::MemBase>> fields;
  MemCore::StrongPtr<Fiber::MemBase> samples;
  MemCore::StrongPtr<Fiber::MemBase> lengths;
  PointChoice choice;

  /// The positions as points; made by every call where they are there as whole numbers.
  /// Requires: they were loaded. May throw std::bad_alloc.
  MemCore::StrongPtr<PositionArray> points() const {
    return positions ? positions : Fiber::pointsOf(*gridPoints);
  }
};

/// Chooses points of a fragment whose columns are loaded. Threads: several fragments at once.
using PointChooser = std::function<PointChoice(const FragmentColumns& fragment)>;

/// A chooser that takes all points.
PointChooser everyPoint();

/// A chooser and the numbers of the fields that it looks at.
struct ChooserWithFields {
  PointChooser choose;
  std::vector<std::size_t> fields;
};

/// What is to be loaded besides the positions.
struct ColumnNeeds {
  std::vector<std::size_t> fields;  ///< numbers in ExportSource::fields
  bool samples = false;
  bool lengths = false;
  /// Positions that are stored as whole numbers of this very grid are loaded as such.
  std::optional<Fiber::CoordinateGrid> grid = std::nullopt;
};

/// How many of the first fragments to load together: at least one, and as many more as keep within
/// so many points. Requires: at least one fragment.
std::size_t batchSize(std::span<const ExportFragment> fragments, std::uint64_t mostPoints);

/// Fragments being loaded, column by column, by whoever has time. A field that is needed twice is
/// loaded once.
class FragmentLoad {
 public:
  FragmentLoad(const ExportSource& source, std::span<const ExportFragment> fragments,
               const ColumnNeeds& needs);

  std::size_t stepCount() const { return loaded_.size() + tasks_.size(); }
  /// Does one step; the first ones are the largest. Errors: a column that cannot be had, or that is
  /// not of its field's type. Threads: any, each step once.
  MemCore::Outcome<void> run(std::size_t step);
  /// Chooses points, several fragments at once, and gives the columns away. Requires: all steps
  /// were done without failure.
  MemCore::Outcome<std::vector<FragmentColumns>> finish(const PointChooser& choose);
  /// About what loading has to handle.
  std::uint64_t workBytes() const;

 private:
  /// One column of one fragment.
  struct Task {
    const Fiber::Field* field = nullptr;
    std::string name;
    std::size_t fragment = 0;                            ///< place in `loaded_`
    MemCore::StrongPtr<Fiber::MemBase>* into = nullptr;  ///< of that fragment
    const ExportField* described = nullptr;              ///< may be absent then, and has this type
  };

  void addTasks(const ExportSource& source, const ColumnNeeds& needs, std::size_t fragment);
  MemCore::Outcome<void> loadPositions(FragmentColumns& columns) const;
  MemCore::Outcome<void> load(const Task& task) const;

  const ExportSource* source_;
  std::optional<Fiber::CoordinateGrid> grid_;
  std::vector<FragmentColumns> loaded_;
  std::vector<Task> tasks_;
};

/// Loads fragments, several columns at once, and chooses their points.
/// Errors: those of the first step that fails.
MemCore::Outcome<std::vector<FragmentColumns>> loadFragments(
    const ExportSource& source, std::span<const ExportFragment> fragments, const ColumnNeeds& needs,
    const PointChooser& choose);

/// The elements of some chosen points of a column. Shape: [count][width bytes].
class ChosenElements {
 public:
  /// Points `first` to `first + count` (half-open) among the chosen ones. The column, whose
  /// elements are `all` (of all points of the fragment), must outlive the object.
  ChosenElements(std::span<const std::byte> all, const FragmentColumns& fragment, std::size_t first,
                 std::size_t count);
  std::span<const std::byte> bytes() const { return bytes_; }

 private:
  std::span<const std::byte> bytes_;
  std::vector<std::byte> gathered_;  ///< where the chosen points do not lie in a row
};

/// The number of the n-th chosen point within its fragment.
std::size_t chosenRow(const FragmentColumns& fragment, std::size_t n);

}  // namespace Formats
