// SPDX-License-Identifier: Apache-2.0
//
// A bundle file as plain structures: everything that it says but the points. The writer makes one
// from a model and stores it, the scan reads one back, and the model builder turns it into a
// bundle; the layout in the file is documented in docs/container-format.md.

#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "datamodel/container/FragmentTable.hpp"
#include "datamodel/eagle/BoundingBox.hpp"
#include "datamodel/fiber/DataRange.hpp"
#include "datamodel/fiber/DynamicSize.hpp"
#include "datamodel/fiber/FiberType.hpp"
#include "datamodel/memcore/Attributes.hpp"

namespace Fiber::Container {

inline constexpr std::string_view kFormatName = "LidarLib bundle";
inline constexpr std::uint32_t kFormatVersion = 1;

/// Name of the position field.
inline constexpr std::string_view kPositions = "Positions";

/// A field: its dataset, and all that describes the field as a whole.
struct StoredField {
  std::string name;
  MemCore::StrongPtr<FiberTypeBase> type;  ///< empty: no fragment has data
  std::size_t rank = 1;
  std::uint64_t rows = 0;     ///< of the dataset: the points of all fragments in this file
  std::uint64_t columns = 0;  ///< of the dataset, in numbers: components, or samples
  MemCore::Attributes properties;
  std::uint64_t propertyBits = 0;
  /// Counts and name of a regular fragmentation; empty when the field has none.
  std::optional<MultiIndex<3>> fragmentCounts;
  std::string fragmentationName;
  /// Interfaces attached to the field.
  MemCore::StrongPtr<Eagle::BoundingBox> box;
  std::optional<ValueRange> range;
  /// The different sets of attributes that the creators carry; set number n is entry n - 1.
  std::vector<MemCore::Attributes> attributeSets;
};

/// The fields of a skeleton in one chart, in ascending order of name, over one table of fragments
/// in ascending order of number.
struct StoredRepresentation {
  std::string chart;
  std::string group;  ///< path of the HDF5 group
  std::vector<StoredField> fields;
  FragmentTable table;
  /// Groups of representations in other files, which linked fragments refer to by number.
  std::vector<std::string> sourceGroups;
};

struct StoredSkeleton {
  int dimension = 0;
  int refinement = 0;
  std::vector<StoredRepresentation> representations;
};

struct StoredGrid {
  std::string name;
  MemCore::Attributes attributes;
  std::uint64_t propertyBits = 0;
  std::vector<StoredSkeleton> skeletons;
};

struct StoredSlice {
  double time = 0.0;
  std::vector<StoredGrid> grids;
};

/// Which contents of a file are meant: a path alone may name something else tomorrow.
struct FileIdentity {
  std::string path;  ///< absolute, or relative to the working directory
  std::uint64_t sizeBytes = 0;
  std::uint64_t contentId = 0;  ///< hash of all point data and tables; see ContentHash
};

struct StoredBundle {
  FileIdentity file;
  std::vector<StoredSlice> slices;
};

}  // namespace Fiber::Container
