// SPDX-License-Identifier: Apache-2.0

#include "datamodel/memcore/Attributes.hpp"

namespace MemCore {

void Attributes::setAttribute(const std::string& name, const StrongPtr<ChunkBase>& value) {
  if (value) {
    values_[name] = value;
  } else {
    values_.erase(name);
  }
}

StrongPtr<ChunkBase> Attributes::getAttribute(const std::string& name) const {
  const auto found = values_.find(name);
  return found == values_.end() ? nullptr : found->second;
}

void setTextAttribute(Attributes& attributes, const std::string& name, const std::string& text) {
  attributes.setAttribute(name,
                          makeStrong<Chunk<char>>(std::span<const char>(text.data(), text.size())));
}

std::string textAttribute(const Attributes& attributes, const std::string& name) {
  const auto chunk = chunkCast<char>(attributes.getAttribute(name));
  return chunk ? std::string(chunk->data(), chunk->size()) : std::string();
}

}  // namespace MemCore
