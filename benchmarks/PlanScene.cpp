// SPDX-License-Identifier: Apache-2.0

#include "benchmarks/PlanScene.hpp"

#include <cmath>

#include "assembly/OutputGrid.hpp"

namespace Benchmarks {

using Eagle::PhysicalSpace;
using MemCore::makeStrong;
using MemCore::StrongPtr;

namespace {

constexpr std::uint64_t kPointsPerFragment = 1'000'000;

/// Knows its facts and has no data.
class PromisedPoints final : public Fiber::CreativeArrayBase {
 public:
  using CreativeArrayBase::CreativeArrayBase;

 protected:
  MemCore::Outcome<StrongPtr<Fiber::MemBase>> create() override {
    return MemCore::Failure{"promised points: there are none"};
  }
};

}  // namespace

std::uint64_t edgeOf(std::uint64_t count) {
  return static_cast<std::uint64_t>(std::ceil(std::sqrt(static_cast<double>(count))));
}

Eagle::BoundingBox rasterBox(std::uint64_t place, std::uint64_t count) {
  const std::uint64_t edge = edgeOf(count);
  const std::uint64_t rows = (count + edge - 1) / edge;
  const auto corner = [](std::uint64_t index, std::uint64_t of) {
    return static_cast<double>(index) / static_cast<double>(of);
  };
  const std::uint64_t i = place % edge;
  const std::uint64_t j = place / edge;
  const double right = place + 1 == count ? 1.0 : corner(i + 1, edge);
  return {{corner(i, edge), corner(j, rows), 0.0}, {right, corner(j + 1, rows), 1.0}};
}

StrongPtr<Fiber::Grid> promisedCloud(Fiber::Bundle& bundle, std::uint64_t fragments) {
  auto grid = (*bundle[0.0])["points"];
  const auto vertices = grid->makeCartesianRepresentation(3, "", 0);
  const auto positions = makeStrong<Fiber::Field>(vertices->fragments());
  vertices->setPositions(positions);
  const auto type = Fiber::FiberTypeBase::find(typeid(PhysicalSpace::point));
  for (std::uint64_t f = 0; f < fragments; ++f) {
    const Fiber::ArrayFacts facts{type, Fiber::DynamicSize{kPointsPerFragment},
                                  makeStrong<Eagle::BoundingBox>(rasterBox(f, fragments)),
                                  std::nullopt};
    positions->setCreator(
        vertices->fragments()->makeFragmentID("0-" + std::to_string(f), static_cast<unsigned>(f)),
        makeStrong<PromisedPoints>(facts));
  }
  return grid;
}

TilingScene unitTiling(std::uint64_t tiles) {
  TilingScene scene;
  const std::uint64_t edge = edgeOf(tiles);
  scene.layout.nx = edge;
  scene.layout.ny = edge;
  scene.layout.fragmentLength = {
      {1.0 / static_cast<double>(edge), 1.0 / static_cast<double>(edge), 1.0}};
  const Eagle::BoundingBox unit({0.0, 0.0, 0.0}, {1.0, 1.0, 1.0});
  scene.layout.globalBox = makeStrong<Eagle::BoundingBox>(unit);
  scene.layout.tiledBox = makeStrong<Eagle::BoundingBox>(unit);
  const auto grid = makeStrong<Fiber::Grid>("output");
  LidarLib::makeRegularPositions(*grid, {{edge, edge, 1}});
  scene.view.emplace(grid);
  return scene;
}

}  // namespace Benchmarks
