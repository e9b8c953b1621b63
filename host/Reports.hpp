// SPDX-License-Identifier: Apache-2.0
//
// Reports: what the sub-commands have to tell, before it is put into words (TextReport) or JSON
// (JsonReport).

#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "host/BundleFacts.hpp"
#include "host/SplitPlan.hpp"
#include "host/TileSummary.hpp"

namespace Host {

/// What a run of the program took.
struct ResourceUse {
  double seconds = 0.0;
  std::uint64_t peakMemoryBytes = 0;
};

struct SplitReport {
  std::string output;  ///< absolute path of the linking bundle
  std::string tileFolder;
  SplitPlan plan;
  TilingOptions tiling;
  bool isResumed = false;
  TileSummary tiles;
  std::vector<PointBalance> balances;
  bool isCompared = false;  ///< totals have to agree: no overlap, and every tile is there
  std::vector<std::string> messages;
  ResourceUse use;
};

struct ImportReport {
  std::string output;
  std::vector<std::string> inputs;
  std::vector<GridFacts> grids;
  std::uint64_t bytes = 0;
  ResourceUse use;
};

struct LinkReport {
  std::string output;
  std::uint64_t tiles = 0;
  std::vector<GridFacts> grids;
  ResourceUse use;
};

struct VerifyReport {
  std::string file;
  std::uint64_t tiles = 0;  ///< or other fragments
  std::uint64_t points = 0;
  bool quick = false;
  std::vector<std::string> problems;  ///< one line each
};

struct SynthReport {
  std::string output;
  std::uint64_t pointCount = 0;
  std::uint64_t pulseCount = 0;
  std::uint64_t waveformBytes = 0;
  std::uint64_t bytes = 0;
  ResourceUse use;
};

/// One shown file, or several that are one cloud.
struct ShowReport {
  std::string file;
  std::vector<GridFacts> grids;
};

/// Points over all grids of a split, in and out.
std::uint64_t inputPoints(const SplitReport& report);
std::uint64_t outputPoints(const SplitReport& report);

/// Whether a total that had to agree does not.
bool differs(const SplitReport& report);

}  // namespace Host
