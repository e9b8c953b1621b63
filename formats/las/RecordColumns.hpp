// SPDX-License-Identifier: Apache-2.0
//
// RecordColumns: moves fields between point records (rows, as a LAS file has them) and typed
// columns (as the rest of the system wants them). Works through blocks of about a thousand records,
// so that a record is in the first-level cache while all its fields are taken. Threads: pure
// functions of their arguments; calls on disjoint outputs may run at once.

#pragma once

#include <array>
#include <cstddef>
#include <span>

#include "formats/las/PointLayout.hpp"

namespace Formats {

/// A field and the column that receives it.
/// Shape: `column` holds [records][componentCount] elements of the field's type, native byte order.
struct ColumnOutput {
  const PointField* field = nullptr;
  std::span<std::byte> column;
};

/// A field and the column that it is filled from; the same shape.
struct ColumnInput {
  const PointField* field = nullptr;
  std::span<const std::byte> column;
};

/// Takes the fields out of `records`, whole records of `recordBytes`. Bit fields arrive shifted
/// down. Requires: every column large enough, every field inside the record.
void extractColumns(std::span<const std::byte> records, std::size_t recordBytes,
                    std::span<const ColumnOutput> outputs);

/// Puts columns into records; bytes and bits of other fields stay. A value too wide for its bit
/// field loses its upper bits. Requires: as extractColumns.
void insertColumns(std::span<std::byte> records, std::size_t recordBytes,
                   std::span<const ColumnInput> inputs);

/// Sets records to columns, and all bytes and bits of no column to zero. Requires: as
/// extractColumns.
void fillRecords(std::span<std::byte> records, std::size_t recordBytes,
                 std::span<const ColumnInput> inputs);

/// How raw coordinates become positions, per axis: raw * scale + offset.
struct CoordinateScaling {
  std::array<double, 3> scale{1, 1, 1};
  std::array<double, 3> offset{};
};

/// Positions of the records. Shape: `positions` is [records][3].
/// Rounding: one multiplication, one addition, each rounded (never fused), on every machine.
void extractPositions(std::span<const std::byte> records, std::size_t recordBytes,
                      const CoordinateScaling& scaling, std::span<double> positions);

/// Smallest and largest coordinates of positions.
struct PositionBounds {
  std::array<double, 3> min{};
  std::array<double, 3> max{};
};

/// The bounds of what extractPositions makes of the same records, for less than making it.
/// Requires: at least one whole record.
PositionBounds boundsOfPositions(std::span<const std::byte> records, std::size_t recordBytes,
                                 const CoordinateScaling& scaling);

}  // namespace Formats
