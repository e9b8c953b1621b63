// SPDX-License-Identifier: Apache-2.0

#include "datamodel/container/TableCheck.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <limits>
#include <optional>
#include <string_view>
#include <unordered_set>

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

Outcome<void> checkTable(const StoredRepresentation& stored) {
  std::unordered_set<std::string_view> names;
  names.reserve(stored.table.rowCount());
  std::optional<std::uint32_t> before;
  for (std::size_t row = 0; row < stored.table.rowCount(); ++row) {
    const auto number = stored.table.get<std::uint32_t>(row, Column::kNumber);
    if (before == number) return rowFailure(row, "its number is taken by another fragment");
    if (before > number) return rowFailure(row, "its number is below that of the row before");
    before = number;
    if (!names.insert(stored.table.text(row, Column::kName)).second) {
      return rowFailure(row, "its name is taken by another fragment");
    }
    if (auto valid = checkSource(stored, row); !valid.ok()) return valid;
    for (std::size_t f = 0; f < stored.fields.size(); ++f) {
      if (auto valid = checkPart(stored, row, f); !valid.ok()) return valid;
    }
  }
  return {};
}

}  // namespace Fiber::Container
