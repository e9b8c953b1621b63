// SPDX-License-Identifier: Apache-2.0

#include "host/synth/SyntheticBlock.hpp"

#include <algorithm>
#include <cmath>
#include <span>

#include "formats/las/RecordColumns.hpp"

namespace Synth {

namespace {

constexpr std::uint64_t kPulsesPerBlock = 16384;

/// The scan angle of point formats 6 and up counts steps of this size.
constexpr double kScanAngleStepDegrees = 0.006;

/// What the random numbers of a pulse are for.
enum Purpose : std::uint64_t { kTrace = 1, kRecord = 2 };

template <class Element>
void addColumn(const Formats::PointLayout& layout, const char* name,
               const std::vector<Element>& column, std::vector<Formats::ColumnInput>& inputs) {
  const Formats::PointField* field = layout.find(name);
  if (field != nullptr) inputs.push_back({field, std::as_bytes(std::span(column))});
}

std::int32_t toRaw(double metres) {
  return static_cast<std::int32_t>(std::llround(metres / kScale));
}

template <class Element>
void repeat(std::vector<Element>& column, std::size_t count, Element value) {
  column.insert(column.end(), count, value);
}

}  // namespace

std::vector<std::byte> SurveyBlock::toRecords(const Formats::PointLayout& layout,
                                              std::uint64_t firstPacketOffset) {
  for (std::uint64_t& offset : points.waveOffset) offset += firstPacketOffset;
  std::vector<Formats::ColumnInput> inputs{
      {&layout.position(), std::as_bytes(std::span(points.position))}};
  addColumn(layout, "Intensity", points.intensity, inputs);
  addColumn(layout, "ReturnNumber", points.returnNumber, inputs);
  addColumn(layout, "NumberOfReturns", points.numberOfReturns, inputs);
  addColumn(layout, "Overlap", points.overlap, inputs);
  addColumn(layout, "ScanDirectionFlag", points.scanDirectionFlag, inputs);
  addColumn(layout, "EdgeOfFlightLine", points.edgeOfFlightLine, inputs);
  addColumn(layout, "Classification", points.classification, inputs);
  addColumn(layout, "ScanAngle", points.scanAngle, inputs);
  addColumn(layout, "PointSourceId", points.pointSourceId, inputs);
  addColumn(layout, "GpsTime", points.gpsTime, inputs);
  addColumn(layout, "WaveDescriptor", points.waveDescriptor, inputs);
  addColumn(layout, "WaveOffset", points.waveOffset, inputs);
  addColumn(layout, "WaveSize", points.waveSize, inputs);
  addColumn(layout, "WaveReturnLocation", points.waveReturnLocation, inputs);
  addColumn(layout, "WaveXt", points.waveVector[0], inputs);
  addColumn(layout, "WaveYt", points.waveVector[1], inputs);
  addColumn(layout, "WaveZt", points.waveVector[2], inputs);
  std::vector<std::byte> records(points.count() * layout.recordBytes());
  Formats::insertColumns(records, layout.recordBytes(), inputs);
  return records;
}

BlockPlan::BlockPlan(const FlightPlan& plan)
    : lineCount_(plan.lineCount),
      scanLinesPerLine_(plan.scanLinesPerLine()),
      scanLinesPerBlock_(std::max<std::uint64_t>(1, kPulsesPerBlock / plan.pulsesPerScanLine)),
      blocksPerLine_((scanLinesPerLine_ + scanLinesPerBlock_ - 1) / scanLinesPerBlock_) {}

BlockPlace BlockPlan::placeOf(std::uint64_t number) const {
  const std::uint64_t first = number % blocksPerLine_ * scanLinesPerBlock_;
  return {static_cast<std::uint32_t>(number / blocksPerLine_), first,
          std::min(scanLinesPerBlock_, scanLinesPerLine_ - first)};
}

BlockMaker::BlockMaker(const SurveyOptions& options, const FlightPlan& plan, const Terrain& terrain)
    : plan_(plan),
      hasWaveforms_(options.hasWaveforms),
      tracer_(terrain, options.seed, {plan.flyingHeight, options.rangeNoiseMetres}),
      recorder_(options) {}

SurveyBlock BlockMaker::make(const BlockPlace& place) {
  SurveyBlock block;
  for (std::uint64_t i = 0; i < place.scanLineCount; ++i) {
    const ScanLine scanLine(plan_, place.line, place.firstScanLine + i);
    double groundHeight = Terrain::kMeanHeight;
    for (std::uint64_t number = 0; number < scanLine.pulseCount(); ++number) {
      const Shot shot = scanLine.shotAt(plan_, number);
      const std::uint64_t pulse = scanLine.firstPulse() + number;
      const PulseReturns returns =
          tracer_.trace(shot.beam, streamOf(kTrace, place.line, pulse), groundHeight);
      if (returns.count() == 0) continue;
      addPulse(shot, place.line, returns, block);
      if (hasWaveforms_) addPacket(shot, streamOf(kRecord, place.line, pulse), returns, block);
    }
    block.pulseCount += scanLine.pulseCount();
  }
  return block;
}

std::uint64_t BlockMaker::countReturns(std::uint64_t stride) {
  std::uint64_t count = 0;
  for (std::uint64_t index = 0; index < plan_.pulseCount(); index += stride) {
    const auto line = static_cast<std::uint32_t>(index / plan_.pulsesPerLine);
    const std::uint64_t pulse = index % plan_.pulsesPerLine;
    const ScanLine scanLine(plan_, line, pulse / plan_.pulsesPerScanLine);
    const Shot shot = scanLine.shotAt(plan_, pulse - scanLine.firstPulse());
    double groundHeight = Terrain::kMeanHeight;
    count += tracer_.trace(shot.beam, streamOf(kTrace, line, pulse), groundHeight).count();
  }
  return count;
}

void BlockMaker::addPulse(const Shot& shot, std::uint32_t line, const PulseReturns& returns,
                          SurveyBlock& block) const {
  PointColumns& points = block.points;
  std::uint8_t number = 0;
  for (const PulseReturn& each : returns.all()) {
    const Vector3 place = shot.beam.at(each.range);
    points.position.insert(
        points.position.end(),
        {toRaw(place.x + kCentre[0]), toRaw(place.y + kCentre[1]), toRaw(place.z + kCentre[2])});
    points.intensity.push_back(each.intensity);
    points.returnNumber.push_back(++number);
    points.overlap.push_back(isOverlap(line, place.y) ? 1 : 0);
    points.classification.push_back(each.classification);
  }
  const std::size_t count = returns.count();
  repeat(points.numberOfReturns, count, number);
  repeat<std::uint8_t>(points.scanDirectionFlag, count, shot.isScanningRight ? 1 : 0);
  repeat<std::uint8_t>(points.edgeOfFlightLine, count, shot.isEdgeOfFlightLine ? 1 : 0);
  repeat(points.scanAngle, count,
         static_cast<std::int16_t>(std::lround(shot.scanAngleDegrees / kScanAngleStepDegrees)));
  repeat(points.pointSourceId, count, static_cast<std::uint16_t>(line + 1));
  repeat(points.gpsTime, count, shot.gpsTime);
}

void BlockMaker::addPacket(const Shot& shot, const RandomStream& random,
                           const PulseReturns& returns, SurveyBlock& block) {
  PointColumns& points = block.points;
  const WavePacket packet = recorder_.append(returns.all(), random, block.packets);
  for (const PulseReturn& each : returns.all()) {
    points.waveReturnLocation.push_back(static_cast<float>(packet.locationOf(each.range)));
  }
  const std::size_t count = returns.count();
  repeat(points.waveDescriptor, count, packet.lengthNumber);
  repeat(points.waveOffset, count, packet.byteOffset);
  repeat(points.waveSize, count, packet.byteSize);
  const Vector3& direction = shot.beam.direction;
  const std::array<double, 3> axes{direction.x, direction.y, direction.z};
  for (std::size_t axis = 0; axis < axes.size(); ++axis) {
    repeat(points.waveVector[axis], count, static_cast<float>(-axes[axis] * kMetresPerPicosecond));
  }
}

RandomStream BlockMaker::streamOf(std::uint64_t purpose, std::uint32_t line,
                                  std::uint64_t pulse) const {
  return {hashOf(plan_.seed, purpose, line), line, pulse};
}

bool BlockMaker::isOverlap(std::uint32_t line, double north) const {
  const double offLine = north - plan_.lineNorth(line);
  const bool hasNeighbour = offLine < 0 ? line > 0 : line + 1 < plan_.lineCount;
  return hasNeighbour && std::abs(offLine) > plan_.lineSpacing / 2.0;
}

}  // namespace Synth
