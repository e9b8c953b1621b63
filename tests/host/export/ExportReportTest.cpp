// SPDX-License-Identifier: Apache-2.0

#include "host/export/ExportReport.hpp"

#include <gmock/gmock.h>

#include <nlohmann/json.hpp>

namespace Host {
namespace {

using testing::HasSubstr;
using testing::Not;
using Json = nlohmann::json;

ExportedFile fileOf(const std::string& path, std::uint64_t points, std::uint8_t format) {
  Formats::LasTarget target;
  target.writer.header.pointFormat = format;
  target.writer.header.versionMinor = 4;
  ExportedFile file;
  file.path = path;
  file.result.points = points;
  file.result.isWritten = true;
  file.bytes = 1024 * points;
  file.target = std::make_shared<const Formats::LasTarget>(target);
  file.scale = {0.5, 0.25, 0.125};
  return file;
}

/// A folder of two files of different formats, an empty tile and one that failed.
ExportReport folderReport() {
  ExportReport report;
  report.input = "in.f5";
  report.output = "/out";
  report.isFolder = true;
  report.gridPoints = 5000;
  report.outcome.files = {fileOf("/out/a.laz", 1000, 6), fileOf("/out/b.laz", 2000, 7)};
  report.outcome.files.emplace_back().path = "/out/empty.laz";
  report.outcome.files.emplace_back().path = "/out/failed.laz";
  report.outcome.files.back().failure = "/out/failed.laz: disk full";
  report.outcome.notes = {"a note"};
  report.use = {2.0, 1U << 20U};
  return report;
}

TEST(ExportReport, AddsUpItsFiles) {
  const ExportReport report = folderReport();
  EXPECT_EQ(report.points(), 3000U);
  EXPECT_EQ(report.bytes(), 3000U * 1024);
  EXPECT_EQ(report.filesWritten(), 2U);
  EXPECT_EQ(report.filesFailed(), 1U);
}

TEST(ExportReport, WordsTellEveryFormatOnce) {
  ExportReport report = folderReport();
  report.outcome.files.push_back(fileOf("/out/c.laz", 1, 6));
  const std::string text = exportText(report);
  EXPECT_THAT(text, HasSubstr("Points  3,001\n"));
  EXPECT_THAT(text, HasSubstr("Files   3\n"));
  EXPECT_THAT(text,
              HasSubstr("Format  LAS 1.4, point format 6\n        LAS 1.4, point format 7\n"));
  EXPECT_THAT(text, HasSubstr("/out (2.9 MiB)"));
}

TEST(ExportReport, SingleFileIsNotCounted) {
  ExportReport report = folderReport();
  report.isFolder = false;
  EXPECT_THAT(exportText(report), Not(HasSubstr("Files")));
}

TEST(ExportReport, JsonHasTheKeysOfTheContract) {
  const Json json = Json::parse(exportJson(folderReport()));
  EXPECT_EQ(json.at("input"), "in.f5");
  EXPECT_EQ(json.at("output"), "/out");
  EXPECT_EQ(json.at("points"), 3000);
  EXPECT_EQ(json.at("gridPoints"), 5000);
  EXPECT_EQ(json.at("bytes"), 3000 * 1024);
  EXPECT_EQ(json.at("notes"), Json::parse(R"(["a note"])"));
  EXPECT_EQ(json.at("seconds"), 2.0);
  EXPECT_EQ(json.at("peakMemoryBytes"), 1 << 20);
  const Json& file = json.at("files").at(0);
  EXPECT_EQ(file.at("path"), "/out/a.laz");
  EXPECT_EQ(file.at("points"), 1000);
  EXPECT_EQ(file.at("bytes"), 1024000);
  EXPECT_EQ(file.at("pointFormat"), 6);
  EXPECT_EQ(file.at("version"), "1.4");
  EXPECT_EQ(file.at("scale"), Json::parse("[0.5, 0.25, 0.125]"));
}

TEST(ExportReport, JsonTellsEmptyAndFailedFilesApart) {
  const Json json = Json::parse(exportJson(folderReport()));
  EXPECT_FALSE(json.at("files").at(2).contains("failure"));
  EXPECT_FALSE(json.at("files").at(2).contains("pointFormat"));
  EXPECT_EQ(json.at("files").at(3).at("failure"), "/out/failed.laz: disk full");
}

TEST(ExportReport, NamesThatAreNoTextDoNotBreakJson) {
  ExportReport report = folderReport();
  report.output = "/out\xff";
  EXPECT_TRUE(Json::accept(exportJson(report)));
}

}  // namespace
}  // namespace Host
