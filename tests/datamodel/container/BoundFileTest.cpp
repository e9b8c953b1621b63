// SPDX-License-Identifier: Apache-2.0

#include "datamodel/container/BoundFile.hpp"

#include <gtest/gtest.h>

#include <filesystem>

#include "tests/support/CloudBuilder.hpp"
#include "tests/support/TempDir.hpp"

namespace Fiber::Container {
namespace {

using LidarLib::TestSupport::CloudBuilder;
using LidarLib::TestSupport::Point;
using LidarLib::TestSupport::TempDir;
using MemCore::StrongPtr;

BundlePtr load(const std::string& file) {
  bool ok = false;
  std::string failure;
  const auto parameters =
      MemCore::makeStrong<MemCore::LoaderParameters>(MemCore::LoaderParameters{{file}, false});
  auto bundle = Bundle::load(ok, parameters, nullptr, &failure);
  EXPECT_TRUE(ok) << failure;
  return bundle;
}

std::vector<double> values(const Field& field, const FragmentHandle& fragment) {
  const auto data = MemCore::handleCast<MemArray<1, double>>(field.getData(fragment));
  if (!data) return {};
  return {data->span().begin(), data->span().end()};
}

/// Two fragments of points with a field "V", in a bundle bound to "out.f5".
class BoundFileTest : public ::testing::Test {
 protected:
  BoundFileTest() {
    cloud.fragment({{0, 0, 0}, {1, 2, 3}}).field<double>("V", {5, 7});
    cloud.fragment({{4, 4, 4}}).field<double>("V", {9});
    const auto bound = cloud.bundle()->bindToNew(folder / "out.f5", nullptr);
    EXPECT_TRUE(bound.ok()) << bound.error();
    field = cloud.currentGrid()->getCartesianRepresentation("")->findField("V");
    first = field->getFragmentIDs().front();
  }

  BundleBinding& binding() { return *cloud.bundle()->binding; }

  TempDir folder;
  CloudBuilder cloud;
  StrongPtr<Field> field;
  FragmentHandle first;
};

TEST_F(BoundFileTest, StoredDataLeaveMemoryAndAreReadBack) {
  const MemCore::WeakPtr<MemBase> data = field->getData(first);
  field->getCreator(first)->attributes().setAttribute(
      "Mark", MemCore::makeStrong<MemCore::Chunk<double>>(1, 3.5));
  rangeOf(*field->getCreator(first));
  ASSERT_TRUE(binding().store(*field, first).ok());
  EXPECT_TRUE(data.expired());
  const auto creator = field->getCreator(first);
  EXPECT_FALSE(creator->dataIfPresent());
  EXPECT_EQ(creator->facts().range->max, 7.0) << "facts stay without reading";
  EXPECT_TRUE(creator->attributes().getAttribute("Mark"));
  EXPECT_EQ(values(*field, first), (std::vector<double>{5, 7}));
}

TEST_F(BoundFileTest, FileAppearsCompleteAndWhole) {
  for (const auto& id : field->getFragmentIDs()) ASSERT_TRUE(binding().store(*field, id).ok());
  EXPECT_TRUE(std::filesystem::is_empty(folder.path())) << "nothing is to be seen yet";
  const auto completed = binding().complete(*cloud.bundle());
  ASSERT_TRUE(completed.ok()) << completed.error();
  const auto loaded = load(folder / "out.f5");
  const auto back = (*loaded)[0.0]->findGrid("points")->getCartesianRepresentation("");
  const auto ids = back->findField("V")->getFragmentIDs();
  ASSERT_EQ(ids.size(), 2U);
  EXPECT_EQ(values(*back->findField("V"), ids[0]), (std::vector<double>{5, 7}));
  EXPECT_EQ(values(*back->findField("V"), ids[1]), (std::vector<double>{9}));
  EXPECT_TRUE(back->findField("Positions")->getData(ids[1])) << "what was never stored is there";
}

TEST_F(BoundFileTest, GivenUpLeavesNothingBehind) {
  ASSERT_TRUE(binding().store(*field, first).ok());
  cloud.bundle()->binding.reset();
  EXPECT_TRUE(std::filesystem::is_empty(folder.path()));
  EXPECT_EQ(values(*field, first), (std::vector<double>{5, 7})) << "creators keep the data alive";
}

TEST_F(BoundFileTest, FragmentWithoutDataInMemoryIsLeftAlone) {
  field->setCreator(first, nullptr);
  EXPECT_TRUE(binding().store(*field, first).ok());
  EXPECT_FALSE(field->getCreator(first));
}

TEST(BindToNew, NamesTheFileThatCannotBeMade) {
  const TempDir folder;
  const BundlePtr bundle(new Bundle);
  const auto bound = bundle->bindToNew(folder / "no/folder/out.f5", nullptr);
  ASSERT_FALSE(bound.ok());
  EXPECT_NE(bound.error().find("no/folder/out.f5"), std::string::npos);
  EXPECT_FALSE(bundle->binding);
}

TEST(BundlePlan, VacantPlacesOfATilingAreNotStored) {
  const TempDir folder;
  const BundlePtr bundle(new Bundle);
  const auto grid = (*(*bundle)[0.0])["tiles"];
  const auto representation = grid->makeCartesianRepresentation(3, "", 0);
  const auto positions = MemCore::makeStrong<RegularlyFragmentedField<3>>(
      MultiIndex<3>{{100, 100, 1}}, "RegularFragment", representation->fragments());
  representation->setPositions(positions);
  for (std::uint64_t i = 0; i < 100; ++i) positions->fragmentAt({{i, i, 0}});
  positions->setCreatorAt({{7, 9, 0}}, LidarLib::TestSupport::positionCreator({{1, 2, 3}}));
  ASSERT_TRUE(bundle->save(folder / "out.f5", nullptr, nullptr).ok());
  const auto loaded = load(folder / "out.f5");
  const auto back = MemCore::handleCast<RegularlyFragmentedField<3>>(
      (*loaded)[0.0]->findGrid("tiles")->CartesianPositions());
  ASSERT_TRUE(back);
  EXPECT_EQ(back->counts(), (MultiIndex<3>{{100, 100, 1}}));
  const auto ids = back->getFragmentIDs();
  ASSERT_EQ(ids.size(), 1U);
  EXPECT_EQ(ids.front()->name(), "[7x9x0]");
}

}  // namespace
}  // namespace Fiber::Container
