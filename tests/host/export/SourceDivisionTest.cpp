// SPDX-License-Identifier: Apache-2.0

#include "host/export/SourceDivision.hpp"

#include <gmock/gmock.h>

#include "tests/support/CloudBuilder.hpp"

namespace Host {
namespace {

using Formats::ExportSource;
using LidarLib::TestSupport::CloudBuilder;
using LidarLib::TestSupport::Point;
using testing::ElementsAre;
using testing::HasSubstr;

Formats::SourceFile fileOf(const std::string& name, std::uint8_t format) {
  Formats::SourceFile file;
  file.name = name;
  file.header.pointFormat = format;
  file.header.recordBytes = Formats::standardRecordBytes(format);
  return file;
}

void addFragment(CloudBuilder& cloud, const std::vector<std::uint32_t>& files) {
  std::vector<std::uint64_t> indices(files.size());
  cloud.fragment(std::vector<Point>(files.size())).field("SourceFile", files);
  cloud.field("SourceIndex", indices);
}

ExportSource sourceOf(CloudBuilder& cloud, std::size_t fileCount) {
  auto source = Formats::exportSource(*cloud.currentGrid());
  EXPECT_TRUE(source.ok()) << source.error();
  for (std::size_t i = 0; i < fileCount; ++i) {
    source->files.push_back(fileOf(std::string(1, static_cast<char>('a' + i)) + ".las", 1));
  }
  return std::move(*source);
}

std::vector<SourcePart> divide(const ExportSource& source,
                               const Formats::PointChooser& choose = Formats::everyPoint()) {
  auto parts = divideBySource(source, choose);
  EXPECT_TRUE(parts.ok()) << parts.stop().text;
  return parts.ok() ? std::move(*parts) : std::vector<SourcePart>();
}

/// "fragment: rows" of the points of a part.
std::vector<std::string> pointsOf(const SourcePart& part) {
  const auto loaded =
      Formats::loadFragments(*part.source, part.source->fragments, {part.choosesBy}, part.choose);
  EXPECT_TRUE(loaded.ok()) << loaded.error();
  std::vector<std::string> texts;
  for (const auto& fragment : *loaded) {
    std::string text = fragment.fragment->id->name() + ":";
    EXPECT_FALSE(fragment.choice.takesAll);
    for (const std::uint32_t row : fragment.choice.rows) text += " " + std::to_string(row);
    texts.push_back(text);
  }
  return texts;
}

std::vector<std::string> fieldsOf(const SourcePart& part) {
  std::vector<std::string> names;
  for (const auto& field : part.source->fields) names.push_back(field.name);
  return names;
}

TEST(SourceDivision, EveryFileGetsItsPointsBack) {
  CloudBuilder cloud;
  addFragment(cloud, {0, 2, 0});
  addFragment(cloud, {2, 2});
  addFragment(cloud, {0});
  const auto parts = divide(sourceOf(cloud, 3));
  // File 1 lies between, so that only looking shows that nothing of it is left.
  ASSERT_EQ(parts.size(), 3U);
  EXPECT_EQ(parts[0].source->files.front().name, "a.las");
  EXPECT_THAT(pointsOf(parts[0]), ElementsAre("0: 0 2", "2: 0"));
  EXPECT_THAT(pointsOf(parts[1]), ElementsAre("0:"));
  EXPECT_THAT(pointsOf(parts[2]), ElementsAre("0: 1", "1: 0 1"));
}

TEST(SourceDivision, OnlyPointsThatMayBeHadAreDivided) {
  CloudBuilder cloud;
  addFragment(cloud, {0, 0, 1, 0});
  const auto choose = [](const Formats::FragmentColumns&) {
    Formats::PointChoice choice;
    choice.takesAll = false;
    choice.rows = {1, 2};
    choice.isMargin = {0, 1, 0, 0};
    return choice;
  };
  const auto parts = divide(sourceOf(cloud, 2), choose);
  EXPECT_THAT(pointsOf(parts[0]), ElementsAre("0: 1"));
  EXPECT_THAT(pointsOf(parts[1]), ElementsAre("0: 2"));
}

TEST(SourceDivision, PartHasTheFieldsOfItsFileAlone) {
  CloudBuilder cloud;
  addFragment(cloud, {0, 1});
  cloud.field<std::uint16_t>("Red", {1, 2}).field<double>("GpsTime", {1, 2});
  cloud.field<float>("Other", {1, 2});
  ExportSource source = sourceOf(cloud, 2);
  source.files[1] = fileOf("b.las", 2);
  const auto parts = divide(source);
  EXPECT_THAT(fieldsOf(parts[0]), ElementsAre("GpsTime", "SourceFile", "SourceIndex"));
  EXPECT_THAT(fieldsOf(parts[1]), ElementsAre("Red", "SourceFile", "SourceIndex"));
}

TEST(SourceDivision, OnlyFilesWithPacketsGetWaveforms) {
  CloudBuilder cloud;
  addFragment(cloud, {0, 1});
  cloud.field<std::uint16_t>("FWFLength", {1, 0});
  cloud.waveforms<std::uint16_t>("Waveforms", 1, {7, 0});
  ExportSource source = sourceOf(cloud, 2);
  source.files[0] = fileOf("a.las", 4);
  const auto parts = divide(source);
  EXPECT_TRUE(bool(parts[0].source->samples) && bool(parts[0].source->lengths));
  EXPECT_FALSE(bool(parts[1].source->samples) || bool(parts[1].source->lengths));
}

TEST(SourceDivision, PointsThatDoNotTellTheirFilesAreAFailure) {
  CloudBuilder cloud;
  cloud.fragment({{0, 0, 0}});
  const auto parts = divideBySource(sourceOf(cloud, 1), Formats::everyPoint());
  ASSERT_FALSE(parts.ok());
  EXPECT_EQ(parts.stop().code, ExitCode::Failed);
  EXPECT_EQ(parts.stop().text,
            "grid points: its points do not tell their files; import or split with --keep-order");
}

TEST(SourceDivision, FileThatTheGridDoesNotKnowIsAFailure) {
  CloudBuilder cloud;
  addFragment(cloud, {0, 4000000000U});
  const auto parts = divideBySource(sourceOf(cloud, 2), Formats::everyPoint());
  ASSERT_FALSE(parts.ok());
  EXPECT_THAT(parts.stop().text, HasSubstr("fragment 0: names files 0 to 4000000000"));
  EXPECT_THAT(parts.stop().text, HasSubstr("but its grid knows only 2"));
}

TEST(SourceDivision, FragmentOfAnotherTypeIsAFailureNotACrash) {
  CloudBuilder cloud;
  addFragment(cloud, {0, 1});
  cloud.fragment({{1, 1, 1}})
      .field<float>("SourceFile", {0})
      .field<std::uint64_t>("SourceIndex", {0});
  const auto parts = divide(sourceOf(cloud, 2));
  const auto loaded = Formats::loadFragments(*parts[0].source, parts[0].source->fragments,
                                             {parts[0].choosesBy}, parts[0].choose);
  ASSERT_FALSE(loaded.ok());
  EXPECT_THAT(loaded.error(), HasSubstr("field SourceFile: fragment 1: another type"));
}

}  // namespace
}  // namespace Host
