// SPDX-License-Identifier: Apache-2.0
//
// A bundle file being written: values go to its end as they come, its objects are kept as a tree,
// which follows behind them when all is known. The file is not readable before finish().

#pragma once

#include <cstdint>
#include <span>
#include <string>

#include "datamodel/container/ContentHash.hpp"
#include "datamodel/container/objects/ObjectTree.hpp"
#include "datamodel/memcore/Outcome.hpp"

namespace Fiber::Container {

class OutputFile {
 public:
  /// Begins a file anew; whatever stands in it is cut off. `name` is for messages: errors here and
  /// below are "<name>: ...". Requires: the descriptor stays open.
  static MemCore::Outcome<OutputFile> begin(int descriptor, std::string name);

  const std::string& name() const { return name_; }
  ObjectGroup& root() { return root_; }
  ContentHash& contents() { return contents_; }

  /// Room for so many bytes; where it begins. Large pieces are aligned.
  std::uint64_t reserve(std::uint64_t byteCount);
  /// Writes into room that was reserved.
  MemCore::Outcome<void> write(std::uint64_t address, std::span<const std::byte> bytes) const;
  /// Writes pieces one behind the other; where the first begins.
  MemCore::Outcome<std::uint64_t> append(std::span<const std::span<const std::byte>> pieces);

  /// Adds a small dataset in one piece, with a checksum as its attribute.
  MemCore::Outcome<void> addDataset(ObjectGroup& group, const std::string& name, ObjectValue value);

  /// Writes the objects, and at last what makes it a file of its format.
  MemCore::Outcome<void> finish();

 private:
  OutputFile(int descriptor, std::string name);
  MemCore::Outcome<void> cutTo(std::uint64_t byteCount) const;

  int descriptor_;
  std::string name_;
  ObjectGroup root_;
  ContentHash contents_;
  std::uint64_t end_;
};

}  // namespace Fiber::Container
