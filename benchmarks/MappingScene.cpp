// SPDX-License-Identifier: Apache-2.0

#include "benchmarks/MappingScene.hpp"

#include <fmt/format.h>

#include "benchmarks/PlanScene.hpp"
#include "datamodel/memcore/Console.hpp"

namespace Benchmarks {

using MemCore::Outcome;

namespace {

/// What a mapping works on; filled in the child that measures.
struct MappingScene {
  Fiber::Bundle bundle;
  MemCore::StrongPtr<Fiber::Field> positions;
  TilingScene tiling;
};

Outcome<std::uint64_t> prepare(MappingScene& scene, const MappingSizes& sizes) {
  MemCore::Console::setSink([](const std::string&) {});
  scene.positions = promisedCloud(scene.bundle, sizes.fragments)->CartesianPositions();
  scene.tiling = unitTiling(sizes.tiles);
  return sizes.tiles;
}

Outcome<std::uint64_t> map(MappingScene& scene, const MappingSizes& sizes) {
  const std::uint64_t found =
      LidarLib::mapFragmentBoxes(scene.tiling.layout, *scene.tiling.view, 0.0,
                                 scene.positions->getFragmentIDs(), scene.positions)
          .tilesWithData;
  if (found == sizes.tiles) return found;
  return MemCore::Failure{
      fmt::format("wrong answer, found {} tiles with data, expected {}", found, sizes.tiles)};
}

}  // namespace

Measure mapping(const MappingSizes& sizes) {
  return [sizes] {
    MappingScene scene;
    return measureInChild([&] { return map(scene, sizes); }, [&] { return prepare(scene, sizes); });
  };
}

Measure mappingSceneAlone(const MappingSizes& sizes) {
  return [sizes] {
    MappingScene scene;
    return measureInChild([&] { return prepare(scene, sizes); });
  };
}

}  // namespace Benchmarks
