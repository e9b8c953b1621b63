// SPDX-License-Identifier: Apache-2.0
//
// The three entry points agree: the same tiles with the same points, values and attributes, whether
// each has a file of its own, all are in one file, or the files were linked afterwards.

#include <omp.h>

#include <algorithm>
#include <cmath>

#include "tests/operation/RandomCase.hpp"
#include "tests/operation/SplitFixture.hpp"
#include "tests/support/Seed.hpp"

namespace LidarLib::TestSupport {

namespace {

/// One fragment of one field: its facts, and its values as bytes.
struct FragmentContents {
  Fiber::DynamicSize size;
  std::optional<Fiber::ValueRange> range;
  std::vector<double> box;
  std::vector<std::byte> bytes;
  bool operator==(const FragmentContents& other) const {
    const bool sameRange =
        range.has_value() == other.range.has_value() &&
        (!range || (range->min == other.range->min && range->max == other.range->max));
    return size == other.size && sameRange && box == other.box && bytes == other.bytes;
  }
};

using GridContents = std::map<std::pair<std::string, std::string>, FragmentContents>;

/// Everything that a grid holds, by field and fragment name.
GridContents contentsOf(const Fiber::Grid& grid) {
  GridContents contents;
  for (const auto& [name, field] : grid.getCartesianRepresentation("")->fields()) {
    for (const auto& id : field->getFragmentIDs()) {
      const auto creator = field->getCreator(id);
      if (!creator) continue;
      FragmentContents& fragment = contents[{name, id->name()}];
      const auto facts = creator->facts();
      if (facts.size) fragment.size = *facts.size;
      fragment.range = facts.range;
      if (facts.box) {
        for (const Point& corner : {facts.box->min(), facts.box->max()}) {
          fragment.box.insert(fragment.box.end(), {corner.x, corner.y, corner.z});
        }
      }
      const auto data = creator->data();
      if (!data) continue;
      const auto* bytes = data->elements()->bytes();
      fragment.bytes.assign(bytes, bytes + data->elements()->byteCount());
    }
  }
  return contents;
}

std::vector<double> lengthAttribute(const Fiber::Grid& grid) {
  const auto chunk =
      MemCore::handleCast<MemCore::Chunk<Point>>(grid.attributes().getAttribute("FragLength"));
  return chunk ? std::vector<double>{(*chunk)[0].x, (*chunk)[0].y, (*chunk)[0].z}
               : std::vector<double>();
}

class EntryPointsTest : public SplitFixture {
 protected:
  MemCore::StrongPtr<Fiber::Grid> onlyGrid(const std::string& file) const {
    const auto bundle = load(file);
    if (!bundle || bundle->slices().empty()) return nullptr;
    const auto& grids = bundle->slices().begin()->second->grids();
    return grids.empty() ? nullptr : grids.begin()->second;
  }

  std::vector<std::string> tilePaths() const {
    std::vector<std::string> paths;
    for (const std::string& name : tileFiles()) paths.push_back(folder / ("out/" + name));
    return paths;
  }
};

}  // namespace

TEST_F(EntryPointsTest, HoldTheSameTiles) {
  CaseMaker maker(testSeed());
  omp_set_num_threads(1);  // the same points in the same order
  int compared = 0;
  for (int round = 0; round < 25; ++round) {
    const RandomCase test = maker.make();
    std::filesystem::remove_all(folder / "out");
    RefragmentAndSplit split;
    prepare(split, test.cloud.bundle());
    test.prepare(split);
    ASSERT_TRUE(split.Run());

    RefragmentAndSplit unlinked;
    prepare(unlinked, test.cloud.bundle());
    test.prepare(unlinked);
    unlinked.outputFileName = folder / "single.f5";
    ASSERT_TRUE(unlinked.RunUnlinked());
    EXPECT_EQ(unlinked.messages, split.messages);

    const auto linked = onlyGrid("out.f5");
    const auto single = onlyGrid("single.f5");
    ASSERT_TRUE(linked && single);
    const GridContents expected = contentsOf(*linked);
    EXPECT_TRUE(contentsOf(*single) == expected) << "round " << round;
    EXPECT_EQ(lengthAttribute(*single), lengthAttribute(*linked));
    if (tileFiles().empty()) continue;

    RefragmentAndSplit update;
    update.inputFiles = MemCore::makeStrong<std::vector<std::string>>(tilePaths());
    update.outputFileName = folder / "again.f5";
    ASSERT_TRUE(update.UpdateLinked());
    const auto again = onlyGrid("again.f5");
    ASSERT_TRUE(again);
    EXPECT_EQ(again->name(), "LinkedGrid");
    EXPECT_TRUE(contentsOf(*again) == expected) << "round " << round;
    EXPECT_EQ(lengthAttribute(*again), lengthAttribute(*linked));
    ++compared;
    if (HasFailure()) return;
  }
  EXPECT_GT(compared, 10);
}

TEST_F(EntryPointsTest, ReSplittingGivesEveryPointBackOnce) {
  CaseMaker maker(testSeed() + 1);
  for (int round = 0; round < 10; ++round) {
    RandomCase test = maker.make();
    test.hasCorners = false;
    test.overlap = 0.0;
    // Odd coordinates belong to given corners.
    if (std::any_of(test.points.begin(), test.points.end(), [](const Point& p) {
          return !(std::isfinite(p.x) && std::isfinite(p.y) && std::isfinite(p.z));
        })) {
      continue;
    }
    std::filesystem::remove_all(folder / "out");
    RefragmentAndSplit first;
    prepare(first, test.cloud.bundle());
    test.prepare(first);
    ASSERT_TRUE(first.Run());
    const auto points = [&](const std::string& file) {
      return fieldValues<std::uint32_t>(*onlyGrid(file), "Id");
    };
    auto ids = points("out.f5");
    for (const std::string input : {"out.f5", "single.f5"}) {
      RefragmentAndSplit second;
      prepare(second, load(input == "out.f5" ? "out.f5" : "single.f5"));
      second.FragmentLength = {{7.5, 12.25, 0}};
      second.outputFileName = folder / (input == "out.f5" ? "single.f5" : "third.f5");
      ASSERT_TRUE(second.RunUnlinked());
      EXPECT_TRUE(second.messages.empty());
      auto again = points(input == "out.f5" ? "single.f5" : "third.f5");
      std::sort(again.begin(), again.end());
      std::sort(ids.begin(), ids.end());
      EXPECT_EQ(again, ids) << "round " << round;
    }
  }
}

}  // namespace LidarLib::TestSupport
