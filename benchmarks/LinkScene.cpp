// SPDX-License-Identifier: Apache-2.0

#include "benchmarks/LinkScene.hpp"

#include <fmt/format.h>

#include <filesystem>

#include "benchmarks/PlanScene.hpp"
#include "datamodel/memcore/Console.hpp"
#include "operation/RefragmentAndSplit.hpp"

namespace fs = std::filesystem;

namespace Benchmarks {

using Eagle::PhysicalSpace;
using MemCore::Failure;
using MemCore::Outcome;

namespace {

/// One tile of a hundred points in a tiling of edge x edge tiles.
Outcome<void> saveTile(const std::string& file, unsigned int edge) {
  const Fiber::BundlePtr bundle(new Fiber::Bundle);
  const auto grid = (*(*bundle)[0.0])["points"];
  const auto dims = MemCore::makeStrong<MemCore::Chunk<unsigned int>>(
      std::initializer_list<unsigned int>{edge, edge, 1});
  grid->attributes().setAttribute("FragDims", dims);
  const auto points = MemCore::makeStrong<MemCore::Chunk<PhysicalSpace::point>>();
  for (int i = 0; i < 100; ++i) points->push_back({0.25 * i, 0.5 * i, 1.0});
  const auto representation = grid->makeCartesianRepresentation(3, "", 0);
  representation->makeField(representation->makeFieldID("Positions"), nullptr,
                            Fiber::makeArray<PhysicalSpace::point>(points));
  return bundle->save(file, nullptr, nullptr);
}

}  // namespace

Outcome<LinkScene> makeLinkScene(const std::string& folder, std::uint64_t count) {
  LinkScene scene{folder, edgeOf(count), {}};
  fs::create_directories(folder);
  const std::string first = folder + "/first.f5";
  if (auto saved = saveTile(first, static_cast<unsigned int>(scene.edge)); !saved.ok())
    return saved.failure();
  for (std::uint64_t t = 0; t < count; ++t) {
    scene.tiles.push_back(
        fmt::format("{}/F{}x{}x0T0.000000Gpoints.f5", folder, t % scene.edge, t / scene.edge));
    fs::copy_file(first, scene.tiles.back());
  }
  return scene;
}

Outcome<std::uint64_t> linkAll(const LinkScene& scene) {
  const MemCore::ConsoleRedirection quiet([](const std::string&) {});
  LidarLib::RefragmentAndSplit operation;
  operation.inputFiles = MemCore::makeStrong<std::vector<std::string>>(scene.tiles);
  operation.outputFileName = scene.linked();
  if (!operation.UpdateLinked()) return Failure{"link failed"};
  return scene.tiles.size();
}

}  // namespace Benchmarks
