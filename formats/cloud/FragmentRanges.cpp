// SPDX-License-Identifier: Apache-2.0

#include "formats/cloud/FragmentRanges.hpp"

#include <algorithm>

namespace Formats {

namespace {

/// Records and waveform samples that a fragment should not exceed, and the number of points below
/// which fragments are not made smaller for that.
constexpr std::uint64_t kFragmentRecordBytes = std::uint64_t{1} << 28;
constexpr std::uint64_t kFragmentSamples = std::uint64_t{1} << 26;
constexpr std::uint64_t kSmallFragment = 1024;
/// The same for a run that is decoded as one piece: above this it is cut, at the price of being
/// decoded for each part.
constexpr std::uint64_t kRunRecordBytes = std::uint64_t{1} << 29;
constexpr std::uint64_t kRunSamples = std::uint64_t{1} << 28;

/// Points that fit into both budgets.
std::uint64_t affordablePoints(std::uint64_t recordBudget, std::uint64_t recordBytes,
                               std::uint64_t sampleBudget, std::uint64_t samplesPerPoint) {
  const std::uint64_t byRecords = recordBudget / std::max<std::uint64_t>(recordBytes, 1);
  const std::uint64_t bySamples = sampleBudget / std::max<std::uint64_t>(samplesPerPoint, 1);
  return std::max(kSmallFragment, std::min(byRecords, bySamples));
}

void cutEvenly(const PointRange& range, std::uint64_t limit, std::vector<PointRange>& fragments) {
  for (std::uint64_t done = 0; done < range.pointCount; done += limit) {
    fragments.push_back({range.firstPoint + done, std::min(limit, range.pointCount - done)});
  }
}

void joinRuns(std::span<const PointRun> runs, std::uint64_t limit, std::uint64_t runLimit,
              std::vector<PointRange>& fragments) {
  bool canGrow = false;
  for (const PointRun& run : runs) {
    if (run.pointCount == 0) continue;
    if (canGrow && run.pointCount <= limit &&
        fragments.back().pointCount <= limit - run.pointCount) {
      fragments.back().pointCount += run.pointCount;
      continue;
    }
    cutEvenly({run.firstPoint, run.pointCount}, std::max(limit, runLimit), fragments);
    canGrow = run.pointCount <= limit;
  }
}

}  // namespace

std::vector<PointRange> cutIntoFragments(std::span<const PointRun> runs, std::uint64_t pointCount,
                                         std::size_t recordBytes, const FragmentLimits& limits) {
  const std::uint64_t samples = limits.samplesPerPoint;
  const std::uint64_t limit =
      std::min(limits.fragmentPoints,
               affordablePoints(kFragmentRecordBytes, recordBytes, kFragmentSamples, samples));
  std::vector<PointRange> fragments;
  if (runs.empty()) {
    cutEvenly({0, pointCount}, limit, fragments);
  } else {
    joinRuns(runs, limit, affordablePoints(kRunRecordBytes, recordBytes, kRunSamples, samples),
             fragments);
  }
  return fragments;
}

std::vector<PointRange> cutIntoFragments(const LasFile& file, const FragmentLimits& limits) {
  const bool hasChunks = file.storage() == PointStorage::Chunked;
  return cutIntoFragments(hasChunks ? std::span(file.runs()) : std::span<const PointRun>(),
                          file.pointCount(), file.recordBytes(), limits);
}

}  // namespace Formats
