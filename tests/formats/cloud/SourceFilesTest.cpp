// SPDX-License-Identifier: Apache-2.0

#include "formats/cloud/SourceFiles.hpp"

#include <gmock/gmock.h>

#include "tests/formats/cloud/CloudTestFiles.hpp"

namespace Formats {

namespace {

using LidarLib::TestSupport::TempDir;
using MemCore::Attributes;
using MemCore::Chunk;
using MemCore::makeStrong;
using testing::HasSubstr;

VariableRecord recordOf(const std::string& userId, std::uint16_t id, std::size_t bytes) {
  VariableRecord record;
  record.reserved = 0xAABB;
  record.userId = userId;
  record.recordId = id;
  record.description = "of the test";
  record.payload.assign(bytes, static_cast<std::byte>(id));
  return record;
}

std::shared_ptr<LasFile> openFile(const std::string& path) {
  auto opened = LasFile::open(path);
  EXPECT_TRUE(opened.ok()) << opened.error();
  return opened ? *opened : nullptr;
}

std::vector<SourceFile> keptOf(const Attributes& attributes) {
  auto kept = sourceFilesOf(attributes);
  EXPECT_TRUE(kept.ok()) << kept.error();
  return kept ? std::move(*kept) : std::vector<SourceFile>();
}

bool isSameRecord(const VariableRecord& a, const VariableRecord& b) {
  return a.reserved == b.reserved && a.userId == b.userId && a.recordId == b.recordId &&
         a.description == b.description && a.payload == b.payload;
}

}  // namespace

TEST(SourceFiles, HeaderAndRecordsComeBackAsTheyWere) {
  const TempDir folder;
  LasWriterOptions options = lasOptions(6);
  options.header.systemIdentifier = "scanner";
  options.header.generatingSoftware = "software";
  options.header.creationDayOfYear = 77;
  options.header.creationYear = 2024;
  options.header.fileSourceId = 12;
  options.header.projectGuid[3] = std::byte{9};
  options.header.globalEncoding = kGpsTimeIsStandard | kWktCoordinateSystem;
  options.vlrs = {recordOf("LASF_Projection", 2112, 300), recordOf("mine", 1, 0)};
  options.evlrs = {recordOf("mine", 7, 70000)};
  const auto path = writeLas(folder / "a.las", options, surveyRecords(6, 0, 20, 1));

  Attributes attributes;
  const std::vector files{openFile(path)};
  EXPECT_TRUE(keepSourceFiles(attributes, files).empty());
  const auto kept = keptOf(attributes);
  ASSERT_EQ(kept.size(), 1U);
  EXPECT_EQ(kept[0].name, "a.las");
  const LasHeader& header = kept[0].header;
  EXPECT_EQ(header.systemIdentifier, "scanner");
  EXPECT_EQ(header.generatingSoftware, "software");
  EXPECT_EQ(header.creationDayOfYear, 77);
  EXPECT_EQ(header.creationYear, 2024);
  EXPECT_EQ(header.fileSourceId, 12);
  EXPECT_EQ(header.projectGuid, options.header.projectGuid);
  EXPECT_EQ(header.globalEncoding, options.header.globalEncoding);
  EXPECT_EQ(header.pointFormat, 6);
  EXPECT_EQ(header.recordBytes, 30);
  EXPECT_EQ(header.scale, options.header.scale);
  EXPECT_EQ(header.offset, options.header.offset);
  EXPECT_EQ(header.pointCount, 0U);
  ASSERT_EQ(kept[0].vlrs.size(), 2U);
  EXPECT_TRUE(isSameRecord(kept[0].vlrs[0], options.vlrs[0]));
  EXPECT_TRUE(isSameRecord(kept[0].vlrs[1], options.vlrs[1]));
  ASSERT_EQ(kept[0].evlrs.size(), 1U);
  EXPECT_TRUE(isSameRecord(kept[0].evlrs[0], options.evlrs[0]));
}

TEST(SourceFiles, EqualHeadersAndRecordsAreKeptOnce) {
  const TempDir folder;
  LasWriterOptions options = lasOptions(1);
  options.vlrs = {recordOf("mine", 1, 500)};
  std::vector<std::shared_ptr<LasFile>> files;
  Attributes one;
  Attributes many;
  for (std::size_t i = 0; i < 10; ++i) {
    const auto name = "file" + std::to_string(i) + ".las";
    files.push_back(openFile(writeLas(folder / name, options, surveyRecords(1, 0, i + 1, i))));
    if (i == 0) keepSourceFiles(one, files);
  }
  keepSourceFiles(many, files);
  for (const char* name : {"LasHeaders", "LasRecords"}) {
    EXPECT_EQ(many.getAttribute(name)->size(), one.getAttribute(name)->size()) << name;
  }
  EXPECT_EQ(many.all().size(), 4U);
  const auto kept = keptOf(many);
  ASSERT_EQ(kept.size(), 10U);
  EXPECT_EQ(kept[9].name, "file9.las");
  EXPECT_TRUE(isSameRecord(kept[9].vlrs.at(0), options.vlrs[0]));
}

TEST(SourceFiles, OtherHeadersStayApart) {
  const TempDir folder;
  LasWriterOptions options = lasOptions(1);
  std::vector files{openFile(writeLas(folder / "a.las", options, surveyRecords(1, 0, 3, 1)))};
  options.header.offset = {5, 6, 7};
  files.push_back(openFile(writeLas(folder / "b.las", options, surveyRecords(1, 0, 3, 1))));
  Attributes attributes;
  keepSourceFiles(attributes, files);
  const auto kept = keptOf(attributes);
  EXPECT_EQ(kept.at(0).header.offset, (std::array<double, 3>{1000, -2000, 0}));
  EXPECT_EQ(kept.at(1).header.offset, (std::array<double, 3>{5, 6, 7}));
}

TEST(SourceFiles, LargeRecordIsLeftOutWithANote) {
  const TempDir folder;
  LasWriterOptions options = lasOptions(6);
  options.evlrs = {recordOf("big", 7, kMaxKeptRecordBytes + 1)};
  const std::vector files{openFile(writeLas(folder / "a.las", options, surveyRecords(6, 0, 2, 1)))};
  Attributes attributes;
  EXPECT_THAT(keepSourceFiles(attributes, files),
              testing::ElementsAre(HasSubstr("a.las: record big 7 is not kept, found 1048577")));
  EXPECT_TRUE(keptOf(attributes).at(0).evlrs.empty());
}

TEST(SourceFiles, NameWithALineBreakStaysOneName) {
  const TempDir folder;
  const std::vector files{openFile(writeSurvey(folder / "a\nb.las", 0, 2)),
                          openFile(writeSurvey(folder / "c.las", 0, 2))};
  Attributes attributes;
  keepSourceFiles(attributes, files);
  const auto kept = keptOf(attributes);
  EXPECT_EQ(kept.at(0).name, "a_b.las");
  EXPECT_EQ(kept.at(1).name, "c.las");
}

TEST(SourceFiles, AttributesWithoutSourcesHaveNone) { EXPECT_TRUE(keptOf(Attributes()).empty()); }

TEST(SourceFiles, EveryDamagedTableIsRefusedOrReadWithoutHarm) {
  const TempDir folder;
  LasWriterOptions options = lasOptions(1);
  options.vlrs = {recordOf("mine", 1, 5), recordOf("mine", 2, 5)};
  const std::vector files{openFile(writeLas(folder / "a.las", options, surveyRecords(1, 0, 2, 1)))};
  Attributes whole;
  keepSourceFiles(whole, files);
  const auto table = MemCore::chunkCast<std::uint32_t>(whole.getAttribute("LasFiles"));
  for (std::size_t i = 0; i < table->size(); ++i) {
    Attributes damaged = whole;
    auto values = makeStrong<Chunk<std::uint32_t>>(std::as_const(*table).span());
    (*values)[i] = 0xFFFFFFFF;
    damaged.setAttribute("LasFiles", values);
    const auto kept = sourceFilesOf(damaged);
    ASSERT_FALSE(kept.ok()) << i;
    EXPECT_THAT(kept.error(), HasSubstr("attribute LasFiles: file "));
  }
}

TEST(SourceFiles, CutOffHeadersAndRecordsAreRefused) {
  const TempDir folder;
  LasWriterOptions options = lasOptions(1);
  options.vlrs = {recordOf("mine", 1, 5)};
  const std::vector files{openFile(writeLas(folder / "a.las", options, surveyRecords(1, 0, 2, 1)))};
  Attributes whole;
  keepSourceFiles(whole, files);
  for (const std::string name : {"LasHeaders", "LasRecords"}) {
    const auto chunk = MemCore::chunkCast<std::uint8_t>(whole.getAttribute(name));
    for (std::size_t size = 1; size < chunk->size(); ++size) {
      Attributes damaged = whole;
      damaged.setAttribute(
          name, makeStrong<Chunk<std::uint8_t>>(std::as_const(*chunk).span().first(size)));
      const auto kept = sourceFilesOf(damaged);
      ASSERT_FALSE(kept.ok()) << name << " " << size;
      EXPECT_THAT(kept.error(), HasSubstr("attribute " + name));
    }
  }
}

using SourceFilesData = LasData;

TEST_F(SourceFilesData, RecordsOfTheStorageAreLeftOutAndAllOthersKept) {
  for (const char* name : {"small/lone-star.copc.laz", "fwf/riegl_2535pt_internal.las",
                           "small/1_4_w_evlr.las", "hawaii_north.laz"}) {
    const std::vector files{open(name)};
    Attributes attributes;
    EXPECT_TRUE(keepSourceFiles(attributes, files).empty());
    const SourceFile kept = keptOf(attributes).at(0);
    std::vector<const VariableRecord*> expected;
    for (const auto* records : {&files[0]->vlrs(), &files[0]->evlrs()}) {
      for (const VariableRecord& record : *records) {
        if (textBeforeNul(record.userId) == "copc" || record.recordId == 22204) continue;
        if (record.recordId != 65535) expected.push_back(&record);
      }
    }
    std::vector<VariableRecord> all = kept.vlrs;
    all.insert(all.end(), kept.evlrs.begin(), kept.evlrs.end());
    ASSERT_EQ(all.size(), expected.size()) << name;
    for (std::size_t i = 0; i < all.size(); ++i) EXPECT_TRUE(isSameRecord(all[i], *expected[i]));
  }
}

}  // namespace Formats
