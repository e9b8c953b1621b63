// SPDX-License-Identifier: Apache-2.0
//
// The attributes of one object, by stored name: put there from chunks, numbers and texts, and taken
// out again as what they must be.

#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "datamodel/container/objects/ObjectTree.hpp"
#include "datamodel/memcore/Chunk.hpp"
#include "datamodel/memcore/Outcome.hpp"

namespace Fiber::Container {

/// Sets one value. Errors: "attribute <name>: ..." when its element type is none that files can
/// hold.
MemCore::Outcome<void> setValue(ObjectValues& values, const std::string& storedName,
                                const MemCore::ChunkBase& value);

/// Set numbers, one number (as a scalar), a text, or a list of texts of the format itself.
template <class T>
void setNumbers(ObjectValues& values, const std::string& name, std::span<const T> numbers);
template <class T>
void setNumber(ObjectValues& values, const std::string& name, T number);
void setText(ObjectValues& values, const std::string& name, std::string_view text);
void setTexts(ObjectValues& values, const std::string& name, const std::vector<std::string>& texts);

bool hasValue(const ObjectValues& values, const std::string& storedName);

/// One value as a chunk. Errors: "attribute <name>: ..." when it is missing or of a form that
/// bundle files do not use.
MemCore::Outcome<MemCore::StrongPtr<MemCore::ChunkBase>> chunkIn(const ObjectValues& values,
                                                                 const std::string& storedName);

/// Exactly `count` numbers of exactly that type, one number, a text, a list of texts.
/// Errors: missing, or of another kind.
template <class T>
MemCore::Outcome<std::vector<T>> numbersIn(const ObjectValues& values, const std::string& name,
                                           std::size_t count);
template <class T>
MemCore::Outcome<T> numberIn(const ObjectValues& values, const std::string& name) {
  auto numbers = numbersIn<T>(values, name, 1);
  if (!numbers.ok()) return numbers.failure();
  return numbers->front();
}
MemCore::Outcome<std::string> textIn(const ObjectValues& values, const std::string& name);
MemCore::Outcome<std::vector<std::string>> textsIn(const ObjectValues& values,
                                                   const std::string& name);

}  // namespace Fiber::Container
