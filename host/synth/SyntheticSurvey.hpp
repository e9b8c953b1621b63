// SPDX-License-Identifier: Apache-2.0
//
// SyntheticSurvey: writes a made-up airborne laser survey of any size as a LAS 1.4 file (LAZ by its
// name), for trials, tests and measurements where no real data may be used or none is large enough:
// hills, a river, streets, buildings and trees, flown over in parallel lines that overlap, with
// several returns per pulse and their waveforms. Coordinates are UTM zone 32 north (EPSG:25832) in
// metres.
//
// Threads: blocks of scan lines are made by as many threads as allowed and written one after the
// other, by whichever thread has made the next one. Each thread holds one block of 5 to 20
// megabytes, which bounds memory whatever the size of the survey. Points and packets are made in
// one pass; the writer keeps the packets in a temporary file beside the output until the points are
// complete. Making every pulse twice instead was weighed: following the beams again takes about as
// long as that copy, and needs no room on the disk, but each pulse would have to be made in two
// ways.

#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "datamodel/memcore/Outcome.hpp"
#include "host/synth/SyntheticOptions.hpp"

namespace Synth {

/// What has been written.
struct SurveySummary {
  std::uint64_t pointCount = 0;
  std::uint64_t pulseCount = 0;     ///< Sent; some come back with no return.
  std::uint64_t waveformBytes = 0;  ///< Of all packets.
  double lineLengthMetres = 0;
  double swathWidthMetres = 0;
};

/// Is told the part that is done, 0 to 1; returns false to stop. It is called by the threads of the
/// run, never by two at once.
using SurveyProgress = std::function<bool(double)>;

/// Writes a survey to `path`, replacing an older file; a name that ends in .laz makes it
/// compressed. The file appears under its name only when complete. Errors: an option out of its
/// range, a path that cannot be written, no memory, or a stop by `progress` (which may be empty);
/// nothing is left behind then.
MemCore::Outcome<SurveySummary> writeSyntheticSurvey(const SurveyOptions& options,
                                                     const std::string& path,
                                                     const SurveyProgress& progress);

}  // namespace Synth
