// SPDX-License-Identifier: Apache-2.0
//
// Bundles written to files and read back: nothing may be lost, changed or added.

#include <gmock/gmock.h>

#include "tests/datamodel/container/BundleSteps.hpp"
#include "tests/datamodel/container/FileTexts.hpp"
#include "tests/datamodel/container/ModelCompare.hpp"
#include "tests/datamodel/container/RandomModel.hpp"
#include "tests/support/Seed.hpp"
#include "tests/support/TempDir.hpp"

namespace Fiber::Container {
namespace {

using LidarLib::TestSupport::TempDir;

constexpr StorageKind kKinds[] = {StorageKind::Grid, StorageKind::Deflate, StorageKind::Raw};

TEST(BundleRoundTrip, RandomModelsReturnExactly) {
  const std::uint64_t seed = LidarLib::TestSupport::testSeed();
  const TempDir folder;
  for (int round = 0; round < 30; ++round) {
    std::mt19937_64 random(seed + static_cast<std::uint64_t>(round));
    const BundlePtr model = randomModel(random);
    for (const StorageKind kind : kKinds) {
      const std::string file = folder / "model.f5";
      if (round % 2 == 0) {
        saveTo(file, model, kind);
      } else {
        writeInBatches(model, file, kind, {1 + random() % 10000, random() % 20000});
      }
      const BundlePtr back = loadBundle(file);
      ASSERT_TRUE(bool(back)) << "round " << round;
      ASSERT_EQ(differenceOf(*model, *back), "")
          << "round " << round << " kind " << static_cast<int>(kind);
    }
  }
}

TEST(BundleRoundTrip, SameModelGivesTheSameBytes) {
  const std::uint64_t seed = LidarLib::TestSupport::testSeed();
  const TempDir folder;
  for (int round = 0; round < 10; ++round) {
    for (const StorageKind kind : kKinds) {
      for (const char* name : {"first.f5", "second.f5"}) {
        std::mt19937_64 random(seed + static_cast<std::uint64_t>(round));
        ASSERT_TRUE(randomModel(random)->save(folder / name, nullptr, stored(kind)).ok());
      }
      ASSERT_EQ(contentsOf(folder / "first.f5"), contentsOf(folder / "second.f5"))
          << "round " << round << " kind " << static_cast<int>(kind);
    }
  }
}

}  // namespace
}  // namespace Fiber::Container
