// SPDX-License-Identifier: Apache-2.0
//
// Damaged bundle files: whatever happened to the bytes, reading ends with a text or with the data
// as they were, and never with a crash, a hang or other data.

#include <gmock/gmock.h>

#include <algorithm>
#include <cstdlib>
#include <optional>
#include <random>

#include "datamodel/container/SourceFile.hpp"
#include "tests/datamodel/container/FileTexts.hpp"
#include "tests/datamodel/container/ModelCompare.hpp"
#include "tests/datamodel/container/RandomModel.hpp"
#include "tests/support/Seed.hpp"
#include "tests/support/TempDir.hpp"

namespace Fiber::Container {
namespace {

using LidarLib::TestSupport::TempDir;
using MemCore::makeStrong;

/// Damaged files per test, and how many of them come from one model. A longer hunt is started by
/// an environment variable.
const int kRounds = [] {
  const char* factor = std::getenv("LIDARLIB_TEST_ROUNDS");
  return 300 * (factor == nullptr ? 1 : std::max(1, std::atoi(factor)));
}();
constexpr int kRoundsPerModel = 30;

/// A saved model and its bytes.
struct SavedModel {
  SavedModel(const TempDir& folder, std::uint64_t seed, StorageKind kind) : file(folder / "m.f5") {
    std::mt19937_64 random(seed);
    model = randomModel(random, {200, 3});
    auto transformations = makeStrong<StorageTransformations>();
    transformations->kind = kind;
    transformations->durable = false;
    const auto saved = model->save(file, nullptr, transformations);
    EXPECT_TRUE(saved.ok()) << saved.error();
    bytes = contentsOf(file);
  }
  BundlePtr model;
  std::string file;
  std::string bytes;
};

/// Whether every creator of the bundle gives its data.
bool allDataReadable(const Bundle& bundle) {
  bool readable = true;
  for (const auto& [time, slice] : bundle.slices()) {
    for (const auto& [name, grid] : slice->grids()) {
      for (const auto& [id, skeleton] : grid->skeletons().all()) {
        std::unordered_set<unsigned long long> visited;
        skeleton->iterate_fields(
            [&](const auto&, Representation&, const FieldID&, const auto& field) {
              for (const FragmentHandle& fragment : field->getFragmentIDs()) {
                const auto creator = field->getCreator(fragment);
                if (!creator || creator->data()) continue;
                readable = false;
                EXPECT_NE(creator->failure(), "");
              }
              return true;
            },
            visited);
      }
    }
  }
  return readable;
}

/// Reads a damaged file; the result is what differs although nothing was noticed, empty when all is
/// well. `noticed` counts the files that gave a text.
std::string silentChange(const SavedModel& saved, int& noticed) {
  SourceFiles::instance().clear();
  std::string failure;
  bool ok = false;
  const auto parameters =
      makeStrong<MemCore::LoaderParameters>(MemCore::LoaderParameters{{saved.file}, false});
  const BundlePtr back = Bundle::load(ok, parameters, nullptr, &failure);
  if (!ok || !allDataReadable(*back)) {
    ++noticed;
    return "";
  }
  return differenceOf(*saved.model, *back);
}

class DamagedFile : public testing::TestWithParam<StorageKind> {};

TEST_P(DamagedFile, FlippedBitsAreNoticedOrHarmless) {
  const std::uint64_t seed = LidarLib::TestSupport::testSeed();
  const TempDir folder;
  std::mt19937_64 random(seed);
  int noticed = 0;
  std::optional<SavedModel> saved;
  for (int round = 0; round < kRounds; ++round) {
    if (round % kRoundsPerModel == 0) {
      saved.emplace(folder, seed + static_cast<std::uint64_t>(round), GetParam());
    }
    std::string damaged = saved->bytes;
    const std::size_t at = random() % damaged.size();
    damaged[at] = static_cast<char>(damaged[at] ^ (1 << (random() % 8)));
    replaceFile(saved->file, damaged);
    EXPECT_EQ(silentChange(*saved, noticed), "")
        << "round " << round << ", byte " << at << " of " << damaged.size();
  }
  EXPECT_GT(noticed, kRounds / 4);
}

TEST_P(DamagedFile, TruncatedFilesAreRefused) {
  const std::uint64_t seed = LidarLib::TestSupport::testSeed();
  const TempDir folder;
  const SavedModel saved(folder, seed, GetParam());
  std::mt19937_64 random(seed);
  for (int round = 0; round < 150; ++round) {
    const std::size_t length =
        round < 20 ? static_cast<std::size_t>(round) * 7 : random() % saved.bytes.size();
    replaceFile(saved.file, saved.bytes.substr(0, length));
    int noticed = 0;
    silentChange(saved, noticed);
    EXPECT_EQ(noticed, 1) << "length " << length << " of " << saved.bytes.size();
  }
}

TEST_P(DamagedFile, OverwrittenBlocksAreNoticedOrHarmless) {
  const std::uint64_t seed = LidarLib::TestSupport::testSeed();
  const TempDir folder;
  std::mt19937_64 random(seed);
  std::optional<SavedModel> saved;
  for (int round = 0; round < kRounds; ++round) {
    if (round % kRoundsPerModel == 0) {
      saved.emplace(folder, seed + static_cast<std::uint64_t>(round), GetParam());
    }
    std::string damaged = saved->bytes;
    const std::size_t at = random() % damaged.size();
    const std::size_t length = std::min<std::size_t>(1 + random() % 600, damaged.size() - at);
    const bool zeros = random() % 2 == 0;
    for (std::size_t i = at; i < at + length; ++i) {
      damaged[i] = zeros ? '\0' : static_cast<char>(random());
    }
    replaceFile(saved->file, damaged);
    int noticed = 0;
    EXPECT_EQ(silentChange(*saved, noticed), "")
        << "round " << round << ", " << length << " at " << at;
  }
}

INSTANTIATE_TEST_SUITE_P(AllKinds, DamagedFile,
                         testing::Values(StorageKind::Grid, StorageKind::Deflate,
                                         StorageKind::Raw));

}  // namespace
}  // namespace Fiber::Container
