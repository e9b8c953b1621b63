// SPDX-License-Identifier: Apache-2.0
//
// The fragment table of one representation: a row per fragment with everything that is known of it
// without its points. Rows are packed records whose layout follows from the fields of the
// representation and from what its fragments need; columns that no fragment needs do not exist.
// The records in memory are those of the file, so that a million rows come in with one read.

#pragma once

#include <array>
#include <cassert>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>

#include "datamodel/container/ZeroedBytes.hpp"
#include "datamodel/fiber/FiberType.hpp"

namespace Fiber::Container {

/// The columns, in the order in which they lie in a row. "per field" columns have one entry for
/// each field, in the order of the table's field names.
enum class Column : std::size_t {
  kName,          ///< text; stored name of the fragment
  kNumber,        ///< u32; number of the fragment in its collection
  kIndex,         ///< 3 u64; tile index, all bits set where there is none
  kStart,         ///< u64; first row in the datasets
  kPointCount,    ///< u64; number of rows
  kBoxMin,        ///< 3 f64; box of the positions, NaN where unknown
  kBoxMax,        ///< 3 f64
  kPresent,       ///< u8 per field; 0 where the field has no data for the fragment
  kFieldMin,      ///< f64 per field; NaN where unknown
  kFieldMax,      ///< f64 per field
  kRowShape,      ///< 3 u64 per field of rank above 1; extents before the last one
  kFieldStart,    ///< u64 per field; where fields differ in length: start and rows of each
  kFieldRows,     ///< u64 per field
  kGridScale,     ///< 3 f64; where fragments differ in their coordinate grids
  kGridOffset,    ///< 3 f64
  kAttributeSet,  ///< u32 per field; number of the creator's set of attributes, 0 = none
  kChecksum,      ///< u32 per field; CRC-32 of the fragment's bytes in raw storage
  kFile,          ///< text; file that holds the data, relative to this file's folder, "" = this one
  kFileSize,      ///< u64; its size in bytes
  kContentId,     ///< u64; its content id
  kSourceGroup,   ///< u32; its representation, as a number in the list of source groups
};
inline constexpr std::size_t kColumnCount = 21;

/// What decides the layout of a row.
struct TableShape {
  std::size_t fieldCount = 0;
  std::size_t wideFieldCount = 0;  ///< fields of rank above 1
  std::size_t nameBytes = 1;       ///< of the longest fragment name
  std::size_t fileBytes = 0;       ///< of the longest file name; 0: no fragment is linked
  bool hasIndex = false;
  bool hasFieldExtents = false;
  bool hasGrids = false;
  bool hasAttributeSets = false;
  bool hasChecksums = false;
};

/// One column: its name in files, what its entries are, and where it lies in a row.
struct ColumnPlace {
  std::string_view name;
  std::optional<ScalarKind> kind;  ///< empty: text
  std::size_t count = 0;   ///< entries per row (bytes, for a text); 0: column does not exist
  std::size_t offset = 0;  ///< bytes from the start of the row
};

using TableLayout = std::array<ColumnPlace, kColumnCount>;

/// The packed layout for a shape.
TableLayout tableLayout(const TableShape& shape);

/// Rows under one layout. Requires of every access: row and entry exist, the column does, and T is
/// the column's type.
class FragmentTable {
 public:
  FragmentTable() = default;
  /// `rowCount` rows of zero bytes.
  FragmentTable(const TableLayout& layout, std::size_t rowBytes, std::size_t rowCount);
  /// Packed rows for a shape.
  FragmentTable(const TableShape& shape, std::size_t rowCount);

  std::size_t rowCount() const { return rowBytes_ == 0 ? 0 : bytes_.size() / rowBytes_; }
  std::size_t rowBytes() const { return rowBytes_; }
  const TableLayout& layout() const { return layout_; }
  const ColumnPlace& place(Column column) const {
    return layout_[static_cast<std::size_t>(column)];
  }
  bool has(Column column) const { return place(column).count != 0; }
  ZeroedBytes& bytes() { return bytes_; }
  const ZeroedBytes& bytes() const { return bytes_; }

  template <class T>
  T get(std::size_t row, Column column, std::size_t entry = 0) const {
    assert(entry < place(column).count);
    T value;
    std::memcpy(&value, at(row, column) + entry * sizeof(T), sizeof(T));
    return value;
  }
  template <class T>
  void set(std::size_t row, Column column, T value, std::size_t entry = 0) {
    assert(entry < place(column).count);
    std::memcpy(bytes_.data() + (at(row, column) - bytes_.data()) + entry * sizeof(T), &value,
                sizeof(T));
  }
  /// Whether another file holds the fragment's data.
  bool isLinked(std::size_t row) const {
    return has(Column::kFile) && *at(row, Column::kFile) != std::byte{0};
  }
  /// A text without its padding, which lives as long as the table; "" when the column does not
  /// exist.
  std::string_view text(std::size_t row, Column column) const;
  /// Writes a text into a column, or behind `offset` bytes that are there. Requires: it fits.
  void setText(std::size_t row, Column column, std::string_view text, std::size_t offset = 0);

 private:
  const std::byte* at(std::size_t row, Column column) const {
    return bytes_.data() + row * rowBytes_ + place(column).offset;
  }

  TableLayout layout_{};
  std::size_t rowBytes_ = 0;
  ZeroedBytes bytes_;
};

/// Bytes of a row under a packed layout.
std::size_t packedRowBytes(const TableLayout& layout);

/// Bytes of one entry of a column.
inline std::size_t entryBytes(const ColumnPlace& place) {
  return place.kind ? scalarBytes(*place.kind) : 1;
}

}  // namespace Fiber::Container
