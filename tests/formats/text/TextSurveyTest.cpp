// SPDX-License-Identifier: Apache-2.0

#include "formats/text/TextSurvey.hpp"

#include <fmt/format.h>

#include "datamodel/memcore/Cache.hpp"
#include "tests/formats/text/TextTestFiles.hpp"

namespace Formats::TextTests {
namespace {

/// A surveyed file of its own.
struct Survey {
  std::vector<SurveyedFile> files;
  std::vector<TextField> fields;
  std::string failure;
};

Survey surveyOf(const std::string& path, std::uint64_t fragmentPoints) {
  Survey survey;
  SurveyedFile& file = survey.files.emplace_back();
  file.file = std::make_shared<TextFile>();
  file.file->bytes = openFile(path);
  file.file->format = *detectFormat(*file.file->bytes, {});
  file.roles = *rolesOf(file.file->format.names);
  survey.fields = joinTextFields(std::vector<FileRoles>{file.roles});
  const auto done = surveyFiles(survey.files, survey.fields, fragmentPoints);
  if (!done) survey.failure = done.error();
  return survey;
}

std::string manyRows(std::size_t count) {
  std::string text;
  for (std::size_t i = 0; i < count; ++i) text += fmt::format("{} {} 3.25 {}\n", i, i + 1, i % 7);
  return text;
}

}  // namespace

TEST(TextSurvey, RowsAreCutIntoFragmentsOfAboutTheWantedLength) {
  const TempDir folder;
  const Survey survey = surveyOf(writeText(folder / "a.xyz", manyRows(10000)), 1000);
  ASSERT_EQ(survey.failure, "");
  std::uint64_t rows = 0;
  for (const auto& fragment : survey.files[0].fragments) {
    EXPECT_GT(fragment.source->rowCount(), 0U);
    EXPECT_LT(fragment.source->rowCount(), 1200U);
    rows += fragment.source->rowCount();
  }
  EXPECT_EQ(rows, 10000U);
  EXPECT_EQ(survey.files[0].decimals, (std::array<std::uint8_t, 3>{0, 0, 2}));
}

TEST(TextSurvey, RangesOfCommentsMakeNoFragment) {
  const TempDir folder;
  std::string text = manyRows(100);
  for (int i = 0; i < 1000; ++i) text += "# nothing here\n";
  const Survey survey = surveyOf(writeText(folder / "a.xyz", text + manyRows(100)), 50);
  ASSERT_EQ(survey.failure, "");
  std::uint64_t rows = 0;
  for (const auto& fragment : survey.files[0].fragments) rows += fragment.source->rowCount();
  EXPECT_EQ(rows, 200U);
  EXPECT_LT(survey.files[0].fragments.size(), 12U);
}

TEST(TextSurvey, RightGuessLeavesTheColumnsInTheCache) {
  const CacheBudget budget(std::uint64_t{1} << 30U);
  const TempDir folder;
  const Survey survey = surveyOf(writeText(folder / "a.xyz", manyRows(50000)), 10000);
  ASSERT_EQ(survey.failure, "");
  for (const auto& fragment : survey.files[0].fragments) {
    EXPECT_TRUE(bool(fragment.source->decodedIfPresent()));
  }
}

TEST(TextSurvey, WrongGuessIsCorrected) {
  const TempDir folder;
  const std::string text = manyRows(50000) + "1 2 3 -9000000000\n";
  const Survey survey = surveyOf(writeText(folder / "a.xyz", text), 10000);
  ASSERT_EQ(survey.failure, "");
  EXPECT_EQ(survey.fields[0].type, ElementType::Int64);
  const auto last = survey.files[0].fragments.back().source->decoded();
  ASSERT_TRUE(last.ok()) << last.error();
  const auto values = MemCore::chunkCast<std::int64_t>((*last)->column(1)->elements());
  ASSERT_TRUE(bool(values));
  EXPECT_EQ((*values)[values->size() - 1], -9000000000);
}

TEST(TextSurvey, FirstFaultyLineIsNamedWhateverTheFragments) {
  const TempDir folder;
  const std::string text =
      "# head\n\n" + manyRows(5000) + "# c\n1 2 nonsense 4\n" + manyRows(500) + "worse\n";
  const std::string path = writeText(folder / "a.xyz", text);
  for (const std::uint64_t fragmentPoints : {1U, 10U, 3000U, 1000000U}) {
    EXPECT_EQ(surveyOf(path, fragmentPoints).failure,
              path + ":5004: column 3 (z): no number, found \"nonsense\"");
  }
}

}  // namespace Formats::TextTests
