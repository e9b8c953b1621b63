// SPDX-License-Identifier: Apache-2.0
//
// How writing a survey goes and ends: progress, stops and failures. What a survey holds is tested
// in SyntheticSurveyTest.cpp.

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <stdexcept>
#include <vector>

#include "host/synth/SyntheticSurvey.hpp"
#include "tests/support/FileSizeLimit.hpp"
#include "tests/support/TempDir.hpp"

namespace Synth {
namespace {

using LidarLib::TestSupport::FileSizeLimit;
using LidarLib::TestSupport::TempDir;

/// A survey of a few hundred metres.
SurveyOptions testSurvey() {
  SurveyOptions options;
  options.pointCount = 60'000;
  options.pulsesPerSquareMetre = 0.5;
  options.threadCount = 2;
  return options;
}

bool isEmptyFolder(const TempDir& folder) { return std::filesystem::is_empty(folder.path()); }

TEST(SyntheticSurveyRun, ProgressAscendsToOne) {
  const TempDir folder;
  std::vector<double> shares;
  const auto written = writeSyntheticSurvey(testSurvey(), folder / "survey.las", [&](double share) {
    shares.push_back(share);
    return true;
  });
  ASSERT_TRUE(written.ok());
  ASSERT_GT(shares.size(), 3U);
  EXPECT_TRUE(std::is_sorted(shares.begin(), shares.end()));
  EXPECT_EQ(shares.front(), 0.0);
  EXPECT_EQ(shares.back(), 1.0);
}

TEST(SyntheticSurveyRun, StoppedRunLeavesNothing) {
  for (const double stopAt : {0.0, 0.3, 1.0}) {
    const TempDir folder;
    const std::string path = folder / "survey.las";
    const auto written =
        writeSyntheticSurvey(testSurvey(), path, [&](double share) { return share < stopAt; });
    ASSERT_FALSE(written.ok());
    EXPECT_EQ(written.error(), path + ": writing was cancelled");
    EXPECT_TRUE(isEmptyFolder(folder));
  }
}

TEST(SyntheticSurveyRun, FailingPathGivesATextAndLeavesNothing) {
  const TempDir folder;
  const std::string path = folder / "missing/survey.las";
  const auto written = writeSyntheticSurvey(testSurvey(), path, {});
  ASSERT_FALSE(written.ok());
  EXPECT_EQ(written.error().rfind(path + ": ", 0), 0U) << written.error();
  EXPECT_TRUE(isEmptyFolder(folder));
}

TEST(SyntheticSurveyRun, FolderInTheWayStaysAndNothingElseIsLeft) {
  const TempDir folder;
  const std::string path = folder / "survey.las";
  std::filesystem::create_directory(path);
  const auto written = writeSyntheticSurvey(testSurvey(), path, {});
  ASSERT_FALSE(written.ok());
  EXPECT_TRUE(std::filesystem::is_directory(path));
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder.path()), {}), 1);
}

TEST(SyntheticSurveyRun, FailedWriteGivesATextAndLeavesNothing) {
  const TempDir folder;
  const std::string path = folder / "survey.las";
  const FileSizeLimit limit(2'000'000);
  const auto written = writeSyntheticSurvey(testSurvey(), path, {});
  ASSERT_FALSE(written.ok());
  EXPECT_NE(written.error().find("cannot be written"), std::string::npos) << written.error();
  EXPECT_TRUE(isEmptyFolder(folder));
}

TEST(SyntheticSurveyRun, ThrowingProgressBecomesAText) {
  const TempDir folder;
  const auto written = writeSyntheticSurvey(testSurvey(), folder / "survey.las", [](double share) {
    if (share > 0.3) throw std::runtime_error("no more");
    return true;
  });
  ASSERT_FALSE(written.ok());
  EXPECT_NE(written.error().find("no more"), std::string::npos);
  EXPECT_TRUE(isEmptyFolder(folder));
}

}  // namespace
}  // namespace Synth
