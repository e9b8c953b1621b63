// SPDX-License-Identifier: Apache-2.0
//
// Tables of many fragments, which are planned, filled, read and checked in blocks.

#include <gmock/gmock.h>

#include <filesystem>

#include "datamodel/container/StoredCreator.hpp"
#include "datamodel/container/TableCheck.hpp"
#include "tests/datamodel/container/BundleSteps.hpp"
#include "tests/datamodel/container/FileTexts.hpp"
#include "tests/datamodel/container/ModelCompare.hpp"
#include "tests/support/TempDir.hpp"

namespace Fiber::Container {
namespace {

using LidarLib::TestSupport::TempDir;
using MemCore::makeStrong;
using MemCore::StrongPtr;

constexpr std::uint64_t kEdge = 160;  // tiles along x and y: a table of more than one block to read

/// The creator of tile t for one of the fields "A" and "B"; empty for some.
CreatorHandle madeUp(std::uint64_t t, const std::string& name) {
  if (t % 7 == 3 || (t % 5 == 1 && name == "B")) return nullptr;
  const auto value = static_cast<double>(t);
  ArrayFacts facts{FiberTypeBase::find("double"), DynamicSize{100 + t % 3}, nullptr, std::nullopt};
  if (t % 2 == 0) facts.range = ValueRange{value, value + 1};
  StoredSource source;
  const std::string folder = t < 9000 ? "first" : "second and longer";
  source.file = {"/data/" + folder + "/" + std::to_string(t * t) + ".f5", 1000 + t, t};
  source.group = t % 1000 < 500 ? "/0/a" : "/0/b";
  const std::uint64_t start = t % 11 == 0 && name == "B" ? 5 : 0;
  auto creator = makeStrong<StoredCreator>(
      facts, StoredPlace{std::make_shared<const StoredSource>(source),
                         std::make_shared<const std::string>(name), start, std::nullopt, nullptr});
  if (t % 13 == 0) LidarLib::setCellSizeAttribute(*creator, static_cast<double>(t % 4));
  return creator;
}

/// A tiling whose fragments lie in files that nobody has.
BundlePtr tiling() {
  BundlePtr bundle(new Bundle);
  const auto target = (*bundle)[0.0]->newGrid("points")->makeCartesianRepresentation(3, "", 0);
  for (const std::string name : {"A", "B"}) {
    const auto field = makeStrong<RegularlyFragmentedField<3>>(MultiIndex<3>{{kEdge, kEdge, 1}},
                                                               "tiles", target->fragments());
    target->setField(name, field);
    for (std::uint64_t t = 0; t < kEdge * kEdge; ++t) {
      field->setCreatorAt({{t % kEdge, t / kEdge, 0}}, madeUp(t, name));
    }
  }
  return bundle;
}

/// "" when the creator says what the made-up one would; else in what they differ.
std::string differenceOf(const CreatorHandle& found, const CreatorHandle& expected) {
  if (bool(found) != bool(expected)) return "presence";
  if (!found) return "";
  const auto& place = dynamic_cast<const StoredCreator&>(*found).place();
  const auto& plain = dynamic_cast<const StoredCreator&>(*expected).place();
  if (place.source->file.path != plain.source->file.path) return "path " + place.source->file.path;
  if (place.source->file.sizeBytes != plain.source->file.sizeBytes) return "file size";
  if (place.source->file.contentId != plain.source->file.contentId) return "content";
  if (place.source->group != plain.source->group) return "group";
  if (place.start != plain.start || *place.dataset != *plain.dataset) return "place";
  if (found->facts().size != expected->facts().size) return "extents";
  if (found->facts().range != expected->facts().range) return "range";
  const bool hasCellSize = bool(found->attributes().getAttribute("CellSize"));
  return hasCellSize == bool(expected->attributes().getAttribute("CellSize")) ? "" : "attributes";
}

TEST(ManyFragments, LinkedTableSaysOfEachWhatItsCreatorsKnow) {
  const TempDir folder;
  saveTo(folder / "linked.f5", tiling());
  ASSERT_GT(std::filesystem::file_size(folder / "linked.f5"), std::uint64_t{4} << 20U);
  const BundlePtr back = loadBundle(folder / "linked.f5");
  ASSERT_TRUE(bool(back));
  for (const std::string name : {"A", "B"}) {
    const auto field = MemCore::handleCast<RegularlyFragmentedField<3>>(fieldOf(*back, name));
    ASSERT_TRUE(bool(field));
    for (std::uint64_t t = 0; t < kEdge * kEdge; ++t) {
      const auto fragment = field->fragmentAt({{t % kEdge, t / kEdge, 0}});
      ASSERT_EQ(fragment->name(), tileIndexText({{t % kEdge, t / kEdge, 0}}));
      ASSERT_EQ(differenceOf(field->getCreator(fragment), madeUp(t, name)), "") << t;
    }
  }
}

TEST(ManyFragments, SavingALoadedTableGivesTheSameBytes) {
  const TempDir folder;
  saveTo(folder / "once.f5", tiling());
  saveTo(folder / "twice.f5", loadBundle(folder / "once.f5"));
  EXPECT_TRUE(contentsOf(folder / "once.f5") == contentsOf(folder / "twice.f5"));
}

/// The failure of a table of ten tiles in a row after a change, as the check of loading finds it.
template <class Change>
std::string failureAfter(const Change& change) {
  StoredRepresentation stored;
  stored.fields.resize(1);
  stored.fields[0].fragmentCounts = MultiIndex<3>{{10, 1, 1}};
  TableShape shape;
  shape.fieldCount = 1;
  shape.nameBytes = 10;
  stored.table = FragmentTable(shape, 10);
  for (std::uint32_t row = 0; row < 10; ++row) {
    stored.table.setText(row, Column::kName, tileIndexText({{row, 0, 0}}));
    stored.table.set<std::uint32_t>(row, Column::kNumber, row);
  }
  change(stored.table);
  const auto checked = checkTable(stored);
  return checked.ok() ? "" : checked.error();
}

TEST(ManyFragments, TilesOfOneNameOrNumberAreFound) {
  EXPECT_EQ(failureAfter([](FragmentTable&) {}), "");
  EXPECT_EQ(failureAfter([](FragmentTable& table) { table.setText(7, Column::kName, "other"); }),
            "")
      << "a fragment may have any name";
  EXPECT_EQ(failureAfter([](FragmentTable& table) { table.setText(7, Column::kName, "[4x0x0]"); }),
            "fragments: row 7: its name is taken by another fragment");
  EXPECT_EQ(
      failureAfter([](FragmentTable& table) { table.set<std::uint32_t>(7, Column::kNumber, 6); }),
      "fragments: row 7: its number is taken by another fragment");
  EXPECT_EQ(failureAfter([](FragmentTable& table) {
              for (const std::uint32_t row : {2U, 3U}) {
                table.setText(row, Column::kName, tileIndexText({{5 - row, 0, 0}}));
                table.set<std::uint32_t>(row, Column::kNumber, 5 - row);
              }
            }),
            "fragments: row 3: its number is below that of the row before");
}

TEST(ManyFragments, FirstOfAnotherTypeIsNamed) {
  const BundlePtr bundle = tiling();
  const auto field = fieldOf(*bundle, "A");
  for (const unsigned number : {20'000U, 10'000U}) {
    const auto odd = makeStrong<MemoryCreator>(makeArray(makeStrong<MemCore::Chunk<float>>(3)));
    field->setCreator(field->getFragmentIDCollection()->findFragmentID(number), odd);
  }
  const auto saved = bundle->save("not written.f5", nullptr, stored(StorageKind::Grid));
  ASSERT_FALSE(saved.ok());
  EXPECT_THAT(saved.error(), testing::HasSubstr("field A, fragment [80x62x0]: other type or rank"));
}

}  // namespace
}  // namespace Fiber::Container
