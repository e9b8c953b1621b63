// SPDX-License-Identifier: Apache-2.0

#include "datamodel/container/TableCheck.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <bit>
#include <functional>
#include <limits>
#include <optional>
#include <string_view>
#include <vector>

#include "datamodel/container/ParallelTexts.hpp"
#include "datamodel/fiber/Field.hpp"

namespace Fiber::Container {

using MemCore::Failure;
using MemCore::Outcome;

namespace {

Failure rowFailure(std::size_t row, std::string_view what) {
  return Failure{fmt::format("fragments: row {}: {}", row, what)};
}

/// Place of a field among those of rank above 1.
std::size_t widePlace(const StoredRepresentation& stored, std::size_t field) {
  return static_cast<std::size_t>(std::count_if(
      stored.fields.begin(), stored.fields.begin() + static_cast<std::ptrdiff_t>(field),
      [](const StoredField& before) { return before.rank > 1; }));
}

/// The product of all extents and the element size, or nothing when it is absurd.
std::optional<std::uint64_t> byteCount(const DynamicSize& size, std::size_t elementBytes) {
  constexpr std::uint64_t kLimit = std::uint64_t{1} << 62U;
  std::uint64_t bytes = elementBytes;
  for (const std::uint64_t extent : size.extents()) {
    if (extent != 0 && bytes > kLimit / extent) return std::nullopt;
    bytes *= extent;
  }
  return bytes;
}

Outcome<void> checkPart(const StoredRepresentation& stored, std::size_t row, std::size_t f) {
  const StoredField& field = stored.fields[f];
  const FragmentTable& table = stored.table;
  if (table.has(Column::kAttributeSet) &&
      table.get<std::uint32_t>(row, Column::kAttributeSet, f) > field.attributeSets.size()) {
    return rowFailure(row, fmt::format("field {} has no such attribute set", field.name));
  }
  const FieldPart part = fieldPart(stored, row, f);
  if (!part.present) return {};
  if (!field.type) return rowFailure(row, fmt::format("field {} has no data", field.name));
  if (!byteCount(part.size, field.type->elementBytes())) {
    return rowFailure(row, fmt::format("field {} claims impossible extents", field.name));
  }
  if (table.isLinked(row)) return {};
  if (part.start > field.rows || part.rows > field.rows - part.start) {
    return rowFailure(row, fmt::format("field {} ends beyond its dataset, found {} + {} rows, "
                                       "expected {}",
                                       field.name, part.start, part.rows, field.rows));
  }
  const std::uint64_t width =
      part.rows == 0 ? 0 : part.size.elementCount() / part.rows * field.type->componentCount();
  if (width > field.columns) {
    return rowFailure(row, fmt::format("field {} is wider than its dataset, found {}, expected {}",
                                       field.name, width, field.columns));
  }
  return {};
}

Outcome<void> checkSource(const StoredRepresentation& stored, std::size_t row) {
  if (!stored.table.isLinked(row)) return {};
  const auto group = stored.table.get<std::uint32_t>(row, Column::kSourceGroup);
  if (group < stored.sourceGroups.size()) return {};
  return rowFailure(row, fmt::format("no such source group, found {}, expected less than {}", group,
                                     stored.sourceGroups.size()));
}

}  // namespace

FieldPart fieldPart(const StoredRepresentation& stored, std::size_t row, std::size_t f) {
  const FragmentTable& table = stored.table;
  FieldPart part;
  part.present = table.get<std::uint8_t>(row, Column::kPresent, f) != 0;
  const bool own = table.has(Column::kFieldStart);
  part.start = own ? table.get<std::uint64_t>(row, Column::kFieldStart, f)
                   : table.get<std::uint64_t>(row, Column::kStart);
  part.rows = own ? table.get<std::uint64_t>(row, Column::kFieldRows, f)
                  : table.get<std::uint64_t>(row, Column::kPointCount);
  const std::size_t rank = stored.fields[f].rank;
  std::array<std::uint64_t, DynamicSize::kMaxRank> extents{};
  if (rank > 1) {
    const std::size_t first = 3 * widePlace(stored, f);
    for (std::size_t d = 0; d + 1 < rank; ++d) {
      extents[d] = table.get<std::uint64_t>(row, Column::kRowShape, first + d);
    }
  }
  extents[rank - 1] = part.rows;
  part.size = DynamicSize(std::span<const std::uint64_t>(extents).first(rank));
  return part;
}

namespace {

/// Rows must be in ascending order of number, and no two may have one.
Outcome<void> checkNumbers(const FragmentTable& table) {
  for (std::size_t row = 1; row < table.rowCount(); ++row) {
    const auto before = table.get<std::uint32_t>(row - 1, Column::kNumber);
    const auto number = table.get<std::uint32_t>(row, Column::kNumber);
    if (before == number) return rowFailure(row, "its number is taken by another fragment");
    if (before > number) return rowFailure(row, "its number is below that of the row before");
  }
  return {};
}

/// Whether the numbers of all rows ascend and follow from their names, as those of tiles do. Then
/// no two rows have one name, because no two have one number.
bool areTiles(const StoredRepresentation& stored) {
  const auto regular =
      std::find_if(stored.fields.begin(), stored.fields.end(),
                   [](const StoredField& field) { return field.fragmentCounts.has_value(); });
  if (regular == stored.fields.end()) return false;
  const MultiIndex<3> counts = *regular->fragmentCounts;
  const FragmentTable& table = stored.table;
  const auto fits = [&](std::size_t row) {
    const auto number = table.get<std::uint32_t>(row, Column::kNumber);
    if (row != 0 && table.get<std::uint32_t>(row - 1, Column::kNumber) >= number) return false;
    const auto index = parseTileIndex(std::string(table.text(row, Column::kName)));
    return index && (*index)[0] + counts[0] * ((*index)[1] + counts[1] * (*index)[2]) == number;
  };
  const auto checked = parallelBlocks(table.rowCount(), [&](std::size_t row) -> Outcome<void> {
    if (fits(row)) return {};
    return rowFailure(row, "no tile");
  });
  return checked.ok();
}

/// No two rows may have one name. A table of places by hash, without a list per place: a million
/// names take a tenth of a second.
Outcome<void> checkNames(const FragmentTable& table) {
  constexpr std::uint32_t kFree = std::numeric_limits<std::uint32_t>::max();
  const std::size_t mask = std::bit_ceil(2 * table.rowCount() + 1) - 1;
  std::vector<std::uint32_t> places(mask + 1, kFree);
  for (std::size_t row = 0; row < table.rowCount(); ++row) {
    const std::string_view name = table.text(row, Column::kName);
    std::size_t place = std::hash<std::string_view>()(name) & mask;
    for (; places[place] != kFree; place = (place + 1) & mask) {
      if (table.text(places[place], Column::kName) == name) {
        return rowFailure(row, "its name is taken by another fragment");
      }
    }
    places[place] = static_cast<std::uint32_t>(row);
  }
  return {};
}

}  // namespace

Outcome<void> checkTable(const StoredRepresentation& stored) {
  const FragmentTable& table = stored.table;
  if (!areTiles(stored)) {
    // Numbers have 32 bits, and so have rows once no number comes twice.
    if (auto valid = checkNumbers(table); !valid.ok()) return valid;
    if (auto valid = checkNames(table); !valid.ok()) return valid;
  }
  return parallelBlocks(table.rowCount(), [&](std::size_t row) -> Outcome<void> {
    if (auto valid = checkSource(stored, row); !valid.ok()) return valid;
    for (std::size_t f = 0; f < stored.fields.size(); ++f) {
      if (auto valid = checkPart(stored, row, f); !valid.ok()) return valid;
    }
    return {};
  });
}

}  // namespace Fiber::Container
