// SPDX-License-Identifier: Apache-2.0
//
// Rows of a dataset from the file into memory: reads the chunks that hold them, decodes them in
// the calling thread and puts the values in place. The container library takes no part in it.

#pragma once

#include <array>
#include <cstdint>
#include <span>

#include "datamodel/container/DatasetLayout.hpp"

namespace Fiber::Container {

/// Some rows of a dataset, and the first columns of them.
struct RowRange {
  std::uint64_t start = 0;
  std::uint64_t count = 0;
  std::uint64_t columns = 1;
};

/// Whether the dataset has these rows and columns.
MemCore::Outcome<void> requireRange(const DatasetLayout& layout, const RowRange& range);

/// Reads numbers as they are stored. Shape: [count][columns]. Requires: requireRange held, and
/// values.size() == count * columns * bytes of a number. Errors: unreadable or damaged chunks.
MemCore::Outcome<void> readRows(const DatasetLayout& layout, int descriptor, const RowRange& range,
                                std::span<std::byte> values);

/// Reads coordinates stored as integers on a grid. Shape: [count][3]. Requires: as readRows.
/// Errors: as there, and numbers that are no 32-bit integers in chunks of one column.
MemCore::Outcome<void> readGridRows(const DatasetLayout& layout, int descriptor,
                                    const RowRange& range, const CoordinateGrid& grid,
                                    std::span<double> xyz);

/// Reads the integers themselves. Shape: each column [count]. Requires and errors: as readGridRows.
MemCore::Outcome<void> readGridColumns(const DatasetLayout& layout, int descriptor,
                                       const RowRange& range,
                                       const std::array<std::span<std::int32_t>, 3>& columns);

}  // namespace Fiber::Container
