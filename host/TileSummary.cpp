// SPDX-License-Identifier: Apache-2.0

#include "host/TileSummary.hpp"

#include <algorithm>

#include "host/OutsidePoints.hpp"

namespace Host {

namespace {

std::uint64_t pointsOf(const Fiber::BundlePtr& bundle, double time, const std::string& name) {
  if (!bundle) return 0;
  const auto slice = bundle->slices().find(time);
  if (slice == bundle->slices().end() || !slice->second) return 0;
  const auto grid = slice->second->findGrid(name);
  const auto positions = grid ? grid->CartesianPositions() : nullptr;
  return positions ? countPoints(*positions) : 0;
}

std::uint64_t difference(std::uint64_t whole, std::uint64_t part) {
  return whole - std::min(whole, part);
}

}  // namespace

RunMessages sortMessages(const std::list<std::string>& messages, const std::string& tilePrefix) {
  RunMessages sorted;
  for (const std::string& message : messages) {
    if (message == "Interrupted") {
      ++sorted.interrupted;
    } else if (message.starts_with(tilePrefix) || message == "no outputfrag representation") {
      sorted.tileFailures.push_back(message);
    } else {
      sorted.failures.push_back(message);
    }
  }
  return sorted;
}

TileSummary summariseTiles(const SplitPlan& plan, const TileEvidence& evidence,
                           const RunMessages& messages, const std::vector<DroppedTiles>& dropped) {
  TileSummary summary;
  for (const GridForecast& grid : plan.grids) summary.total += grid.tileCount();
  summary.withData = evidence.withData;
  summary.kept = evidence.filesBefore;
  summary.written = difference(evidence.filesAfter, evidence.filesBefore);
  summary.failed = messages.tileFailures.size();
  const std::uint64_t rest =
      difference(summary.withData, summary.kept + summary.written + summary.failed);
  if (messages.interrupted == 0) {
    summary.dropped = rest;
    return summary;
  }
  // Which of the remaining tiles hold no point at all only another run will tell.
  for (const DroppedTiles& tiles : dropped) summary.dropped += tiles.tiles;
  summary.pending = difference(rest, summary.dropped);
  return summary;
}

std::vector<PointBalance> balancePoints(const SplitPlan& plan,
                                        const std::vector<DroppedTiles>& dropped,
                                        const Fiber::BundlePtr& output,
                                        const std::string& outputGrid) {
  std::vector<PointBalance> balances;
  for (std::size_t i = 0; i < plan.grids.size(); ++i) {
    const GridForecast& grid = plan.grids[i];
    PointBalance balance;
    balance.grid = grid.source.name;
    balance.time = grid.source.time;
    balance.input = grid.pointCount;
    balance.outside = grid.outsidePoints;
    balance.dropped = i < dropped.size() ? dropped[i].points : 0;
    balance.output = pointsOf(output, grid.source.time, outputGrid);
    balances.push_back(balance);
  }
  return balances;
}

}  // namespace Host
