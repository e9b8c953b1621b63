// SPDX-License-Identifier: Apache-2.0
//
// Attributes: a set of named values, each a chunk. Grids, fields and creators carry one.

#pragma once

#include <map>
#include <string>

#include "datamodel/memcore/Chunk.hpp"

namespace MemCore {

/// Named chunks in ascending order of name. Copying copies the names and shares the chunks, which
/// are therefore never changed once set: a new value is a new chunk.
class FIBER_API Attributes {
 public:
  /// Sets or replaces a value. An empty handle removes the name.
  void setAttribute(const std::string& name, const StrongPtr<ChunkBase>& value);

  /// The value of that name; empty when there is none.
  StrongPtr<ChunkBase> getAttribute(const std::string& name) const;

  const std::map<std::string, StrongPtr<ChunkBase>>& all() const { return values_; }

 private:
  std::map<std::string, StrongPtr<ChunkBase>> values_;
};

/// Sets a text as a chunk of char.
FIBER_API void setTextAttribute(Attributes& attributes, const std::string& name,
                                const std::string& text);

/// Reads a text back; empty when absent or no chunk of char.
FIBER_API std::string textAttribute(const Attributes& attributes, const std::string& name);

}  // namespace MemCore
