// SPDX-License-Identifier: Apache-2.0
//
// A small host of the library: builds a cloud in memory, splits it with a progress object of its
// own, loads the result and counts. Ends with 0 when every point came through once.
//
//   consumer FOLDER     works in FOLDER, which must exist

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <string>

#include "datamodel/memcore/Console.hpp"
#include "operation/RefragmentAndSplit.hpp"

namespace {

using MemCore::makeStrong;
using MemCore::StrongPtr;
using Point = Eagle::PhysicalSpace::point;

constexpr std::uint64_t kPointsPerSide = 100;
constexpr std::uint64_t kPointCount = kPointsPerSide * kPointsPerSide;

/// Counts the tiles that the run reports.
class Progress : public MemCore::LoaderProgress {
 public:
  bool report(const std::string& /*text*/, std::uint64_t /*current*/,
              std::uint64_t total) override {
    ++reports;
    lastTotal = total;
    return true;
  }
  std::atomic<std::uint64_t> reports = 0;
  std::atomic<std::uint64_t> lastTotal = 0;
};

/// One grid "plot" of points on a lattice of one metre, with an intensity each.
Fiber::BundlePtr makeCloud() {
  const auto points = makeStrong<MemCore::Chunk<Point>>();
  const auto intensities = makeStrong<MemCore::Chunk<unsigned short>>();
  for (std::uint64_t i = 0; i < kPointCount; ++i) {
    points->push_back({double(i % kPointsPerSide), double(i / kPointsPerSide), double(i % 7)});
    intensities->push_back(static_cast<unsigned short>(i));
  }
  Fiber::BundlePtr bundle(new Fiber::Bundle);
  const auto grid = (*(*bundle)[0.0])["plot"];
  const auto representation = grid->makeCartesianRepresentation(3, "", 0);
  const auto add = [&](const char* name, const StrongPtr<Fiber::MemBase>& data) {
    const auto id = representation->makeFieldID(name);
    representation->makeField(id, nullptr, data);
  };
  add("Positions", Fiber::makeArray<Point>(points));
  add("Intensity", Fiber::makeArray<unsigned short>(intensities));
  return bundle;
}

/// Number of points in the only grid of a bundle file; 0 when there is none.
std::uint64_t countPoints(const std::string& file, std::size_t& tileCount) {
  bool ok = false;
  std::string failure;
  const auto bundle = Fiber::Bundle::load(
      ok, makeStrong<MemCore::LoaderParameters>(MemCore::LoaderParameters{{file}, false}), nullptr,
      &failure);
  if (!ok) {
    std::fprintf(stderr, "%s\n", failure.c_str());
    return 0;
  }
  std::uint64_t count = 0;
  const auto grid = bundle->slices().begin()->second->findGrid("plot");
  const auto positions = grid ? grid->CartesianPositions() : nullptr;
  if (!positions) return 0;
  for (const auto& fragment : positions->getFragmentIDs()) {
    if (const auto data = positions->getData(fragment)) {
      ++tileCount;
      count += data->size().elementCount();
    }
  }
  return count;
}

bool expect(bool holds, const char* what) {
  std::printf("%s: %s\n", holds ? "ok" : "FAILED", what);
  return holds;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) return 2;
  std::filesystem::current_path(argv[1]);

  LidarLib::RefragmentAndSplit operation;
  const auto progress = makeStrong<Progress>();
  operation.inputBundle = makeCloud();
  operation.tileProgress = progress;
  operation.outputDirectory = ".";
  operation.outputFileName = "plot.f5";
  operation.FragmentLength = {{25.0, 50.0, 0.0}};

  bool good = expect(operation.Run(), "Run started");
  for (const std::string& message : operation.messages) std::printf("%s\n", message.c_str());
  good &= expect(operation.messages.empty(), "no messages");
  good &= expect(progress->lastTotal > 0 && progress->reports > 0, "progress was reported");
  std::size_t tileCount = 0;
  good &= expect(countPoints("plot.f5", tileCount) == kPointCount, "every point is in one tile");
  good &= expect(tileCount == progress->reports, "one tile per report");
  return good ? 0 : 1;
}
