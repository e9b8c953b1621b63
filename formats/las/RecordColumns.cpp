// SPDX-License-Identifier: Apache-2.0

#include "formats/las/RecordColumns.hpp"

#include <algorithm>
#include <cassert>
#include <cstring>
#include <optional>

#include "formats/las/ByteStream.hpp"
#include "formats/las/RawBox.hpp"

namespace Formats {

namespace {

/// Records per block: every field goes over them, so they and a block of the columns are to stay in
/// the first-level cache; with the longest usual records (67 bytes) that is half of 32 KiB.
constexpr std::size_t kBlockRecords = 128;

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

/// One byte of each record of a block, taken out for all the fields that are bits of it: these go
/// through it one after the other, and the records are touched once.
class SharedByte {
 public:
  /// The byte at an offset of the records. Requires: at most kBlockRecords of them.
  void load(std::size_t byteOffset, std::span<const std::byte> records, std::size_t recordBytes) {
    if (byteOffset_ == byteOffset) return;
    byteOffset_ = byteOffset;
    copyFixed<1>(bytes_.data(), 1, records.data() + byteOffset, recordBytes,
                 records.size() / recordBytes);
  }
  /// Puts it back.
  void store(std::span<std::byte> records, std::size_t recordBytes) {
    if (!byteOffset_) return;
    copyFixed<1>(records.data() + *byteOffset_, recordBytes, bytes_.data(), 1,
                 records.size() / recordBytes);
    byteOffset_.reset();
  }
  bool isOf(const PointField& field) const { return byteOffset_ == field.byteOffset; }

  void extract(const PointField& field, std::span<std::byte> to) const {
    const unsigned shift = field.bitShift;
    const unsigned mask = maskOf(field);
    for (std::size_t at = 0; at < to.size(); ++at) {
      to[at] = static_cast<std::byte>((static_cast<unsigned>(bytes_[at]) >> shift) & mask);
    }
  }
  void insert(const PointField& field, std::span<const std::byte> from) {
    const unsigned shift = field.bitShift;
    const unsigned mask = maskOf(field);
    for (std::size_t at = 0; at < from.size(); ++at) {
      const unsigned others = static_cast<unsigned>(bytes_[at]) & ~(mask << shift);
      bytes_[at] =
          static_cast<std::byte>(others | ((static_cast<unsigned>(from[at]) & mask) << shift));
    }
  }

 private:
  std::array<std::byte, kBlockRecords> bytes_;
  std::optional<std::size_t> byteOffset_;  ///< Empty: no byte is out.
};

/// Calls `body(first, count)` for the blocks of `records` records.
template <class Body>
void forEachBlock(std::size_t records, Body body) {
  for (std::size_t first = 0; first < records; first += kBlockRecords) {
    body(first, std::min(kBlockRecords, records - first));
  }
}

/// Puts the elements from `first` on of all columns into a block of records.
void insertBlock(std::span<std::byte> block, std::size_t recordBytes, std::size_t first,
                 std::span<const ColumnInput> inputs) {
  const std::size_t count = block.size() / recordBytes;
  SharedByte shared;
  for (const ColumnInput& input : inputs) {
    const PointField& field = *input.field;
    const std::size_t width = widthOf(field);
    assert(input.column.size() >= (first + count) * width);
    // Before another field is written: it may lie over the same byte.
    if (field.bitCount == 0 || !shared.isOf(field)) shared.store(block, recordBytes);
    if (field.bitCount != 0) {
      shared.load(field.byteOffset, block, recordBytes);
      shared.insert(field, input.column.subspan(first, count));
    } else {
      copyStrided({block.data() + field.byteOffset, recordBytes,
                   input.column.data() + first * width, width},
                  width, count);
    }
  }
  shared.store(block, recordBytes);
}

}  // namespace

void extractColumns(std::span<const std::byte> records, std::size_t recordBytes,
                    std::span<const ColumnOutput> outputs) {
  forEachBlock(records.size() / recordBytes, [&](std::size_t first, std::size_t count) {
    const auto block = records.subspan(first * recordBytes, count * recordBytes);
    SharedByte shared;
    for (const ColumnOutput& output : outputs) {
      const PointField& field = *output.field;
      const std::size_t width = widthOf(field);
      assert(output.column.size() >= (first + count) * width);
      if (field.bitCount != 0) {
        shared.load(field.byteOffset, block, recordBytes);
        shared.extract(field, output.column.subspan(first, count));
      } else {
        copyStrided({output.column.data() + first * width, width, block.data() + field.byteOffset,
                     recordBytes},
                    width, count);
      }
    }
  });
}

void insertColumns(std::span<std::byte> records, std::size_t recordBytes,
                   std::span<const ColumnInput> inputs) {
  forEachBlock(records.size() / recordBytes, [&](std::size_t first, std::size_t count) {
    insertBlock(records.subspan(first * recordBytes, count * recordBytes), recordBytes, first,
                inputs);
  });
}

void fillRecords(std::span<std::byte> records, std::size_t recordBytes,
                 std::span<const ColumnInput> inputs) {
  forEachBlock(records.size() / recordBytes, [&](std::size_t first, std::size_t count) {
    const auto block = records.subspan(first * recordBytes, count * recordBytes);
    std::fill(block.begin(), block.end(), std::byte{0});
    insertBlock(block, recordBytes, first, inputs);
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
  assert(records.size() >= recordBytes);
  RawBox box;
  for (std::size_t at = 0; at < records.size(); at += recordBytes) box.add(records.data() + at);
  const auto low = box.minimum();
  const auto high = box.maximum();
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
