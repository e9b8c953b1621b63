// SPDX-License-Identifier: Apache-2.0

#include "benchmarks/SurveyInput.hpp"

#include <cmath>

#include "formats/las/LasFile.hpp"
#include "host/synth/SyntheticSurvey.hpp"

namespace Benchmarks {

using MemCore::Outcome;

double InputFacts::edgeForTiles(double tiles) const { return std::sqrt(area / tiles); }

Outcome<InputFacts> factsOf(const std::string& path) {
  const auto opened = Formats::LasFile::open(path);
  if (!opened.ok()) return opened.failure();
  const Formats::LasHeader& header = (*opened)->header();
  return InputFacts{
      path, (*opened)->pointCount(), (*opened)->recordBytes(),
      (header.maximum[0] - header.minimum[0]) * (header.maximum[1] - header.minimum[1])};
}

Outcome<InputFacts> makeSurvey(const std::string& path, std::uint64_t points) {
  const auto made = measureInChild([&]() -> Outcome<std::uint64_t> {
    Synth::SurveyOptions options;
    options.pointCount = points;
    options.hasWaveforms = false;
    const auto summary = Synth::writeSyntheticSurvey(options, path, {});
    if (!summary.ok()) return summary.failure();
    return summary->pointCount;
  });
  if (!made.ok()) return made.failure();
  return factsOf(path);
}

Outcome<InputFacts> surveyAt(const std::string& given, const std::string& otherwise,
                             std::uint64_t points) {
  return given.empty() ? makeSurvey(otherwise, points) : factsOf(given);
}

}  // namespace Benchmarks
