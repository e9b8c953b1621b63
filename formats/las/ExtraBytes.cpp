// SPDX-License-Identifier: Apache-2.0

#include "formats/las/ExtraBytes.hpp"

#include <algorithm>

#include "formats/las/ByteStream.hpp"
#include "formats/las/VariableRecord.hpp"

namespace Formats {

namespace {

constexpr std::size_t kTextBytes = 32;
constexpr std::uint8_t kUndocumented = 0;
constexpr std::uint8_t kTypesPerArity = 10;

/// Bits of a descriptor's options.
constexpr unsigned kHasNoData = 1U << 0;
constexpr unsigned kHasMinimum = 1U << 1;
constexpr unsigned kHasMaximum = 1U << 2;
constexpr unsigned kHasScale = 1U << 3;
constexpr unsigned kHasOffset = 1U << 4;

/// Element types in the order of the data types 1 to 10.
constexpr std::array kTypes{ElementType::UInt8,  ElementType::Int8,   ElementType::UInt16,
                            ElementType::Int16,  ElementType::UInt32, ElementType::Int32,
                            ElementType::UInt64, ElementType::Int64,  ElementType::Float32,
                            ElementType::Float64};

using Triple = std::array<ExtraBytesValue, 3>;

bool isFloating(ElementType type) {
  return type == ElementType::Float32 || type == ElementType::Float64;
}

bool isSigned(ElementType type) {
  return type == ElementType::Int8 || type == ElementType::Int16 || type == ElementType::Int32 ||
         type == ElementType::Int64;
}

ExtraBytesValue takeValue(ByteReader& reader, ElementType type) {
  if (isFloating(type)) return reader.take<double>();
  if (isSigned(type)) return reader.take<std::int64_t>();
  return reader.take<std::uint64_t>();
}

std::optional<Triple> takeTriple(ByteReader& reader, ElementType type, bool isMeaningful) {
  Triple values;
  for (ExtraBytesValue& value : values) value = takeValue(reader, type);
  return isMeaningful ? std::optional<Triple>(values) : std::nullopt;
}

std::optional<std::array<double, 3>> takeDoubles(ByteReader& reader, bool isMeaningful) {
  const auto values = reader.take<std::array<double, 3>>();
  return isMeaningful ? std::optional(values) : std::nullopt;
}

/// Type and number of the elements that a data type and its options stand for.
void setElements(ExtraBytesDescriptor& descriptor) {
  if (descriptor.dataType == kUndocumented) {
    descriptor.componentCount = descriptor.options;
  } else if (descriptor.dataType > kMaxExtraBytesType) {
    descriptor.componentCount = 0;
  } else {
    const unsigned index = descriptor.dataType - 1U;
    descriptor.type = kTypes[index % kTypesPerArity];
    descriptor.componentCount = static_cast<std::uint16_t>(1 + index / kTypesPerArity);
  }
}

ExtraBytesDescriptor takeDescriptor(ByteReader& reader) {
  ExtraBytesDescriptor descriptor;
  reader.take<std::uint16_t>();
  descriptor.dataType = reader.take<std::uint8_t>();
  descriptor.options = reader.take<std::uint8_t>();
  descriptor.name = textBeforeNul(reader.takeText(kTextBytes));
  reader.take<std::uint32_t>();
  setElements(descriptor);
  // The options of an undocumented attribute are its width, not a set of bits.
  const unsigned options = descriptor.dataType == kUndocumented ? 0U : descriptor.options;
  descriptor.noData = takeTriple(reader, descriptor.type, (options & kHasNoData) != 0);
  descriptor.minimum = takeTriple(reader, descriptor.type, (options & kHasMinimum) != 0);
  descriptor.maximum = takeTriple(reader, descriptor.type, (options & kHasMaximum) != 0);
  descriptor.scale = takeDoubles(reader, (options & kHasScale) != 0);
  descriptor.offset = takeDoubles(reader, (options & kHasOffset) != 0);
  descriptor.description = textBeforeNul(reader.takeText(kTextBytes));
  return descriptor;
}

void putTriple(ByteWriter& writer, const std::optional<Triple>& values) {
  for (const ExtraBytesValue& value : values.value_or(Triple{})) {
    std::visit([&](auto stored) { writer.put(stored); }, value);
  }
}

void putDescriptor(ByteWriter& writer, const ExtraBytesDescriptor& descriptor) {
  writer.put(std::uint16_t{0});
  writer.put(descriptor.dataType);
  writer.put(descriptor.options);
  writer.putText(descriptor.name, kTextBytes);
  writer.put(std::uint32_t{0});
  putTriple(writer, descriptor.noData);
  putTriple(writer, descriptor.minimum);
  putTriple(writer, descriptor.maximum);
  writer.put(descriptor.scale.value_or(std::array<double, 3>{}));
  writer.put(descriptor.offset.value_or(std::array<double, 3>{}));
  writer.putText(descriptor.description, kTextBytes);
}

}  // namespace

std::size_t elementBytes(ElementType type) {
  constexpr std::array<std::size_t, 10> kBytes{1, 1, 2, 2, 4, 4, 8, 8, 4, 8};
  return kBytes[static_cast<std::size_t>(type)];
}

const char* elementTypeName(ElementType type) {
  constexpr std::array kNames{"uint8", "int8",   "uint16", "int16",   "uint32",
                              "int32", "uint64", "int64",  "float32", "float64"};
  return kNames[static_cast<std::size_t>(type)];
}

std::size_t extraBytesWidth(const ExtraBytesDescriptor& descriptor) {
  return elementBytes(descriptor.type) * descriptor.componentCount;
}

std::vector<ExtraBytesDescriptor> parseExtraBytes(std::span<const std::byte> payload) {
  std::vector<ExtraBytesDescriptor> descriptors(payload.size() / kExtraBytesDescriptorBytes);
  ByteReader reader(payload);
  std::generate(descriptors.begin(), descriptors.end(), [&] { return takeDescriptor(reader); });
  return descriptors;
}

std::vector<std::byte> serialiseExtraBytes(std::span<const ExtraBytesDescriptor> descriptors) {
  ByteWriter writer;
  for (const ExtraBytesDescriptor& descriptor : descriptors) putDescriptor(writer, descriptor);
  return writer.finish();
}

ExtraBytesDescriptor describeExtraBytes(std::string name, ElementType type,
                                        std::string description) {
  ExtraBytesDescriptor descriptor;
  descriptor.name = std::move(name);
  descriptor.description = std::move(description);
  descriptor.type = type;
  const auto found = std::find(kTypes.begin(), kTypes.end(), type);
  descriptor.dataType = static_cast<std::uint8_t>(1 + (found - kTypes.begin()));
  return descriptor;
}

}  // namespace Formats
