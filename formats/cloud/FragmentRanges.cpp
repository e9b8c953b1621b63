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
/// Records of a run that is decoded as one piece at most.
constexpr std::uint64_t kMaxRunBytes = std::uint64_t{1} << 29;

std::uint64_t atMost(std::uint64_t points, std::uint64_t budget, std::uint64_t perPoint) {
  const std::uint64_t affordable = std::max(kSmallFragment, budget / perPoint);
  return std::min(points, affordable);
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
  const std::uint64_t bytesPerPoint = std::max<std::size_t>(recordBytes, 1);
  std::uint64_t limit = atMost(limits.fragmentPoints, kFragmentRecordBytes, bytesPerPoint);
  if (limits.samplesPerPoint != 0) limit = atMost(limit, kFragmentSamples, limits.samplesPerPoint);
  std::vector<PointRange> fragments;
  if (runs.empty()) {
    cutEvenly({0, pointCount}, limit, fragments);
  } else {
    joinRuns(runs, limit, kMaxRunBytes / bytesPerPoint, fragments);
  }
  return fragments;
}

std::vector<PointRange> cutIntoFragments(const LasFile& file, const FragmentLimits& limits) {
  const bool hasChunks = file.storage() == PointStorage::Chunked;
  return cutIntoFragments(hasChunks ? std::span(file.runs()) : std::span<const PointRun>(),
                          file.pointCount(), file.recordBytes(), limits);
}

}  // namespace Formats
