// SPDX-License-Identifier: Apache-2.0
//
// Asks a bundle for everything that it claims to hold.

#pragma once

#include <unordered_set>

#include "datamodel/fiber/Bundle.hpp"

namespace Fuzz {

/// Makes the data, the box and the range of every fragment of every field.
inline void readEverything(const Fiber::Bundle& bundle) {
  for (const auto& [time, slice] : bundle.slices()) {
    for (const auto& [name, grid] : slice->grids()) {
      const auto vertices = grid->skeletons().findVertices(-1);
      if (!vertices) continue;
      std::unordered_set<unsigned long long> visited;
      vertices->iterate_fields(
          [](const auto&, auto&, const Fiber::FieldID&, const auto& field) {
            for (const auto& id : field->getFragmentIDs()) {
              const auto creator = field->getCreator(id);
              if (!creator) continue;
              MemCore::StrongPtr<Eagle::BoundingBox> box;
              creator->data();
              Fiber::ExpandBBox(box, *creator, Fiber::DataCreationMode::KnownOrCreate);
              Fiber::rangeOf(*creator);
            }
            return true;
          },
          visited);
    }
  }
}

}  // namespace Fuzz
