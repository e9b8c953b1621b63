// SPDX-License-Identifier: Apache-2.0

#include "formats/catalog/CatalogDescription.hpp"

#include <fmt/format.h>

#include <chrono>

namespace Formats {

namespace {

NumberKind kindOf(ElementType type) {
  switch (type) {
    case ElementType::Int8:
    case ElementType::Int16:
    case ElementType::Int32:
    case ElementType::Int64:
      return NumberKind::Signed;
    case ElementType::Float32:
    case ElementType::Float64:
      return NumberKind::Floating;
    case ElementType::UInt8:
    case ElementType::UInt16:
    case ElementType::UInt32:
    case ElementType::UInt64:
      break;
  }
  return NumberKind::Unsigned;
}

}  // namespace

std::vector<CatalogDimension> dimensionsOf(const PointLayout& layout) {
  std::vector<CatalogDimension> dimensions;
  for (const char* axis : {"X", "Y", "Z"}) {
    dimensions.push_back({axis, NumberKind::Floating, sizeof(double)});
  }
  for (const PointField& field : layout.fields()) {
    dimensions.push_back(
        {field.name, kindOf(field.type), static_cast<std::uint32_t>(elementBytes(field.type))});
  }
  return dimensions;
}

std::optional<std::string> datetimeOf(const LasHeader& header) {
  constexpr unsigned kMostDays = 366;
  constexpr unsigned kMostYears = 9999;
  const unsigned day = header.creationDayOfYear;
  const unsigned year = header.creationYear;
  if (day == 0 || day > kMostDays || year == 0 || year > kMostYears) return std::nullopt;
  using namespace std::chrono;
  const auto newYear = sys_days{std::chrono::year{static_cast<int>(year)} / January / 1};
  const year_month_day date{newYear + days{day - 1}};
  if (date.year() != std::chrono::year{static_cast<int>(year)}) return std::nullopt;
  return fmt::format("{:04}-{:02}-{:02}T00:00:00Z", year, static_cast<unsigned>(date.month()),
                     static_cast<unsigned>(date.day()));
}

}  // namespace Formats
