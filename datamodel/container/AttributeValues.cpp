// SPDX-License-Identifier: Apache-2.0

#include "datamodel/container/AttributeValues.hpp"

#include <fmt/format.h>

#include "datamodel/container/StoredValue.hpp"

namespace Fiber::Container {

using MemCore::Chunk;
using MemCore::ChunkBase;
using MemCore::Failure;
using MemCore::Outcome;
using MemCore::StrongPtr;

namespace {

Failure within(const std::string& name, std::string_view what) {
  return Failure{fmt::format("attribute {}: {}", name, what)};
}

Outcome<const ObjectValue*> find(const ObjectValues& values, const std::string& name) {
  const auto found = values.find(name);
  if (found == values.end()) return within(name, "missing");
  return &found->second;
}

}  // namespace

Outcome<void> setValue(ObjectValues& values, const std::string& storedName,
                       const ChunkBase& value) {
  auto stored = valueOf(value);
  if (!stored.ok()) return within(storedName, stored.error());
  values[storedName] = std::move(stored).value();
  return {};
}

template <class T>
void setNumbers(ObjectValues& values, const std::string& name, std::span<const T> numbers) {
  values[name] = valueOf(Chunk<T>(numbers)).value();
}

template <class T>
void setNumber(ObjectValues& values, const std::string& name, T number) {
  setNumbers(values, name, std::span<const T>(&number, 1));
  values[name].extents = ObjectExtents::one();
}

void setText(ObjectValues& values, const std::string& name, std::string_view text) {
  values[name] = valueOf(Chunk<char>(std::span<const char>(text))).value();
}

void setTexts(ObjectValues& values, const std::string& name,
              const std::vector<std::string>& texts) {
  values[name] = textListOf(texts);
}

bool hasValue(const ObjectValues& values, const std::string& storedName) {
  return values.contains(storedName);
}

Outcome<StrongPtr<ChunkBase>> chunkIn(const ObjectValues& values, const std::string& storedName) {
  const auto value = find(values, storedName);
  if (!value.ok()) return value.failure();
  auto chunk = chunkOf(**value);
  if (!chunk.ok()) return within(storedName, chunk.error());
  return chunk;
}

template <class T>
Outcome<std::vector<T>> numbersIn(const ObjectValues& values, const std::string& name,
                                  std::size_t count) {
  const auto chunk = chunkIn(values, name);
  if (!chunk.ok()) return chunk.failure();
  const auto numbers = MemCore::chunkCast<T>(*chunk);
  if (!numbers || numbers->size() != count) {
    return within(name, fmt::format("of another type or length, expected {} values of {} bytes",
                                    count, sizeof(T)));
  }
  return std::vector<T>(numbers->begin(), numbers->end());
}

Outcome<std::string> textIn(const ObjectValues& values, const std::string& name) {
  const auto chunk = chunkIn(values, name);
  if (!chunk.ok()) return chunk.failure();
  const auto text = MemCore::chunkCast<char>(*chunk);
  if (!text) return within(name, "no text");
  return std::string(text->begin(), text->end());
}

Outcome<std::vector<std::string>> textsIn(const ObjectValues& values, const std::string& name) {
  const auto value = find(values, name);
  if (!value.ok()) return value.failure();
  auto texts = textsOf(**value);
  if (!texts.ok()) return within(name, texts.error());
  return texts;
}

template void setNumbers(ObjectValues&, const std::string&, std::span<const std::uint64_t>);
template void setNumbers(ObjectValues&, const std::string&, std::span<const double>);
template void setNumber(ObjectValues&, const std::string&, std::int32_t);
template void setNumber(ObjectValues&, const std::string&, std::uint32_t);
template void setNumber(ObjectValues&, const std::string&, std::uint64_t);
template void setNumber(ObjectValues&, const std::string&, double);
template Outcome<std::vector<std::int32_t>> numbersIn(const ObjectValues&, const std::string&,
                                                      std::size_t);
template Outcome<std::vector<std::uint32_t>> numbersIn(const ObjectValues&, const std::string&,
                                                       std::size_t);
template Outcome<std::vector<std::uint64_t>> numbersIn(const ObjectValues&, const std::string&,
                                                       std::size_t);
template Outcome<std::vector<double>> numbersIn(const ObjectValues&, const std::string&,
                                                std::size_t);

}  // namespace Fiber::Container
