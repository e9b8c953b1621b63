// SPDX-License-Identifier: Apache-2.0
//
// JsonReport: results as one JSON object for programs. The keys are a contract: they may be joined
// by others, but none goes away or changes its meaning. Numbers that are not finite are null; paths
// are absolute unless said otherwise.

#pragma once

#include <string>
#include <vector>

#include "host/Reports.hpp"

namespace Host {

/// {"grids": [{"time", "name", "points", "box", "fragmentLength", "tiles", "tiledBox", "estimated",
/// "density", "message", ...}], "messages": [...]}
std::string infoJson(const SplitPlan& plan);

/// {"output", "plan", "tiles", "points", "messages", "seconds", "peakMemoryBytes", ...}
std::string splitJson(const SplitReport& report);

/// {"file", "slices": [{"time", "grids": [...]}]}; several files add {"files": [...]} around.
std::string showJson(const std::vector<ShowReport>& reports);

/// {"output", "inputs", "grids", "points", "bytes", "seconds", "peakMemoryBytes"}
std::string linkJson(const LinkReport& report);
std::string verifyJson(const std::vector<VerifyReport>& reports);
std::string importJson(const ImportReport& report);

/// {"output", "points", "pulses", "waveformBytes", "bytes", "seconds", "peakMemoryBytes"}
std::string synthJson(const SynthReport& report);

}  // namespace Host
