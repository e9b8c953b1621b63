// SPDX-License-Identifier: Apache-2.0
//
// Random clouds as text in every style, written plainly, read back, written by the system's own
// writer and read again: always the same values.

#include <fmt/format.h>

#include <bit>
#include <cmath>
#include <random>

#include "formats/text/GzipText.hpp"
#include "formats/text/TextWriter.hpp"
#include "tests/formats/text/TextTestFiles.hpp"
#include "tests/support/Seed.hpp"

namespace Formats::TextTests {
namespace {

using Random = std::mt19937_64;

/// A cloud as plain values: positions, an integer field, a field of doubles.
struct PlainCloud {
  Points points;
  std::vector<std::int64_t> numbers;
  std::vector<double> values;
};

double finiteDouble(Random& random) {
  while (true) {
    const double value = std::bit_cast<double>(random());
    if (std::isfinite(value)) return value;
  }
}

/// Any double, or one with few decimals, as surveys have them.
double coordinate(Random& random, bool isSurvey) {
  if (!isSurvey) return finiteDouble(random);
  return (static_cast<double>(random() % 2000000000) - 1e9) / 1000.0;
}

PlainCloud randomCloud(Random& random) {
  PlainCloud cloud;
  const bool isSurvey = random() % 2 == 0;
  const std::size_t count = 1 + random() % 400;
  for (std::size_t i = 0; i < count; ++i) {
    cloud.points.push_back(
        {coordinate(random, isSurvey), coordinate(random, isSurvey), coordinate(random, isSurvey)});
    // Beyond 32 bits, so that every cloud has the same type.
    cloud.numbers.push_back(static_cast<std::int64_t>(random() >> 1U) * (i % 2 == 0 ? 1 : -1));
    cloud.values.push_back(finiteDouble(random));
  }
  cloud.numbers[0] = 5000000000;
  cloud.values[0] = 0.5;
  return cloud;
}

/// How the plain writer of this test spells a file.
struct Style {
  std::string delimiter;
  std::string lineEnd;
  bool hasHeader;
  bool hasMark;
  bool hasComments;
};

Style randomStyle(Random& random) {
  constexpr std::array kDelimiters{",", ", ", ";", " ; ", "\t", " ", "   ", " \t"};
  return {kDelimiters[random() % kDelimiters.size()], random() % 2 == 0 ? "\n" : "\r\n",
          random() % 2 == 0, random() % 4 == 0, random() % 2 == 0};
}

std::string plainText(const PlainCloud& cloud, const Style& style, Random& random) {
  std::string text = style.hasMark ? "\xEF\xBB\xBF" : "";
  const auto addRow = [&](const std::vector<std::string>& parts) {
    for (std::size_t i = 0; i < parts.size(); ++i)
      text += (i == 0 ? "" : style.delimiter) + parts[i];
    text += style.lineEnd;
  };
  if (style.hasHeader) addRow({"X", "Y", "Z", "Column4", "Column5"});
  for (std::size_t i = 0; i < cloud.points.size(); ++i) {
    if (style.hasComments && random() % 8 == 0) text += "# 1 2 3" + style.lineEnd;
    if (style.hasComments && random() % 8 == 0) text += " " + style.lineEnd;
    const auto& p = cloud.points[i];
    addRow({fmt::format("{}", p.x), fmt::format("{}", p.y), fmt::format("{}", p.z),
            fmt::format("{}", cloud.numbers[i]), fmt::format("{}", cloud.values[i])});
  }
  if (random() % 2 == 0) text.resize(text.size() - style.lineEnd.size());
  return text;
}

void expectSame(const TestCloud& read, const PlainCloud& cloud) {
  ASSERT_EQ(read.summary.points, cloud.points.size());
  EXPECT_EQ(valuesOf<Eagle::PhysicalSpace::point>(*read.field("Positions")), cloud.points);
  EXPECT_EQ(valuesOf<std::int64_t>(*read.field("Column4")), cloud.numbers);
  EXPECT_EQ(valuesOf<double>(*read.field("Column5")), cloud.values);
}

/// Writes a cloud fragment by fragment with the system's own writer.
void rewrite(const TestCloud& cloud, const std::string& path) {
  auto writer = TextWriter::create(path, {std::nullopt, true, false});
  ASSERT_TRUE(writer.ok()) << writer.error();
  const std::vector<std::string> names{"Positions", "Column4", "Column5"};
  bool isFirst = true;
  for (const auto& id : cloud.field("Positions")->getFragmentIDs()) {
    std::vector<TextColumn> columns;
    for (const std::string& name : names) {
      const auto field = cloud.field(name);
      columns.push_back({name, field->getData(id), decimalsOf(field->properties())});
    }
    const auto rows = formatRows(columns, writer->style());
    ASSERT_TRUE(rows.ok()) << rows.error();
    const std::string header = isFirst ? writer->header(columns) : std::string();
    ASSERT_TRUE(writer->append(*writer->pack(header + *rows)).ok());
    isFirst = false;
  }
  ASSERT_TRUE(writer->publish(false).ok());
}

}  // namespace

TEST(TextCloudProperty, EveryStyleReadsBackIdentically) {
  Random random(LidarLib::TestSupport::testSeed());
  for (int round = 0; round < 150; ++round) {
    const TempDir folder;
    const PlainCloud cloud = randomCloud(random);
    std::string text = plainText(cloud, randomStyle(random), random);
    const bool isPacked = random() % 3 == 0;
    if (isPacked) text = *gzipMember(text);
    TextCloudOptions options;
    options.cloud.fragmentPoints = 1 + random() % 100;
    const TestCloud read =
        readCloud({writeText(folder / (isPacked ? "a.txt.gz" : "a.txt"), text)}, options);
    expectSame(read, cloud);
    const std::string again = folder / (random() % 2 == 0 ? "b.csv" : "b.xyz.gz");
    rewrite(read, again);
    expectSame(readCloud({again}, options), cloud);
    ASSERT_FALSE(HasFailure()) << "round " << round << ": " << text.substr(0, 500);
  }
}

TEST(TextCloudProperty, NumbersAreWrittenAsTheyWereRead) {
  const TempDir folder;
  const std::string text =
      "x y z Column4 Column5\n1.50 -2.000 3 5000000000 0.10\n-7.00 0.125 12 -1 4.00\n"
      "10.25 0.000 -5 7 -0.05\n";
  rewrite(readCloud({writeText(folder / "a.txt", text)}), folder / "b.txt");
  EXPECT_EQ(readText(folder / "b.txt"),
            "x y z Column4 Column5\n1.50 -2.000 3 5000000000 0.10\n-7.00 0.125 12 -1 4.00\n"
            "10.25 0.000 -5 7 -0.05\n");
}

}  // namespace Formats::TextTests
