// SPDX-License-Identifier: Apache-2.0
//
// Bytes that no program meant as points: never a crash, always a text that begins with the path, or
// points that can all be read.

#include <random>

#include "formats/text/GzipText.hpp"
#include "tests/formats/text/TextTestFiles.hpp"
#include "tests/support/Seed.hpp"

namespace Formats::TextTests {
namespace {

/// Reads a file of these bytes, and all its points if there are any.
void expectSafe(const std::string& path, std::string_view bytes) {
  writeText(path, bytes);
  TextCloudOptions options;
  options.cloud.fragmentPoints = 7;
  Fiber::Bundle bundle;
  const auto cloud = addTextCloud(bundle, {path}, options);
  if (!cloud) {
    EXPECT_TRUE(cloud.error().starts_with(path)) << cloud.error();
    EXPECT_EQ(cloud.error().find('\n'), std::string::npos) << cloud.error();
    EXPECT_LT(cloud.error().size(), path.size() + 1200) << cloud.error();
    return;
  }
  const auto grid = bundle[0]->findGrid("points");
  const auto positions = grid->getCartesianRepresentation("")->findField("Positions");
  EXPECT_EQ(valuesOf<Eagle::PhysicalSpace::point>(*positions).size(), cloud->points);
}

std::string goodFile() {
  std::string text = "# survey\nx y z intensity q\n";
  for (int i = 0; i < 60; ++i)
    text += std::to_string(i) + ".25 -1.5e1 3 " + std::to_string(i) + " 0.1\n";
  return text;
}

}  // namespace

TEST(TextHostile, DamagedFilesNeverCrash) {
  const TempDir folder;
  std::mt19937_64 random(LidarLib::TestSupport::testSeed());
  const std::string alphabet = std::string("0123456789.-+eE,; \t\r\n#/xyznaif\"\xff") + char{};
  for (int round = 0; round < 400; ++round) {
    std::string text = goodFile();
    for (std::size_t i = 0; i < 1 + random() % 8; ++i) {
      text[random() % text.size()] = alphabet[random() % alphabet.size()];
    }
    expectSafe(folder / "a.xyz", text);
  }
}

TEST(TextHostile, RandomBytesNeverCrash) {
  const TempDir folder;
  std::mt19937_64 random(LidarLib::TestSupport::testSeed());
  for (int round = 0; round < 200; ++round) {
    std::string bytes(random() % 3000, '\0');
    for (char& c : bytes) c = static_cast<char>(random() >> (random() % 50));
    expectSafe(folder / "a.xyz", bytes);
    expectSafe(folder / "a.xyz.gz", bytes);
  }
}

TEST(TextHostile, DamagedGzipFilesNeverCrash) {
  const TempDir folder;
  std::mt19937_64 random(LidarLib::TestSupport::testSeed());
  const std::string whole = *gzipMember(goodFile());
  for (int round = 0; round < 400; ++round) {
    std::string bytes = whole;
    bytes[random() % bytes.size()] = static_cast<char>(random());
    expectSafe(folder / "a.xyz.gz", bytes);
  }
}

TEST(TextHostile, FoldersAndOtherThingsAreNoFiles) {
  const TempDir folder;
  EXPECT_NE(failureOf({folder / ""}).find("a directory"), std::string::npos);
}

TEST(TextHostile, LineThatNeverEndsIsNamed) {
  EXPECT_EQ(failureOfText("1 2 3\n1 2 " + std::string(std::size_t{5} << 20U, '3')),
            "a.xyz:2: line is too long, found more than 1048576 bytes, expected numbers");
}

TEST(TextHostile, ManyColumnsWithFewRowsTakeLittleMemory) {
  std::string header = "x y z";
  std::string row = "1 2 3";
  for (int i = 3; i < 1024; ++i) {
    header += " q";
    row += " 4";
  }
  const TempDir folder;
  const TestCloud cloud = readCloud({writeText(folder / "a.xyz", header + "\n" + row + "\n")});
  EXPECT_EQ(cloud.summary.points, 1U);
  EXPECT_EQ(valuesOf<std::int32_t>(*cloud.field("q_1021")), std::vector<std::int32_t>{4});
}

}  // namespace Formats::TextTests
