// SPDX-License-Identifier: Apache-2.0
//
// Bundles written to files and read back: nothing may be lost, changed or added.

#include <gmock/gmock.h>

#include <fstream>
#include <sstream>

#include "tests/datamodel/container/ModelCompare.hpp"
#include "tests/datamodel/container/RandomModel.hpp"
#include "tests/support/Seed.hpp"
#include "tests/support/TempDir.hpp"

namespace Fiber::Container {
namespace {

using LidarLib::TestSupport::TempDir;
using MemCore::makeStrong;

constexpr StorageKind kKinds[] = {StorageKind::Grid, StorageKind::Deflate, StorageKind::Raw};

MemCore::StrongPtr<StorageTransformations> stored(StorageKind kind) {
  auto transformations = makeStrong<StorageTransformations>();
  transformations->kind = kind;
  transformations->durable = false;
  return transformations;
}

std::string contentsOf(const std::string& path) {
  std::ostringstream text;
  text << std::ifstream(path).rdbuf();
  return text.str();
}

TEST(BundleRoundTrip, RandomModelsReturnExactly) {
  const std::uint64_t seed = LidarLib::TestSupport::testSeed();
  const TempDir folder;
  for (int round = 0; round < 60; ++round) {
    std::mt19937_64 random(seed + static_cast<std::uint64_t>(round));
    const BundlePtr model = randomModel(random);
    for (const StorageKind kind : kKinds) {
      const std::string file = folder / "model.f5";
      const auto saved = model->save(file, nullptr, stored(kind));
      ASSERT_TRUE(saved.ok()) << saved.error() << " round " << round;
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
  for (int round = 0; round < 20; ++round) {
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
