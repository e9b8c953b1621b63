// SPDX-License-Identifier: Apache-2.0
//
// SyntheticBlock: the points and packets of a few scan lines, the unit in which a synthetic survey
// is made and written. A block depends on options and plan alone, so blocks may be made by any
// thread in any order; written one after the other they are the file.

#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "formats/las/PointLayout.hpp"
#include "host/synth/SyntheticFlight.hpp"
#include "host/synth/SyntheticOptions.hpp"
#include "host/synth/SyntheticPulse.hpp"
#include "host/synth/SyntheticTerrain.hpp"
#include "host/synth/SyntheticWaveform.hpp"

namespace Synth {

/// How the coordinates of the file are stored: metres = raw * kScale + kOffset.
inline constexpr double kScale = 0.001;
inline constexpr std::array<double, 3> kOffset{455000.0, 5427000.0, 0.0};

/// Where the middle of the survey is, from the offset.
inline constexpr std::array<double, 3> kCentre{600.0, 900.0, 0.0};

/// The points of a block, field by field. Shape: one element per point, `position` three.
struct PointColumns {
  std::vector<std::int32_t> position;
  std::vector<std::uint16_t> intensity;
  std::vector<std::uint8_t> returnNumber;
  std::vector<std::uint8_t> numberOfReturns;
  std::vector<std::uint8_t> overlap;
  std::vector<std::uint8_t> scanDirectionFlag;
  std::vector<std::uint8_t> edgeOfFlightLine;
  std::vector<std::uint8_t> classification;
  std::vector<std::int16_t> scanAngle;
  std::vector<std::uint16_t> pointSourceId;
  std::vector<double> gpsTime;
  std::vector<std::uint8_t> waveDescriptor;  ///< This and what follows only with waveforms.
  std::vector<std::uint64_t> waveOffset;     ///< From the start of the block's packets.
  std::vector<std::uint32_t> waveSize;
  std::vector<float> waveReturnLocation;
  std::array<std::vector<float>, 3> waveVector;  ///< Metres per picosecond, towards the aircraft.

  std::size_t count() const { return intensity.size(); }
};

/// What a few scan lines give.
struct SurveyBlock {
  PointColumns points;
  std::vector<std::byte> packets;
  std::uint64_t pulseCount = 0;

  /// The points as records of this layout. `firstPacketOffset` is where the block's packets begin
  /// in the file's packets. Requires: point format 9 with waveforms, 6 without.
  std::vector<std::byte> toRecords(const Formats::PointLayout& layout,
                                   std::uint64_t firstPacketOffset);
};

/// Which scan lines a block covers.
struct BlockPlace {
  std::uint32_t line = 0;
  std::uint64_t firstScanLine = 0;
  std::uint64_t scanLineCount = 0;
};

/// The survey cut into blocks of some ten thousand pulses, numbered in the order of the file.
class BlockPlan {
 public:
  explicit BlockPlan(const FlightPlan& plan);

  std::uint64_t blockCount() const { return blocksPerLine_ * lineCount_; }

  /// Requires: number < blockCount().
  BlockPlace placeOf(std::uint64_t number) const;

 private:
  std::uint32_t lineCount_;
  std::uint64_t scanLinesPerLine_;
  std::uint64_t scanLinesPerBlock_;
  std::uint64_t blocksPerLine_;
};

/// Makes blocks. Threads: one object per thread; it remembers much of the scene, keep it off the
/// stack.
class BlockMaker {
 public:
  /// Requires: the plan and the terrain outlive the maker.
  BlockMaker(const SurveyOptions& options, const FlightPlan& plan, const Terrain& terrain);

  SurveyBlock make(const BlockPlace& place);

  /// Returns of every `stride`-th pulse of the survey, for an estimate.
  std::uint64_t countReturns(std::uint64_t stride);

 private:
  void addPulse(const Shot& shot, std::uint32_t line, const PulseReturns& returns,
                SurveyBlock& block) const;
  void addPacket(const Shot& shot, const RandomStream& random, const PulseReturns& returns,
                 SurveyBlock& block);
  RandomStream streamOf(std::uint64_t purpose, std::uint32_t line, std::uint64_t pulse) const;
  bool isOverlap(std::uint32_t line, double north) const;

  const FlightPlan& plan_;
  bool hasWaveforms_;
  PulseTracer tracer_;
  WaveformRecorder recorder_;
};

}  // namespace Synth
