// SPDX-License-Identifier: Apache-2.0

#include "formats/las/RecordColumns.hpp"

#include <algorithm>
#include <cassert>
#include <cstring>

#include "formats/las/ByteStream.hpp"

namespace Formats {

namespace {

/// Records per block: with the longest usual records (67 bytes) and their columns about two thirds
/// of a 32 KiB ... 48 KiB first-level cache would be 500; the second level hides the rest up to
/// 1000.
constexpr std::size_t kBlockRecords = 1024;

/// Width of a field's components in bytes.
std::size_t widthOf(const PointField& field) {
  return elementBytes(field.type) * field.componentCount;
}

unsigned maskOf(const PointField& field) { return (1U << field.bitCount) - 1U; }

/// Copies `Width` bytes per record between places with their own distances. A fixed width becomes
/// plain moves.
template <std::size_t Width>
void copyFixed(std::byte* to, std::size_t toStep, const std::byte* from, std::size_t fromStep,
               std::size_t count) {
  for (std::size_t at = 0; at < count; ++at) {
    std::memcpy(to + at * toStep, from + at * fromStep, Width);
  }
}

struct Strided {
  std::byte* to;
  std::size_t toStep;
  const std::byte* from;
  std::size_t fromStep;
};

void copyStrided(const Strided& way, std::size_t width, std::size_t count) {
  switch (width) {
    case 1:
      return copyFixed<1>(way.to, way.toStep, way.from, way.fromStep, count);
    case 2:
      return copyFixed<2>(way.to, way.toStep, way.from, way.fromStep, count);
    case 4:
      return copyFixed<4>(way.to, way.toStep, way.from, way.fromStep, count);
    case 8:
      return copyFixed<8>(way.to, way.toStep, way.from, way.fromStep, count);
    case 12:
      return copyFixed<12>(way.to, way.toStep, way.from, way.fromStep, count);
    default:
      for (std::size_t at = 0; at < count; ++at) {
        std::memcpy(way.to + at * way.toStep, way.from + at * way.fromStep, width);
      }
  }
}

void extractBits(const PointField& field, const std::byte* from, std::size_t recordBytes,
                 std::span<std::byte> to) {
  const unsigned shift = field.bitShift;
  const unsigned mask = maskOf(field);
  for (std::size_t at = 0; at < to.size(); ++at) {
    to[at] =
        static_cast<std::byte>((static_cast<unsigned>(from[at * recordBytes]) >> shift) & mask);
  }
}

void insertBits(const PointField& field, std::span<const std::byte> from, std::byte* to,
                std::size_t recordBytes) {
  const unsigned shift = field.bitShift;
  const unsigned mask = maskOf(field);
  for (std::size_t at = 0; at < from.size(); ++at) {
    std::byte& target = to[at * recordBytes];
    const unsigned others = static_cast<unsigned>(target) & ~(mask << shift);
    target = static_cast<std::byte>(others | ((static_cast<unsigned>(from[at]) & mask) << shift));
  }
}

/// Calls `body(first, count)` for the blocks of `records` records.
template <class Body>
void forEachBlock(std::size_t records, Body body) {
  for (std::size_t first = 0; first < records; first += kBlockRecords) {
    body(first, std::min(kBlockRecords, records - first));
  }
}

}  // namespace

void extractColumns(std::span<const std::byte> records, std::size_t recordBytes,
                    std::span<const ColumnOutput> outputs) {
  forEachBlock(records.size() / recordBytes, [&](std::size_t first, std::size_t count) {
    for (const ColumnOutput& output : outputs) {
      const PointField& field = *output.field;
      const std::size_t width = widthOf(field);
      assert(output.column.size() >= (first + count) * width);
      const std::byte* from = records.data() + first * recordBytes + field.byteOffset;
      if (field.bitCount != 0) {
        extractBits(field, from, recordBytes, output.column.subspan(first, count));
      } else {
        copyStrided({output.column.data() + first * width, width, from, recordBytes}, width, count);
      }
    }
  });
}

void insertColumns(std::span<std::byte> records, std::size_t recordBytes,
                   std::span<const ColumnInput> inputs) {
  forEachBlock(records.size() / recordBytes, [&](std::size_t first, std::size_t count) {
    for (const ColumnInput& input : inputs) {
      const PointField& field = *input.field;
      const std::size_t width = widthOf(field);
      assert(input.column.size() >= (first + count) * width);
      std::byte* to = records.data() + first * recordBytes + field.byteOffset;
      if (field.bitCount != 0) {
        insertBits(field, input.column.subspan(first, count), to, recordBytes);
      } else {
        copyStrided({to, recordBytes, input.column.data() + first * width, width}, width, count);
      }
    }
  });
}

void extractPositions(std::span<const std::byte> records, std::size_t recordBytes,
                      const CoordinateScaling& scaling, std::span<double> positions) {
  const std::size_t count = records.size() / recordBytes;
  assert(positions.size() >= count * 3);
  for (std::size_t at = 0; at < count; ++at) {
    const std::byte* record = records.data() + at * recordBytes;
    for (std::size_t axis = 0; axis < 3; ++axis) {
      const auto raw = loadValue<std::int32_t>(record + axis * sizeof(std::int32_t));
      positions[at * 3 + axis] = raw * scaling.scale[axis] + scaling.offset[axis];
    }
  }
}

PositionBounds boundsOfPositions(std::span<const std::byte> records, std::size_t recordBytes,
                                 const CoordinateScaling& scaling) {
  using Raw = std::array<std::int32_t, 3>;
  assert(records.size() >= recordBytes);
  Raw low = loadValue<Raw>(records.data());
  Raw high = low;
  for (std::size_t at = 0; at < records.size(); at += recordBytes) {
    const Raw raw = loadValue<Raw>(records.data() + at);
    for (std::size_t axis = 0; axis < 3; ++axis) {
      low[axis] = std::min(low[axis], raw[axis]);
      high[axis] = std::max(high[axis], raw[axis]);
    }
  }
  // Every step from a raw coordinate to a position is monotonic, its rounding included.
  PositionBounds bounds;
  for (std::size_t axis = 0; axis < 3; ++axis) {
    const double a = low[axis] * scaling.scale[axis] + scaling.offset[axis];
    const double b = high[axis] * scaling.scale[axis] + scaling.offset[axis];
    bounds.min[axis] = std::min(a, b);
    bounds.max[axis] = std::max(a, b);
  }
  return bounds;
}

}  // namespace Formats
