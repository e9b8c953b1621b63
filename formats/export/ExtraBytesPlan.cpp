// SPDX-License-Identifier: Apache-2.0

#include "formats/export/ExtraBytesPlan.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <limits>
#include <map>
#include <optional>
#include <type_traits>
#include <utility>

#include "formats/cloud/ColumnTypes.hpp"

namespace Formats {

using MemCore::Failure;
using MemCore::Outcome;

namespace {

constexpr std::size_t kNameBytes = 32;
/// A descriptor has one byte to count bytes in.
constexpr std::size_t kMostBytesDescribed = 255;

/// The fields of one descriptor of a file; of bytes without one, all of them.
struct Attribute {
  std::vector<const PointField*> fields;
  ExtraBytesDescriptor descriptor;
};

/// The attributes behind the standard part of a file's records, in order.
std::vector<Attribute> attributesOf(const PointLayout& layout) {
  std::vector<Attribute> attributes;
  const std::uint16_t start = standardRecordBytes(layout.pointFormat());
  const ExtraBytesDescriptor* last = nullptr;
  for (const PointField& field : layout.fields()) {
    if (field.byteOffset < start) continue;
    if (attributes.empty() || field.meaning.get() != last) {
      attributes.emplace_back();
      if (field.meaning) attributes.back().descriptor = *field.meaning;
    }
    last = field.meaning.get();
    attributes.back().fields.push_back(&field);
  }
  return attributes;
}

/// A descriptor for bytes that had none.
ExtraBytesDescriptor describeBytes(std::size_t count) {
  ExtraBytesDescriptor descriptor;
  descriptor.name = "ExtraBytes";
  descriptor.options = static_cast<std::uint8_t>(count);
  descriptor.componentCount = static_cast<std::uint16_t>(count);
  return descriptor;
}

/// Descriptors for as many bytes.
void describeBytesInto(std::vector<ExtraBytesDescriptor>& descriptors, std::size_t count) {
  for (; count > 0; count -= std::min(count, kMostBytesDescribed)) {
    descriptors.push_back(describeBytes(std::min(count, kMostBytesDescribed)));
  }
}

template <class T>
std::optional<T> numberOf(const MemCore::Attributes& properties, const char* name) {
  const auto chunk = MemCore::chunkCast<T>(properties.getAttribute(name));
  return chunk && chunk->size() == 1 ? std::optional<T>((*chunk)[0]) : std::nullopt;
}

/// A number as descriptors of fields of this type hold it; absent where they cannot.
template <class T>
std::optional<ExtraBytesValue> wideValue(T value, ElementType type) {
  return withElementType(type, [&]<class E>(std::type_identity<E>) {
    if constexpr (std::is_floating_point_v<E>) {
      return std::optional<ExtraBytesValue>(static_cast<double>(value));
    } else if constexpr (std::is_floating_point_v<T>) {
      return std::optional<ExtraBytesValue>();
    } else if constexpr (std::is_signed_v<E>) {
      const bool fits = std::in_range<std::int64_t>(value);
      return fits ? std::optional<ExtraBytesValue>(static_cast<std::int64_t>(value)) : std::nullopt;
    } else {
      const bool fits = std::in_range<std::uint64_t>(value);
      return fits ? std::optional<ExtraBytesValue>(static_cast<std::uint64_t>(value))
                  : std::nullopt;
    }
  });
}

/// Joining files can have given a field another type than its property.
std::optional<ExtraBytesValue> noDataOf(const MemCore::Attributes& properties, ElementType type) {
  if (const auto value = numberOf<std::uint64_t>(properties, "NoData")) {
    return wideValue(*value, type);
  }
  if (const auto value = numberOf<std::int64_t>(properties, "NoData")) {
    return wideValue(*value, type);
  }
  if (const auto value = numberOf<double>(properties, "NoData")) return wideValue(*value, type);
  return std::nullopt;
}

template <class T>
std::optional<std::array<T, 3>> triple(const std::optional<T>& value) {
  if (!value) return std::nullopt;
  return std::array<T, 3>{*value, T{}, T{}};
}

/// Whether a field's values are still in the units that its descriptor tells: joining files of
/// different scales turns them into others.
bool keepsUnits(const PointField& described, const ExportField& field) {
  if (!described.meaning) return true;
  const std::size_t component = std::min<std::size_t>(described.component, 2);
  const auto agrees = [&](const char* name, const std::optional<std::array<double, 3>>& told) {
    return !told || numberOf<double>(field.field->properties(), name) == (*told)[component];
  };
  return agrees("Scale", described.meaning->scale) && agrees("Offset", described.meaning->offset);
}

/// Plans attribute by attribute.
class Planner {
 public:
  Planner(const ExportSource& source, std::span<const std::size_t> fields) : source_(source) {
    for (const std::size_t field : fields) open_.emplace(source.fields[field].name, field);
  }

  Outcome<ExtraBytesPlan> plan() {
    std::vector<PointLayout> layouts;
    for (const SourceFile& file : source_.files) {
      auto layout = PointLayout::make(file.header.pointFormat, file.header.recordBytes, file.vlrs);
      if (!layout) return Failure{fmt::format("{}: {}", file.name, layout.error())};
      layouts.push_back(std::move(*layout));
    }
    // Without points there are no fields that could be missed.
    if (source_.fragments.empty() && open_.empty() && !layouts.empty()) {
      return verbatim(layouts.front());
    }
    bool isWhole = !layouts.empty();
    for (const PointLayout& layout : layouts) {
      for (const Attribute& attribute : attributesOf(layout)) {
        const bool isKept = keep(attribute);
        if (&layout == layouts.data()) isWhole = isWhole && isKept;
      }
      if (&layout == layouts.data() && open_.empty() && isWhole) return verbatim(layout);
    }
    for (const auto& [name, field] : std::map(open_)) append(field);
    if (bytes_ > std::numeric_limits<std::uint16_t>::max()) {
      return Failure{
          fmt::format("point records: too many extra bytes, found {}, expected at most "
                      "{}",
                      bytes_, std::numeric_limits<std::uint16_t>::max())};
    }
    plan_.byteCount = static_cast<std::uint16_t>(bytes_);
    return std::move(plan_);
  }

 private:
  /// Takes an attribute over as it stands. False: the grid does not have it so.
  bool keep(const Attribute& attribute) {
    std::vector<std::size_t> numbers;
    for (const PointField* field : attribute.fields) {
      const auto found = open_.find(field->name);
      if (found == open_.end()) return false;
      const ExportField& column = source_.fields[found->second];
      if (column.type != field->type || column.components != 1) return false;
      if (!keepsUnits(*field, column)) return false;
      numbers.push_back(found->second);
    }
    const bool isDescribed = attribute.fields.front()->meaning != nullptr;
    if (isDescribed) {
      plan_.descriptors.push_back(attribute.descriptor);
    } else {
      describeBytesInto(plan_.descriptors, attribute.fields.size());
    }
    for (const std::size_t number : numbers) {
      place(number, 0, source_.fields[number].type);
      open_.erase(source_.fields[number].name);
    }
    return true;
  }

  /// The first file's record and record length as they are, unused bytes included.
  ExtraBytesPlan verbatim(const PointLayout& layout) {
    plan_.isVerbatim = true;
    plan_.descriptors.clear();
    plan_.byteCount = static_cast<std::uint16_t>(layout.recordBytes() -
                                                 standardRecordBytes(layout.pointFormat()));
    return std::move(plan_);
  }

  void append(std::size_t number) {
    const ExportField& field = source_.fields[number];
    for (std::size_t c = 0; c < field.components; ++c) {
      plan_.descriptors.push_back(describe(field, c));
      place(number, c, field.type);
    }
  }

  ExtraBytesDescriptor describe(const ExportField& field, std::size_t component) {
    const MemCore::Attributes& properties = field.field->properties();
    std::string name =
        field.components == 1 ? field.name : fmt::format("{}[{}]", field.name, component);
    if (name.size() > kNameBytes) {
      plan_.notes.push_back(fmt::format("field {}: its name is cut to {} bytes", name, kNameBytes));
      name.resize(kNameBytes);
    }
    std::string about = MemCore::textAttribute(properties, "Description");
    about.resize(std::min(about.size(), kNameBytes));
    ExtraBytesDescriptor descriptor = describeExtraBytes(std::move(name), field.type, about);
    descriptor.scale = triple(numberOf<double>(properties, "Scale"));
    descriptor.offset = triple(numberOf<double>(properties, "Offset"));
    descriptor.noData = triple(noDataOf(properties, field.type));
    setOptions(descriptor);
    return descriptor;
  }

  /// Bits that say which of the values count. Source: LAS 1.4 - R15, table 25.
  static void setOptions(ExtraBytesDescriptor& descriptor) {
    constexpr unsigned kNoData = 1U << 0U;
    constexpr unsigned kScale = 1U << 3U;
    constexpr unsigned kOffset = 1U << 4U;
    descriptor.options = static_cast<std::uint8_t>((descriptor.noData ? kNoData : 0U) |
                                                   (descriptor.scale ? kScale : 0U) |
                                                   (descriptor.offset ? kOffset : 0U));
  }

  void place(std::size_t number, std::size_t component, ElementType type) {
    plan_.places.push_back({number, component, static_cast<std::uint16_t>(bytes_)});
    bytes_ += elementBytes(type);
  }

  const ExportSource& source_;
  std::map<std::string, std::size_t> open_;  ///< fields without a place, by name
  ExtraBytesPlan plan_;
  std::size_t bytes_ = 0;
};

}  // namespace

Outcome<ExtraBytesPlan> planExtraBytes(const ExportSource& source,
                                       std::span<const std::size_t> fields) {
  return Planner(source, fields).plan();
}

}  // namespace Formats
