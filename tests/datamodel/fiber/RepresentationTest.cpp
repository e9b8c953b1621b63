// SPDX-License-Identifier: Apache-2.0

#include "datamodel/fiber/Representation.hpp"

#include <gtest/gtest.h>

#include <vector>

#include "tests/datamodel/fiber/TestCreator.hpp"

namespace Fiber {
namespace {

using MemCore::makeStrong;
using MemCore::StrongPtr;
using MemCore::WeakPtr;

TEST(Representation, UnknownFieldIsAnEmptyHandle) {
  const Representation representation;
  EXPECT_FALSE(representation.findFieldID("Intensity"));
  EXPECT_FALSE(representation.findField("Intensity"));
  EXPECT_FALSE(representation.findField(StrongPtr<FieldID>()));
  EXPECT_TRUE(representation.fragments());
}

TEST(Representation, FieldIsMadeFoundAndNamed) {
  Representation representation;
  const auto id = representation.makeFieldID("Intensity");
  const auto field = representation.makeField(id, nullptr, nullptr);
  ASSERT_TRUE(field);
  EXPECT_EQ(field->getFragmentIDCollection(), representation.fragments());
  EXPECT_EQ(representation.findField("Intensity"), field);
  EXPECT_EQ(representation.findField(representation.findFieldID("Intensity")), field);
}

TEST(Representation, MakeFieldReturnsTheOneThatExists) {
  Representation representation;
  const auto id = representation.makeFieldID("Intensity");
  const auto field = representation.makeField(id, nullptr, nullptr);
  EXPECT_EQ(representation.makeField(id, makeStrong<FragmentIDCollection>(), nullptr), field);
}

TEST(Representation, MakeFieldNeedsAnIdentifierThatLives) {
  Representation representation;
  WeakPtr<FieldID> gone;
  {
    const auto id = representation.makeFieldID("Intensity");
    gone = id;
  }
  EXPECT_FALSE(representation.makeField(gone, nullptr, nullptr));
  EXPECT_TRUE(representation.fields().empty());
}

TEST(Representation, ArrayBecomesDataOfTheFirstFragment) {
  Representation representation;
  const auto data = arrayOf<double>({1, 2});
  const auto id = representation.makeFieldID("A");
  const auto field = representation.makeField(id, nullptr, data);
  ASSERT_EQ(field->getFragmentIDs().size(), 1U);
  EXPECT_EQ(field->getData(field->getFragmentIDs().front()), data);
  const auto second = representation.makeFieldID("B");
  const auto more = arrayOf<double>({3, 4});
  const auto other = representation.makeField(second, nullptr, more);
  EXPECT_EQ(other->getFragmentIDs(), field->getFragmentIDs());
  EXPECT_EQ(other->getData(field->getFragmentIDs().front()), more);
}

TEST(Representation, FirstFieldInstalledBringsItsCollection) {
  Representation representation;
  const auto positions = makeStrong<Field>(nullptr);
  positions->makeFragmentID("a");
  representation.setPositions(positions);
  EXPECT_EQ(representation.findField("Positions"), positions);
  EXPECT_EQ(representation.fragments(), positions->getFragmentIDCollection());
  representation.setField("Other", makeStrong<Field>(nullptr));
  EXPECT_EQ(representation.fragments(), positions->getFragmentIDCollection());
}

TEST(Representation, SetFieldReplacesAndIgnoresAnEmptyHandle) {
  Representation representation;
  const auto first = makeStrong<Field>(nullptr);
  const auto second = makeStrong<Field>(nullptr);
  representation.setField("A", first);
  representation.setField("A", second);
  representation.setField("A", nullptr);
  EXPECT_EQ(representation.findField("A"), second);
}

TEST(Representation, FieldsAreWalkedInOrderOfName) {
  Representation representation;
  for (const char* name : {"Positions", "Intensity", "Red"}) {
    representation.setField(name, makeStrong<Field>(nullptr));
  }
  std::vector<std::string> names;
  for (const auto& [name, field] : representation.fields()) names.push_back(name);
  EXPECT_EQ(names, (std::vector<std::string>{"Intensity", "Positions", "Red"}));
}

TEST(FieldProxy, AssignsAndReadsItsSlot) {
  const auto representation = makeStrong<Representation>();
  const auto field = makeStrong<Field>(nullptr);
  FieldProxy slot(representation, "Intensity");
  slot = field;
  EXPECT_EQ(representation->findField("Intensity"), field);
  EXPECT_EQ(StrongPtr<Field>(slot), field);
}

TEST(FieldProxy, ReadingAnEmptySlotMakesAFieldOverTheFragments) {
  const auto representation = makeStrong<Representation>();
  const StrongPtr<Field> field = FieldProxy(representation, "Intensity");
  ASSERT_TRUE(field);
  EXPECT_EQ(field->getFragmentIDCollection(), representation->fragments());
  EXPECT_EQ(representation->findField("Intensity"), field);
}

TEST(RepresentationMap, FindsByBaseSpaceAndByChartName) {
  RepresentationMap map;
  const auto space = makeStrong<BaseSpace>("Chart");
  EXPECT_FALSE(map(space));
  const auto made = map.make(space);
  EXPECT_EQ(map.make(space), made);
  EXPECT_EQ(map(space), made);
  EXPECT_EQ(map.find("Chart"), made);
  EXPECT_FALSE(map.find("Other"));
  EXPECT_FALSE(map(WeakPtr<BaseSpace>()));
}

}  // namespace
}  // namespace Fiber
