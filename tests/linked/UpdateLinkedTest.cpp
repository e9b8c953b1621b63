// SPDX-License-Identifier: Apache-2.0

#include <algorithm>
#include <fstream>

#include "tests/operation/SplitFixture.hpp"

namespace LidarLib::TestSupport {

namespace {

using Files = std::vector<std::string>;

class UpdateLinkedTest : public SplitFixture {
 protected:
  /// A tile file with one fragment of the given points, in a grid "g" at the given times.
  std::string tile(const std::string& baseName, const std::vector<Point>& points,
                   const std::vector<double>& times = {0.0}) const {
    CloudBuilder cloud;
    for (const double time : times) cloud.time(time).grid("g").fragment(points);
    return save(baseName, cloud);
  }

  std::string save(const std::string& baseName, const CloudBuilder& cloud) const {
    std::string file = folder / (baseName + ".f5");
    const auto saved = cloud.bundle()->save(file, nullptr, nullptr);
    EXPECT_TRUE(saved.ok()) << saved.error();
    return file;
  }

  /// An operation that links these files into "linked.f5".
  void declare(RefragmentAndSplit& operation, const Files& files) const {
    operation.inputFiles = MemCore::makeStrong<Files>(files);
    operation.outputFileName = folder / "linked.f5";
    operation.storageTransformations = MemCore::makeStrong<Fiber::StorageTransformations>();
  }

  MemCore::StrongPtr<Fiber::Grid> linkedGrid(double time = 0.0) const {
    const auto bundle = load("linked.f5");
    return bundle ? (*bundle)[time]->findGrid("LinkedGrid") : nullptr;
  }

  /// The counts of the linked positions.
  static Fiber::MultiIndex<3> countsOf(const Fiber::Grid& grid) {
    const auto regular =
        MemCore::handleCast<Fiber::RegularlyFragmentedField<3>>(grid.CartesianPositions());
    return regular ? regular->counts() : Fiber::MultiIndex<3>();
  }
};

class UpdateLinkedDeathTest : public UpdateLinkedTest {
 protected:
  // The child begins anew: a runtime of threads does not survive a mere fork.
  UpdateLinkedDeathTest() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
};

/// Console lines go to the standard error of a child process, where death tests look.
void toStandardError(const std::string& line) { std::fprintf(stderr, "%s\n", line.c_str()); }

bool updateLoudly(RefragmentAndSplit& operation) {
  const MemCore::ConsoleRedirection loud(toStandardError);
  return operation.UpdateLinked();
}

}  // namespace

TEST_F(UpdateLinkedTest, NothingDeclaredIsSaidOnTheConsole) {
  RefragmentAndSplit operation;
  operation.outputFileName = folder / "linked.f5";
  EXPECT_FALSE(operation.UpdateLinked());
  EXPECT_TRUE(console.contains("UpdateLinked: No files declared"));
  EXPECT_FALSE(std::filesystem::exists(folder / "linked.f5"));
}

TEST_F(UpdateLinkedTest, UnloadableFirstFileIsSaidOnTheConsole) {
  for (const Files& files : {Files{}, Files{folder / "F0x0x0T.f5"}}) {
    RefragmentAndSplit operation;
    declare(operation, files);
    EXPECT_FALSE(operation.UpdateLinked());
    EXPECT_EQ(console.messages().back(), "UpdateLinked: No first file");
  }
}

TEST_F(UpdateLinkedTest, CountsComeFromTheNamesWhereNoAttributeTellsThem) {
  RefragmentAndSplit operation;
  declare(operation, {tile("F0x0x0T", {{0, 0, 0}}), tile("F1x0x0T", {{11, 0, 0}, {12, 0, 0}}),
                      tile("F1x2x0T", {{11, 25, 0}})});
  ASSERT_TRUE(operation.UpdateLinked());
  EXPECT_TRUE(operation.messages.empty());
  const auto grid = linkedGrid();
  ASSERT_TRUE(grid);
  EXPECT_EQ(countsOf(*grid), (Fiber::MultiIndex<3>{{2, 3, 1}}));
  EXPECT_EQ(fieldValues<Point>(*grid, "Positions").size(), 4U);
}

TEST_F(UpdateLinkedTest, CountsAndAttributesComeFromTheFirstFile) {
  CloudBuilder cloud;
  cloud.grid("g").fragment({{0, 0, 0}});
  cloud.gridAttribute<unsigned int>("FragDims", {4, 3, 2});
  RefragmentAndSplit operation;
  declare(operation, {save("F0x0x0T", cloud)});
  const auto progress = MemCore::makeStrong<RecordingProgress>(true);
  operation.tileProgress = progress;
  ASSERT_TRUE(operation.UpdateLinked());
  EXPECT_EQ(progress->calls, std::vector<std::string>{"Updateing # 0/24"});
  EXPECT_EQ(countsOf(*linkedGrid()), (Fiber::MultiIndex<3>{{4, 3, 2}}));
  EXPECT_TRUE(linkedGrid()->attributes().getAttribute("FragDims"));
  EXPECT_TRUE(operation.storageTransformations->linkFragments);
}

TEST_F(UpdateLinkedTest, LaterFilesFillTheGridOfTheLastAcceptedTime) {
  RefragmentAndSplit operation;
  declare(operation,
          {tile("F0x0x0T", {{0, 0, 0}}, {1.0, 2.0}), tile("F1x0x0T", {{11, 0, 0}, {12, 0, 0}})});
  ASSERT_TRUE(operation.UpdateLinked());
  const auto bundle = load("linked.f5");
  EXPECT_TRUE((*bundle)[1.0]->findGrid("LinkedGrid"));
  const auto last = linkedGrid(2.0);
  ASSERT_TRUE(last);
  EXPECT_EQ(fieldValues<Point>(*last, "Positions").size(), 3U);
}

TEST_F(UpdateLinkedTest, FiltersSelectTimesAndGridsOfTheFirstFile) {
  RefragmentAndSplit operation;
  declare(operation, {tile("F0x0x0T", {{0, 0, 0}}, {1.0, 2.0})});
  operation.timeFilter = {1.0};
  ASSERT_TRUE(operation.UpdateLinked());
  EXPECT_TRUE(linkedGrid(1.0));
  EXPECT_FALSE(linkedGrid(2.0));
  operation.gridFilter = {"other"};
  EXPECT_FALSE(operation.UpdateLinked());
  EXPECT_EQ(operation.messages,
            std::list<std::string>{folder / "F0x0x0T.f5" + ": no grid is selected"});
}

TEST_F(UpdateLinkedTest, InterruptionSavesNothing) {
  RefragmentAndSplit operation;
  declare(operation, {tile("F0x0x0T", {{0, 0, 0}})});
  operation.tileProgress = MemCore::makeStrong<RecordingProgress>(false);
  EXPECT_FALSE(operation.UpdateLinked());
  EXPECT_EQ(operation.messages, std::list<std::string>{"Interrupted"});
  EXPECT_FALSE(std::filesystem::exists(folder / "linked.f5"));
}

TEST_F(UpdateLinkedTest, LaterFileThatCannotBeLoadedContributesNothing) {
  std::ofstream(folder / "F1x0x0T.f5") << "no bundle";
  RefragmentAndSplit operation;
  declare(operation,
          {tile("F0x0x0T", {{0, 0, 0}}), folder / "F1x0x0T.f5", tile("F2x0x0T", {{21, 0, 0}})});
  ASSERT_TRUE(operation.UpdateLinked());
  EXPECT_EQ(fieldValues<Point>(*linkedGrid(), "Positions").size(), 2U);
}

TEST_F(UpdateLinkedTest, OutputThatCannotBeSavedIsReported) {
  RefragmentAndSplit operation;
  declare(operation, {tile("F0x0x0T", {{0, 0, 0}})});
  operation.outputFileName = folder / "no/such/folder/linked.f5";
  EXPECT_FALSE(operation.UpdateLinked());
  ASSERT_EQ(operation.messages.size(), 1U);
  EXPECT_NE(operation.messages.front().find("linked.f5"), std::string::npos);
}

TEST_F(UpdateLinkedTest, IndexThatIsNoNumberThrows) {
  RefragmentAndSplit operation;
  declare(operation, {tile("F0x0x0T", {{0, 0, 0}}), tile("out_2x0x1T0", {{0, 0, 0}})});
  EXPECT_THROW(operation.UpdateLinked(), std::invalid_argument);
  declare(operation, {tile("F0x0x0T", {{0, 0, 0}}), tile("F99999999999x0x0T", {{0, 0, 0}})});
  EXPECT_THROW(operation.UpdateLinked(), std::out_of_range);
}

TEST_F(UpdateLinkedDeathTest, NameWithoutIndexEndsTheProcess) {
  RefragmentAndSplit operation;
  declare(operation, {tile("survey", {{0, 0, 0}})});
  EXPECT_EXIT(updateLoudly(operation), ::testing::ExitedWithCode(1),
              "Error: Cannot parse FragIdx: BaseName is survey");
}

TEST_F(UpdateLinkedDeathTest, SameFileTwiceEndsTheProcessAtTheSecond) {
  RefragmentAndSplit operation;
  const std::string file = tile("F3x0x1T0.5Gg", {{0, 0, 0}});
  declare(operation, {file, file});
  EXPECT_EXIT(updateLoudly(operation), ::testing::ExitedWithCode(1),
              "Error: Fragment exist already for file: F3x0x1T0.5Gg with FragIdx "
              "\\[3x0x1\\]");
}

}  // namespace LidarLib::TestSupport
