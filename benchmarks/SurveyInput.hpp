// SPDX-License-Identifier: Apache-2.0
//
// The point clouds that benchmarks work on: synthetic surveys of any size.

#pragma once

#include <string>

#include "benchmarks/MeasuredChild.hpp"

namespace Benchmarks {

/// What a file says of itself.
struct InputFacts {
  std::string path;
  std::uint64_t points = 0;
  std::uint64_t recordBytes = 0;
  double area = 0.0;  ///< of its box, in square units

  std::uint64_t plainBytes() const { return points * recordBytes; }
  /// Edge length of square tiles, so many that they cover the box.
  double edgeForTiles(double tiles) const;
};

MemCore::Outcome<InputFacts> factsOf(const std::string& path);

/// Writes a survey without waveforms in flight lines, as LAS or LAZ by the path's ending, in a
/// child, so that this process starts no threads.
MemCore::Outcome<InputFacts> makeSurvey(const std::string& path, std::uint64_t points);

/// The file at `given`, or a survey made at `otherwise` when that is empty.
MemCore::Outcome<InputFacts> surveyAt(const std::string& given, const std::string& otherwise,
                                      std::uint64_t points);

}  // namespace Benchmarks
