// SPDX-License-Identifier: Apache-2.0

#include "tests/datamodel/container/BundleSteps.hpp"

#include <gtest/gtest.h>

#include "datamodel/container/AtomicFile.hpp"
#include "datamodel/container/BundlePlan.hpp"
#include "datamodel/container/BundleWriter.hpp"

namespace Fiber::Container {

using MemCore::StrongPtr;

StrongPtr<StorageTransformations> stored(StorageKind kind, bool linkFragments) {
  auto transformations = MemCore::makeStrong<StorageTransformations>();
  transformations->kind = kind;
  transformations->durable = false;
  transformations->linkFragments = linkFragments;
  return transformations;
}

void saveTo(const std::string& file, const BundlePtr& bundle, StorageKind kind,
            bool linkFragments) {
  const auto saved = bundle->save(file, nullptr, stored(kind, linkFragments));
  if (!saved.ok()) ADD_FAILURE() << saved.error();
}

int writeInBatches(const BundlePtr& bundle, const std::string& file, StorageKind kind,
                   const BatchSizes& sizes) {
  auto plan = planBundle(*bundle, file, true);
  if (!plan.ok()) {
    ADD_FAILURE() << plan.error();
    return 0;
  }
  for (int attempts = 1;; ++attempts) {
    auto output = AtomicFile::make(file);
    EXPECT_TRUE(output.ok());
    const WriteTarget target{output->descriptor(), kind, sizes};
    const auto result = writeBundle(*plan, target, {});
    if (!result.ok()) {
      ADD_FAILURE() << result.error();
      return attempts;
    }
    if (*result == WriteResult::kMustRestart) continue;
    EXPECT_TRUE(output->commit(Durability::kUnsynced).ok());
    return attempts;
  }
}

StrongPtr<Field> fieldOf(const Bundle& bundle, const std::string& name) {
  for (const auto& [time, slice] : bundle.slices()) {
    for (const auto& [gridName, grid] : slice->grids()) {
      const auto representation = grid->getCartesianRepresentation("");
      return representation ? representation->findField(name) : nullptr;
    }
  }
  return nullptr;
}

CreatorHandle creatorOf(const Bundle& bundle, const std::string& field, std::size_t k) {
  const auto found = fieldOf(bundle, field);
  if (!found) return nullptr;
  const auto fragments = found->getFragmentIDs();
  return k < fragments.size() ? found->getCreator(fragments[k]) : nullptr;
}

}  // namespace Fiber::Container
