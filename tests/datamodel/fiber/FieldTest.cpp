// SPDX-License-Identifier: Apache-2.0

#include "datamodel/fiber/Field.hpp"

#include <gtest/gtest.h>

#include <vector>

#include "tests/datamodel/fiber/TestCreator.hpp"

namespace Fiber {
namespace {

using Eagle::BoundingBox;
using MemCore::Cache;
using MemCore::makeStrong;
using MemCore::StrongPtr;

/// A field with one fragment per creator.
StrongPtr<Field> fieldOf(const std::vector<CreatorHandle>& creators) {
  auto field = makeStrong<Field>(nullptr);
  for (std::size_t i = 0; i < creators.size(); ++i) {
    field->setCreator(field->makeFragmentID(std::to_string(i)), creators[i]);
  }
  return field;
}

TEST(Field, MakesACollectionOfItsOwnWithoutOne) {
  const auto shared = makeStrong<FragmentIDCollection>();
  EXPECT_EQ(Field(shared).getFragmentIDCollection(), shared);
  EXPECT_TRUE(Field(nullptr).getFragmentIDCollection());
  EXPECT_FALSE(Field::NullPtrField());
}

TEST(Field, FindsAndMakesFragmentsByName) {
  Field field(nullptr);
  EXPECT_FALSE(field.getFragmentID("a"));
  const auto a = field.makeFragmentID("a");
  EXPECT_EQ(field.getFragmentID("a"), a);
  EXPECT_EQ(field.getFragmentIDs(), (std::vector<FragmentHandle>{a}));
}

TEST(Field, FragmentMayLackACreator) {
  Field field(nullptr);
  const auto a = field.makeFragmentID("a");
  EXPECT_FALSE(field.getCreator(a));
  EXPECT_FALSE(field.getData(a));
  EXPECT_FALSE(field.getFirstCreator());
}

TEST(Field, EmptyFragmentHandleHasNothing) {
  Field field(nullptr);
  EXPECT_FALSE(field.getCreator(nullptr));
  EXPECT_FALSE(field.getData(nullptr));
  field.setCreator(nullptr, creatorOf<double>({1}));
  EXPECT_FALSE(field.getFirstCreator());
}

TEST(Field, CreatorIsSetReplacedAndRemoved) {
  Field field(nullptr);
  const auto a = field.makeFragmentID("a");
  const auto first = creatorOf<double>({1});
  const auto second = creatorOf<double>({2});
  field.setCreator(a, first);
  EXPECT_EQ(field.getCreator(a), first);
  field.setCreator(a, second);
  EXPECT_EQ(field.getCreator(a), second);
  EXPECT_EQ(field.getData(a), second->data());
  field.setCreator(a, nullptr);
  EXPECT_FALSE(field.getCreator(a));
}

TEST(Field, FirstCreatorIsThatOfTheLowestNumber) {
  const auto collection = makeStrong<FragmentIDCollection>();
  Field field(collection);
  const auto nine = creatorOf<double>({9});
  const auto five = creatorOf<double>({5});
  field.setCreator(collection->makeFragmentID("nine", 9), nine);
  field.setCreator(collection->makeFragmentID("five", 5), five);
  collection->makeFragmentID("one", 1);
  EXPECT_EQ(field.getFirstCreator(), five);
}

TEST(Field, PersistentDataStayWithTheField) {
  Field field(nullptr);
  const auto a = field.makeFragmentID("a");
  const auto data = arrayOf<double>({1, 2});
  const auto creator = field.setPersistentData(data, a, Cache::MemCache(), "");
  ASSERT_TRUE(creator);
  EXPECT_EQ(field.getCreator(a), creator);
  EXPECT_EQ(data->creator(), creator);
  Cache::MemCache()->clear();
  EXPECT_EQ(field.getData(a), data);
}

TEST(Field, PersistentDataNeedBothHandles) {
  Field field(nullptr);
  EXPECT_FALSE(field.setPersistentData(nullptr, field.makeFragmentID("a"), nullptr, ""));
  EXPECT_FALSE(field.setPersistentData(arrayOf<double>({1}), nullptr, nullptr, ""));
  EXPECT_FALSE(field.getFirstCreator());
}

TEST(Field, FragmentationArrayHasOneEmptySlotPerFragment) {
  Field field(nullptr);
  field.makeFragmentID("a");
  field.makeFragmentID("b");
  const auto array = field.newFragmentationArray();
  ASSERT_EQ(array->count(), 2U);
  EXPECT_FALSE((*array)[0]);
}

TEST(Field, PropertiesAndTheirNumberAreCopiedByValue) {
  Field source(nullptr);
  Field target(nullptr);
  MemCore::setTextAttribute(source.properties(), "Unit", "m");
  source.propertyBits = 42;
  target.properties() = source.properties();
  target.propertyBits = source.propertyBits;
  EXPECT_EQ(MemCore::textAttribute(target.properties(), "Unit"), "m");
  EXPECT_EQ(target.propertyBits, 42U);
}

TEST(ExpandBoundingBox, JoinsTheBoxesOfAllFragments) {
  const auto field =
      fieldOf({creatorOf<Point>({{0, 5, 1}}), nullptr, creatorOf<Point>({{2, 3, -1}})});
  StrongPtr<BoundingBox> box;
  ASSERT_TRUE(expandBoundingBox(field, box));
  EXPECT_EQ(box->min(), (Point{0, 3, -1}));
  EXPECT_EQ(box->max(), (Point{2, 5, 1}));
}

TEST(ExpandBoundingBox, AttachesTheFieldsOwnBox) {
  const auto field = fieldOf({creatorOf<Point>({{1, 1, 1}})});
  auto box = makeStrong<BoundingBox>(Point{-9, -9, -9}, Point{0, 0, 0});
  const auto given = box;
  ASSERT_TRUE(expandBoundingBox(field, box));
  EXPECT_EQ(box, given);
  EXPECT_EQ(box->min(), (Point{-9, -9, -9}));
  EXPECT_EQ(box->max(), (Point{1, 1, 1}));
  const auto own = field->findInterface<BoundingBox>();
  ASSERT_TRUE(own);
  EXPECT_EQ(own->min(), (Point{1, 1, 1}));
}

TEST(ExpandBoundingBox, BoxHandedOutIsNotTheOneAttached) {
  const auto creator = creatorOf<Point>({{1, 1, 1}});
  const auto field = fieldOf({creator});
  StrongPtr<BoundingBox> box;
  ASSERT_TRUE(expandBoundingBox(field, box));
  box->expand(BoundingBox({-9, -9, -9}, {9, 9, 9}));
  EXPECT_EQ(field->findInterface<BoundingBox>()->max(), (Point{1, 1, 1}));
  EXPECT_EQ(creator->facts().box->max(), (Point{1, 1, 1}));
}

TEST(ExpandBoundingBox, NothingToGrowByIsFalse) {
  StrongPtr<BoundingBox> box;
  EXPECT_FALSE(expandBoundingBox(nullptr, box));
  EXPECT_FALSE(expandBoundingBox(fieldOf({}), box));
  EXPECT_FALSE(expandBoundingBox(fieldOf({creatorOf<double>({1}), nullptr}), box));
  EXPECT_FALSE(box);
}

TEST(ExpandBoundingBox, ManyFragmentsAreEachMadeOnce) {
  std::vector<CreatorHandle> creators;
  std::vector<StrongPtr<TestCreator>> makers;
  for (int i = 0; i < 200; ++i) {
    makers.push_back(makerOf<Point>({{double(i), double(-i), 0}}));
    creators.push_back(makers.back());
  }
  StrongPtr<BoundingBox> box;
  ASSERT_TRUE(expandBoundingBox(fieldOf(creators), box));
  EXPECT_EQ(box->min(), (Point{0, -199, 0}));
  EXPECT_EQ(box->max(), (Point{199, 0, 0}));
  for (const auto& maker : makers) EXPECT_EQ(maker->timesMade(), 1);
}

TEST(GetRange, OfAFragmentIsRememberedByItsCreator) {
  const auto field = fieldOf({creatorOf<double>({4, 2})});
  const auto range = getRange(*field, field->getFragmentIDs().front(), false, false);
  ASSERT_TRUE(range);
  EXPECT_EQ(range->range(), (ValueRange{2, 4}));
  EXPECT_EQ(field->getFirstCreator()->facts().range, (ValueRange{2, 4}));
  EXPECT_FALSE(getRange(*field, FragmentHandle(), false, false));
}

TEST(GetRange, OfAFieldIsAttachedAndNamed) {
  const auto field = fieldOf({creatorOf<double>({4, 2}), nullptr, creatorOf<double>({-1})});
  std::string name;
  const auto range = getRange(*field, name, false, false);
  ASSERT_TRUE(range);
  EXPECT_EQ(range->range(), (ValueRange{-1, 4}));
  EXPECT_EQ(name, "-1.000000 .. 4.000000");
  EXPECT_EQ(field->findInterface<DataRangeBase>(), range);
}

TEST(GetRange, RecomputesOnDemandAlone) {
  const auto creator = makerOf<double>({1, 3}, {nullptr, std::nullopt, nullptr, ValueRange{-2, 8}});
  const auto field = fieldOf({creator});
  std::string name;
  EXPECT_EQ(getRange(*field, name, false, false)->range(), (ValueRange{-2, 8}));
  EXPECT_EQ(getRange(*field, name, true, false)->range(), (ValueRange{1, 3}));
}

TEST(GetRange, PositionsHaveNone) {
  const auto field = fieldOf({creatorOf<Point>({{1, 2, 3}})});
  std::string name = "untouched";
  EXPECT_FALSE(getRange(*field, name, false, false));
  EXPECT_EQ(name, "untouched");
  EXPECT_FALSE(field->findInterface<DataRangeBase>());
}

}  // namespace
}  // namespace Fiber
