// SPDX-License-Identifier: Apache-2.0

#include "host/synth/SyntheticSurvey.hpp"

#include <gtest/gtest.h>
#include <omp.h>

#include <algorithm>
#include <cmath>
#include <fstream>
#include <iterator>
#include <map>
#include <set>
#include <vector>

#include "formats/las/LasFile.hpp"
#include "formats/las/RecordColumns.hpp"
#include "formats/las/WaveformSource.hpp"
#include "host/synth/SyntheticBlock.hpp"
#include "host/synth/SyntheticWaveform.hpp"
#include "tests/support/TempDir.hpp"

namespace Synth {
namespace {

using LidarLib::TestSupport::TempDir;

/// A survey of a few hundred metres, small enough for a test and with every kind of land.
SurveyOptions testSurvey() {
  SurveyOptions options;
  options.pointCount = 60'000;
  options.pulsesPerSquareMetre = 0.5;
  options.threadCount = 2;
  return options;
}

/// A written survey, read back.
class SurveyFile {
 public:
  explicit SurveyFile(const SurveyOptions& options) {
    const std::string path = folder_ / "survey.las";
    const auto written = writeSyntheticSurvey(options, path, {});
    EXPECT_TRUE(written.ok()) << written.error();
    if (!written) return;
    summary = *written;
    const auto opened = Formats::LasFile::open(path);
    EXPECT_TRUE(opened.ok()) << opened.error();
    if (!opened) return;
    file = *opened;
    records_.resize(file->pointCount() * file->recordBytes());
    EXPECT_TRUE(file->readRecords(0, file->pointCount(), records_).ok());
  }

  template <class Element>
  std::vector<Element> column(const char* name) const {
    const Formats::PointField* field = file->layout().find(name);
    EXPECT_NE(field, nullptr) << name;
    if (field == nullptr) return {};
    EXPECT_EQ(Formats::elementBytes(field->type), sizeof(Element)) << name;
    std::vector<Element> values(file->pointCount());
    const Formats::ColumnOutput output{field, std::as_writable_bytes(std::span(values))};
    Formats::extractColumns(records_, file->recordBytes(), {&output, 1});
    return values;
  }

  /// Shape: [points][3].
  std::vector<double> positions() const {
    std::vector<double> values(3 * file->pointCount());
    Formats::extractPositions(records_, file->recordBytes(),
                              {file->header().scale, file->header().offset}, values);
    return values;
  }

  SurveySummary summary;
  std::shared_ptr<Formats::LasFile> file;

 private:
  TempDir folder_;
  std::vector<std::byte> records_;
};

std::vector<char> bytesOf(const std::string& path) {
  std::ifstream stream(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(stream), {}};
}

std::vector<char> bytesOfSurvey(const SurveyOptions& options) {
  const TempDir folder;
  const std::string path = folder / "survey.las";
  EXPECT_TRUE(writeSyntheticSurvey(options, path, {}).ok());
  return bytesOf(path);
}

TEST(SyntheticSurvey, PointCountIsNearTheRequest) {
  SurveyOptions options;
  for (const std::uint64_t count : {1U, 100U, 1000U, 30'000U, 300'000U}) {
    options.pointCount = count;
    const SurveyFile survey(options);
    ASSERT_TRUE(survey.file);
    const auto found = static_cast<double>(survey.file->pointCount());
    const auto wanted = static_cast<double>(count);
    EXPECT_NEAR(found, wanted, std::max(0.05 * wanted, 5.0));
    EXPECT_EQ(survey.summary.pointCount, survey.file->pointCount());
  }
}

TEST(SyntheticSurvey, OptionsAtTheirLimitsGiveReadableSurveys) {
  const SurveyOptions limits[] = {{.pointCount = 20'000,
                                   .flightLines = 1,
                                   .pulsesPerSquareMetre = 0.01,
                                   .rangeNoiseMetres = 0.1,
                                   .samplesPerPacket = 8,
                                   .waveformNoise = 100},
                                  {.pointCount = 20'000,
                                   .seed = ~std::uint64_t{0},
                                   .flightLines = 1000,
                                   .pulsesPerSquareMetre = 100.0,
                                   .rangeNoiseMetres = 0.0,
                                   .samplesPerPacket = 512,
                                   .waveformNoise = 0}};
  for (const SurveyOptions& options : limits) {
    const SurveyFile survey(options);
    ASSERT_TRUE(survey.file);
    EXPECT_NEAR(static_cast<double>(survey.file->pointCount()), 20'000.0, 1000.0);
    const auto lines = survey.column<std::uint16_t>("PointSourceId");
    EXPECT_EQ(std::set<int>(lines.begin(), lines.end()).size(), options.flightLines);
    const auto source = Formats::WaveformSource::open(survey.file);
    ASSERT_TRUE(source.ok()) << source.error();
    for (const std::uint8_t index : survey.column<std::uint8_t>("WaveDescriptor")) {
      ASSERT_NE((*source)->descriptor(index), nullptr);
    }
  }
}

TEST(SyntheticSurvey, HeaderTellsFormatBoundsAndCoordinateSystem) {
  const SurveyFile survey(testSurvey());
  ASSERT_TRUE(survey.file);
  const Formats::LasHeader& header = survey.file->header();
  EXPECT_EQ(header.versionMinor, 4);
  EXPECT_EQ(header.pointFormat, 9);
  EXPECT_EQ(header.globalEncoding, Formats::kGpsTimeIsStandard | Formats::kWaveformsInside |
                                       Formats::kWktCoordinateSystem);
  EXPECT_NE(Formats::findRecord(survey.file->vlrs(), Formats::kLasProjectionUserId, 2112), nullptr);
  EXPECT_TRUE(survey.file->notes().empty());
  const std::vector<double> positions = survey.positions();
  for (std::size_t axis = 0; axis < 3; ++axis) {
    double least = positions[axis];
    double most = positions[axis];
    for (std::size_t at = axis; at < positions.size(); at += 3) {
      least = std::min(least, positions[at]);
      most = std::max(most, positions[at]);
    }
    EXPECT_DOUBLE_EQ(header.minimum[axis], least);
    EXPECT_DOUBLE_EQ(header.maximum[axis], most);
  }
}

TEST(SyntheticSurvey, EveryClassOccurs) {
  const SurveyFile survey(testSurvey());
  ASSERT_TRUE(survey.file);
  const auto classes = survey.column<std::uint8_t>("Classification");
  const std::set<int> found(classes.begin(), classes.end());
  EXPECT_EQ(found, (std::set<int>{2, 3, 4, 5, 6, 9, 11}));
}

TEST(SyntheticSurvey, TimeAscendsAlongEachLine) {
  const SurveyFile survey(testSurvey());
  ASSERT_TRUE(survey.file);
  const auto times = survey.column<double>("GpsTime");
  const auto lines = survey.column<std::uint16_t>("PointSourceId");
  std::map<int, double> lastTimes;
  for (std::size_t i = 0; i < times.size(); ++i) {
    const auto last = lastTimes.try_emplace(lines[i], times[i]).first;
    ASSERT_GE(times[i], last->second) << i;
    last->second = times[i];
  }
  ASSERT_EQ(lastTimes.size(), 2U);
  EXPECT_EQ(lastTimes.begin()->first, 1);
}

TEST(SyntheticSurvey, ReturnsOfAPulseAreCompleteAndOrdered) {
  const SurveyFile survey(testSurvey());
  ASSERT_TRUE(survey.file);
  const auto times = survey.column<double>("GpsTime");
  const auto numbers = survey.column<std::uint8_t>("ReturnNumber");
  const auto counts = survey.column<std::uint8_t>("NumberOfReturns");
  const auto positions = survey.positions();
  std::map<int, int> pulsesByCount;
  for (std::size_t i = 0; i < times.size(); i += counts[i]) {
    ++pulsesByCount[counts[i]];
    ASSERT_GE(counts[i], 1);
    ASSERT_LE(i + counts[i], times.size());
    ASSERT_TRUE(i == 0 || times[i] != times[i - 1]) << i;
    for (std::size_t k = 0; k < counts[i]; ++k) {
      ASSERT_EQ(numbers[i + k], k + 1);
      ASSERT_EQ(counts[i + k], counts[i]);
      ASSERT_EQ(times[i + k], times[i]);
      ASSERT_TRUE(k == 0 || positions[3 * (i + k) + 2] < positions[3 * (i + k) - 1]);
    }
  }
  EXPECT_GT(pulsesByCount[2], 100);
  EXPECT_GT(pulsesByCount[3], 100);
}

TEST(SyntheticSurvey, LinesOverlapAndTheFlagTellsWhere) {
  const SurveyFile survey(testSurvey());
  ASSERT_TRUE(survey.file);
  const auto lines = survey.column<std::uint16_t>("PointSourceId");
  const auto flags = survey.column<std::uint8_t>("Overlap");
  const auto positions = survey.positions();
  double firstMost = -1e12;
  double secondLeast = 1e12;
  for (std::size_t i = 0; i < lines.size(); ++i) {
    const double north = positions[3 * i + 1];
    if (lines[i] == 1) firstMost = std::max(firstMost, north);
    if (lines[i] == 2) secondLeast = std::min(secondLeast, north);
  }
  EXPECT_GT(firstMost - secondLeast, 0.2 * survey.summary.swathWidthMetres);
  const double seam = kOffset[1] + kCentre[1];
  for (std::size_t i = 0; i < lines.size(); ++i) {
    const double beyond = (positions[3 * i + 1] - seam) * (lines[i] == 1 ? 1.0 : -1.0);
    // The flag is decided before the coordinates are rounded.
    if (std::abs(beyond) > 0.001) {
      ASSERT_EQ(flags[i], beyond > 0 ? 1 : 0) << i;
    }
  }
}

TEST(SyntheticSurvey, MirrorTurnsAreMarked) {
  const SurveyFile survey(testSurvey());
  ASSERT_TRUE(survey.file);
  const auto edges = survey.column<std::uint8_t>("EdgeOfFlightLine");
  const auto directions = survey.column<std::uint8_t>("ScanDirectionFlag");
  const auto angles = survey.column<std::int16_t>("ScanAngle");
  std::size_t marked = 0;
  for (std::size_t i = 0; i < edges.size(); ++i) {
    if (edges[i] == 0) continue;
    ++marked;
    // In units of 0.006 degrees; 8 degrees is well outside the middle of every sweep.
    EXPECT_GT((directions[i] == 1 ? 1 : -1) * angles[i], 1333);
  }
  EXPECT_GT(marked, 200U);
}

TEST(SyntheticSurvey, PacketsPeakAtTheReturnsAndPointAlongTheBeam) {
  const SurveyFile survey(testSurvey());
  ASSERT_TRUE(survey.file);
  const auto source = Formats::WaveformSource::open(survey.file);
  ASSERT_TRUE(source.ok()) << source.error();
  ASSERT_TRUE((*source)->isInternal());
  const auto descriptors = survey.column<std::uint8_t>("WaveDescriptor");
  const auto offsets = survey.column<std::uint64_t>("WaveOffset");
  const auto sizes = survey.column<std::uint32_t>("WaveSize");
  const auto locations = survey.column<float>("WaveReturnLocation");
  const auto intensities = survey.column<std::uint16_t>("Intensity");
  std::uint64_t packetBytes = 0;
  for (std::size_t i = 0; i < offsets.size(); ++i) {
    if (i == 0 || offsets[i] != offsets[i - 1]) packetBytes += sizes[i];
    std::vector<std::uint16_t> samples;
    const auto read = (*source)->readPacket({descriptors[i], offsets[i], sizes[i]}, samples);
    ASSERT_TRUE(read.ok() && *read) << i;
    ASSERT_EQ(samples.size() * 2, sizes[i]);
    const auto nearest = static_cast<std::size_t>(std::lround(locations[i] / 1000.0));
    ASSERT_LT(nearest + 9, samples.size());
    // Half a sample away from its centre a bell is still 0.969 of its height.
    ASSERT_GE(samples[nearest], 0.96 * intensities[i] + kWaveformFloor - 4.0) << i;
  }
  EXPECT_EQ(packetBytes, survey.summary.waveformBytes);
}

TEST(SyntheticSurvey, ReturnsOfAPulseMeetWhereThePacketBegins) {
  const SurveyFile survey(testSurvey());
  ASSERT_TRUE(survey.file);
  const auto offsets = survey.column<std::uint64_t>("WaveOffset");
  const auto locations = survey.column<float>("WaveReturnLocation");
  const std::vector<float> vectors[] = {survey.column<float>("WaveXt"),
                                        survey.column<float>("WaveYt"),
                                        survey.column<float>("WaveZt")};
  const auto positions = survey.positions();
  std::size_t shared = 0;
  for (std::size_t i = 1; i < offsets.size(); ++i) {
    if (offsets[i] != offsets[i - 1]) continue;
    ++shared;
    for (std::size_t axis = 0; axis < 3; ++axis) {
      const double here = positions[3 * i + axis] + locations[i] * vectors[axis][i];
      const double before = positions[3 * i - 3 + axis] + locations[i - 1] * vectors[axis][i - 1];
      ASSERT_NEAR(here, before, 0.0015) << i;
    }
  }
  EXPECT_GT(shared, 1000U);
}

TEST(SyntheticSurvey, WithoutWaveformsItIsPointFormat6) {
  SurveyOptions options = testSurvey();
  const SurveyFile with(options);
  options.hasWaveforms = false;
  const SurveyFile without(options);
  ASSERT_TRUE(with.file && without.file);
  EXPECT_EQ(without.file->header().pointFormat, 6);
  EXPECT_EQ(without.file->header().evlrCount, 0U);
  EXPECT_EQ(without.summary.waveformBytes, 0U);
  EXPECT_EQ(without.positions(), with.positions());
}

TEST(SyntheticSurvey, BytesDependOnTheOptionsNotOnTheThreads) {
  SurveyOptions options = testSurvey();
  const std::vector<char> withTwo = bytesOfSurvey(options);
  EXPECT_TRUE(withTwo == bytesOfSurvey(options));
  for (const int threadCount : {1, 3, 0}) {
    options.threadCount = threadCount;
    EXPECT_TRUE(withTwo == bytesOfSurvey(options)) << threadCount;
  }
  options.seed = 2;
  EXPECT_FALSE(withTwo == bytesOfSurvey(options));
}

TEST(SyntheticSurvey, ThreadsShareTheWork) {
  // More blocks than this are made, so that every thread of the team gets to write one.
  SurveyOptions options = testSurvey();
  options.pointCount = 400'000;
  options.hasWaveforms = false;
  const TempDir folder;
  std::set<int> threads;
  const auto written = writeSyntheticSurvey(options, folder / "survey.las", [&](double) {
    threads.insert(omp_get_thread_num());
    return true;
  });
  ASSERT_TRUE(written.ok());
  EXPECT_EQ(threads.size(), 2U);
}

}  // namespace
}  // namespace Synth
