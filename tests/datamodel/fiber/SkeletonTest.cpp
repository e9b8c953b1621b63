// SPDX-License-Identifier: Apache-2.0
//
// Skeletons: their representations, the walk over all fields, and the map of a grid's skeletons.

#include <gtest/gtest.h>

#include <vector>

#include "datamodel/fiber/Representation.hpp"

namespace Fiber {
namespace {

using MemCore::makeStrong;
using MemCore::StrongPtr;
using MemCore::WeakPtr;

/// A skeleton shown in charts "A" and "B".
struct TwoCharts {
  StrongPtr<BaseSpace> spaceA = makeStrong<BaseSpace>("A");
  StrongPtr<BaseSpace> spaceB = makeStrong<BaseSpace>("B");
  Skeleton skeleton;
  StrongPtr<Representation> inA = skeleton[spaceA];
  StrongPtr<Representation> inB = skeleton[spaceB];

  void add(const StrongPtr<Representation>& representation, const std::string& name,
           const StrongPtr<Field>& field = makeStrong<Field>(nullptr)) {
    representation->setField(name, field);
  }
  /// Names of the visited fields as "chart/field", up to the field named `last`.
  std::vector<std::string> walk(std::unordered_set<unsigned long long>& visited,
                                const std::string& last = "") {
    std::vector<std::string> names;
    skeleton.iterate_fields(
        [&](const WeakPtr<BaseSpace>& space, Representation&, const FieldID& id,
            const StrongPtr<Field>&) {
          names.push_back(space.lock()->name() + "/" + id.name);
          return id.name != last;
        },
        visited);
    return names;
  }
};

using Names = std::vector<std::string>;

TEST(Skeleton, RepresentationIsMadeOncePerBaseSpace) {
  TwoCharts charts;
  EXPECT_EQ(charts.skeleton[charts.spaceA], charts.inA);
  EXPECT_FALSE(charts.inA == charts.inB);
  EXPECT_EQ(charts.skeleton.representations()(charts.spaceB), charts.inB);
}

TEST(Skeleton, NoRepresentationInASpaceThatIsGone) {
  Skeleton skeleton;
  WeakPtr<BaseSpace> gone;
  {
    const auto space = makeStrong<BaseSpace>("A");
    gone = space;
  }
  EXPECT_FALSE(skeleton[gone]);
  EXPECT_TRUE(skeleton.representations().all().empty());
}

TEST(IterateFields, VisitsChartsAndNamesInOrder) {
  TwoCharts charts;
  charts.add(charts.inB, "Z");
  charts.add(charts.inA, "Z");
  charts.add(charts.inA, "M");
  std::unordered_set<unsigned long long> visited;
  EXPECT_EQ(charts.walk(visited), (Names{"A/M", "A/Z", "B/Z"}));
  EXPECT_EQ(visited.size(), 3U);
}

TEST(IterateFields, VisitsAFieldInTwoRepresentationsOnce) {
  TwoCharts charts;
  const auto shared = makeStrong<Field>(nullptr);
  charts.add(charts.inA, "Shared", shared);
  charts.add(charts.inB, "Shared", shared);
  charts.add(charts.inB, "Own");
  std::unordered_set<unsigned long long> visited;
  EXPECT_EQ(charts.walk(visited), (Names{"A/Shared", "B/Own"}));
}

TEST(IterateFields, VisitedSetCarriesOverToTheNextWalk) {
  TwoCharts charts;
  charts.add(charts.inA, "First");
  std::unordered_set<unsigned long long> visited;
  charts.walk(visited);
  charts.add(charts.inA, "Second");
  EXPECT_EQ(charts.walk(visited), (Names{"A/Second"}));
}

TEST(IterateFields, VisitorEndsTheWalk) {
  TwoCharts charts;
  for (const char* name : {"1", "2", "3"}) charts.add(charts.inA, name);
  std::unordered_set<unsigned long long> visited;
  EXPECT_EQ(charts.walk(visited, "2"), (Names{"A/1", "A/2"}));
}

TEST(IterateFields, TellsWhetherTheWalkReachedItsEnd) {
  TwoCharts charts;
  charts.add(charts.inA, "1");
  const auto walkWith = [&](bool answer) {
    std::unordered_set<unsigned long long> visited;
    return charts.skeleton.iterate_fields(
        [answer](const auto&, auto&, const auto&, const auto&) { return answer; }, visited);
  };
  EXPECT_TRUE(walkWith(true));
  EXPECT_FALSE(walkWith(false));
}

TEST(IterateFields, VisitorMayAddFields) {
  TwoCharts charts;
  charts.add(charts.inA, "1");
  int visits = 0;
  std::unordered_set<unsigned long long> visited;
  charts.skeleton.iterate_fields(
      [&](const auto&, Representation& representation, const auto&, const auto&) {
        ++visits;
        representation.setField("2", makeStrong<Field>(nullptr));
        return true;
      },
      visited);
  EXPECT_EQ(visits, 1);
}

TEST(SkeletonMap, FindsTheVerticesOfAnyRefinementOrOfOne) {
  SkeletonMap map;
  EXPECT_FALSE(map.findVertices(-1));
  const auto fine = map[SkeletonID{3, 2}];
  const auto edges = map[SkeletonID{1, 0}];
  EXPECT_EQ(map.findVertices(-1), fine);
  EXPECT_EQ(map.findVertices(2), fine);
  EXPECT_FALSE(map.findVertices(0));
  const auto base = map[SkeletonID{}];
  EXPECT_EQ(map.findVertices(-1), base) << "the lowest refinement";
  EXPECT_FALSE(base == edges);
}

TEST(SkeletonMap, GetFindsAndIndexMakes) {
  SkeletonMap map;
  EXPECT_FALSE(map.getSkeleton(SkeletonID{}));
  const auto made = map[SkeletonID{}];
  EXPECT_EQ(map[SkeletonID{}], made);
  EXPECT_EQ(map.getSkeleton(SkeletonID{3, 0}), made);
  EXPECT_EQ(map.all().size(), 1U);
}

}  // namespace
}  // namespace Fiber
