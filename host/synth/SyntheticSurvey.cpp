// SPDX-License-Identifier: Apache-2.0

#include "host/synth/SyntheticSurvey.hpp"

#include <fmt/format.h>
#include <omp.h>

#include <algorithm>
#include <atomic>
#include <exception>
#include <memory>
#include <optional>
#include <span>
#include <string_view>
#include <utility>
#include <vector>

#include "formats/las/LasWriter.hpp"
#include "formats/las/WaveformSource.hpp"
#include "host/synth/SyntheticBlock.hpp"

namespace Synth {

using MemCore::Failure;
using MemCore::Outcome;

namespace {

/// Pulses that are followed to find out how many returns a pulse has.
constexpr std::uint64_t kSampledPulses = 20000;

/// The area follows from the returns per pulse, and these from the area; it settles quickly.
constexpr int kPlanningRounds = 3;

constexpr std::string_view kCoordinateSystem =
    R"(PROJCS["ETRS89 / UTM zone 32N",GEOGCS["ETRS89",)"
    R"(DATUM["European_Terrestrial_Reference_System_1989",)"
    R"(SPHEROID["GRS 1980",6378137,298.257222101,AUTHORITY["EPSG","7019"]],)"
    R"(AUTHORITY["EPSG","6258"]],PRIMEM["Greenwich",0,AUTHORITY["EPSG","8901"]],)"
    R"(UNIT["degree",0.0174532925199433,AUTHORITY["EPSG","9122"]],AUTHORITY["EPSG","4258"]],)"
    R"(PROJECTION["Transverse_Mercator"],PARAMETER["latitude_of_origin",0],)"
    R"(PARAMETER["central_meridian",9],PARAMETER["scale_factor",0.9996],)"
    R"(PARAMETER["false_easting",500000],PARAMETER["false_northing",0],)"
    R"(UNIT["metre",1,AUTHORITY["EPSG","9001"]],AXIS["Easting",EAST],AXIS["Northing",NORTH],)"
    R"(AUTHORITY["EPSG","25832"]])";
constexpr std::uint16_t kWktRecordId = 2112;

Outcome<FlightPlan> planForCount(const SurveyOptions& options, const Terrain& terrain) {
  Outcome<FlightPlan> plan = planFlight(options, 1.0);
  for (int round = 0; round < kPlanningRounds && plan; ++round) {
    const auto maker = std::make_unique<BlockMaker>(options, *plan, terrain);
    const std::uint64_t stride = std::max<std::uint64_t>(1, plan->pulseCount() / kSampledPulses);
    const std::uint64_t pulses = (plan->pulseCount() + stride - 1) / stride;
    const auto returns = static_cast<double>(maker->countReturns(stride));
    plan = planFlight(options, std::max(returns, 0.5) / static_cast<double>(pulses));
  }
  return plan;
}

Formats::VariableRecord coordinateSystemRecord() {
  Formats::VariableRecord record;
  record.userId = Formats::kLasProjectionUserId;
  record.recordId = kWktRecordId;
  record.description = "OGC WKT coordinate system";
  const auto text = std::as_bytes(std::span(kCoordinateSystem));
  record.payload.assign(text.begin(), text.end());
  record.payload.push_back(std::byte{0});
  return record;
}

Formats::VariableRecord descriptorRecord(std::uint8_t lengthNumber, const SurveyOptions& options) {
  Formats::WaveformDescriptor descriptor;
  descriptor.bitsPerSample = 16;
  descriptor.sampleCount = lengthNumber * options.samplesPerPacket;
  descriptor.sampleSpacingPicoseconds = kSampleSpacingPicoseconds;
  Formats::VariableRecord record;
  record.userId = Formats::kLasSpecUserId;
  record.recordId =
      static_cast<std::uint16_t>(Formats::kFirstWaveformDescriptorId + lengthNumber - 1);
  record.description = "Waveform packet descriptor";
  record.payload = Formats::serialiseWaveformDescriptor(descriptor);
  return record;
}

Formats::LasWriterOptions fileOptions(const SurveyOptions& options, const std::string& path) {
  Formats::LasWriterOptions file;
  file.header.isCompressed = path.ends_with(".laz");
  file.header.globalEncoding = Formats::kGpsTimeIsStandard | Formats::kWktCoordinateSystem;
  file.header.systemIdentifier = "Synthetic airborne survey";
  file.header.generatingSoftware = "LidarLib";
  // Deliberate: the day of the made-up flight, so that the same options give the same bytes.
  file.header.creationDayOfYear = 165;
  file.header.creationYear = 2023;
  file.header.pointFormat = options.hasWaveforms ? 9 : 6;
  file.header.scale = {kScale, kScale, kScale};
  file.header.offset = kOffset;
  file.vlrs.push_back(coordinateSystemRecord());
  if (!options.hasWaveforms) return file;
  file.waveforms = Formats::WaveformPlace::Inside;
  for (std::uint8_t number = 1; number <= packetLengthCount(options); ++number) {
    file.vlrs.push_back(descriptorRecord(number, options));
  }
  return file;
}

/// One survey on its way into a file.
class SurveyRun {
 public:
  SurveyRun(const SurveyOptions& options, const std::string& path, const SurveyProgress& progress)
      : options_(options), path_(path), progress_(progress), terrain_(options.seed) {}

  Outcome<SurveySummary> run();

 private:
  void writeBlocks();
  std::optional<SurveyBlock> makeBlock(BlockMaker& maker, const BlockPlace& place);
  void writeBlock(SurveyBlock& block, double doneShare);
  Outcome<void> appendBlock(SurveyBlock& block);
  Outcome<void> report(double doneShare) const;
  void fail(std::string text);

  const SurveyOptions& options_;
  const std::string& path_;
  const SurveyProgress& progress_;
  Terrain terrain_;
  FlightPlan plan_;
  std::unique_ptr<Formats::LasWriter> writer_;
  SurveySummary summary_;
  std::atomic<bool> hasFailed_ = false;
  std::string failure_;  ///< Written once, by the thread that turns hasFailed_ on.
};

Outcome<SurveySummary> SurveyRun::run() {
  if (const auto checked = checkOptions(options_); !checked) return checked.failure();
  const Outcome<FlightPlan> plan = planForCount(options_, terrain_);
  if (!plan) return plan.failure();
  plan_ = *plan;
  if (const auto begun = report(0.0); !begun) return begun.failure();
  auto writer = Formats::LasWriter::create(path_, fileOptions(options_, path_));
  if (!writer) return writer.failure();
  writer_ = std::move(*writer);
  writeBlocks();
  if (hasFailed_) return Failure{failure_};
  if (const auto finished = writer_->finish(); !finished) return finished.failure();
  summary_.pointCount = writer_->pointCount();
  summary_.lineLengthMetres = plan_.lineLength;
  summary_.swathWidthMetres = plan_.swathWidth;
  return summary_;
}

void SurveyRun::writeBlocks() {
  const BlockPlan blocks(plan_);
  const auto blockCount = static_cast<std::int64_t>(blocks.blockCount());
  const int threadCount = options_.threadCount > 0 ? options_.threadCount : omp_get_max_threads();
  std::vector<std::unique_ptr<BlockMaker>> makers(static_cast<std::size_t>(threadCount));
  for (auto& maker : makers) maker = std::make_unique<BlockMaker>(options_, plan_, terrain_);

    // While a thread writes its block the others make the next ones.
#pragma omp parallel for ordered schedule(dynamic, 1) num_threads(threadCount)
  for (std::int64_t number = 0; number < blockCount; ++number) {
    BlockMaker& maker = *makers[static_cast<std::size_t>(omp_get_thread_num())];
    auto block = makeBlock(maker, blocks.placeOf(static_cast<std::uint64_t>(number)));
#pragma omp ordered
    if (block)
      writeBlock(*block, static_cast<double>(number + 1) / static_cast<double>(blockCount));
  }
}

std::optional<SurveyBlock> SurveyRun::makeBlock(BlockMaker& maker, const BlockPlace& place) {
  if (hasFailed_) return {};
  try {
    return maker.make(place);
  } catch (const std::exception& error) {
    fail(fmt::format("{}: points cannot be made, {}", path_, error.what()));
    return {};
  }
}

void SurveyRun::writeBlock(SurveyBlock& block, double doneShare) {
  // A block missing further up has failed the run; this one must not take its place.
  if (hasFailed_) return;
  try {
    if (const auto appended = appendBlock(block); !appended) return fail(appended.error());
    if (const auto reported = report(doneShare); !reported) fail(reported.error());
  } catch (const std::exception& error) {
    fail(fmt::format("{}: points cannot be written, {}", path_, error.what()));
  }
}

Outcome<void> SurveyRun::appendBlock(SurveyBlock& block) {
  std::uint64_t firstPacketOffset = 0;
  if (!block.packets.empty()) {
    const Outcome<std::uint64_t> offset = writer_->writeWaveformPacket(block.packets);
    if (!offset) return offset.failure();
    firstPacketOffset = *offset;
  }
  summary_.pulseCount += block.pulseCount;
  summary_.waveformBytes += block.packets.size();
  return writer_->writeRecords(block.toRecords(writer_->layout(), firstPacketOffset));
}

Outcome<void> SurveyRun::report(double doneShare) const {
  if (!progress_ || progress_(doneShare)) return {};
  return Failure{fmt::format("{}: writing was cancelled", path_)};
}

void SurveyRun::fail(std::string text) {
  // The failure of a thread that comes second is of no interest.
  if (!hasFailed_.exchange(true)) failure_ = std::move(text);
}

}  // namespace

Outcome<SurveySummary> writeSyntheticSurvey(const SurveyOptions& options, const std::string& path,
                                            const SurveyProgress& progress) {
  try {
    return SurveyRun(options, path, progress).run();
  } catch (const std::exception& error) {
    return Failure{fmt::format("{}: survey cannot be made, {}", path, error.what())};
  }
}

}  // namespace Synth
