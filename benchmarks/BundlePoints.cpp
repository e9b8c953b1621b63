// SPDX-License-Identifier: Apache-2.0

#include "benchmarks/BundlePoints.hpp"

#include "datamodel/fiber/Bundle.hpp"
#include "datamodel/fiber/Field.hpp"
#include "datamodel/fiber/Grid.hpp"
#include "datamodel/memcore/LoaderParameters.hpp"

namespace Benchmarks {

MemCore::Outcome<std::uint64_t> pointsOfBundle(const std::string& bundleFile) {
  bool ok = false;
  std::string failure;
  const auto parameters = MemCore::makeStrong<MemCore::LoaderParameters>(
      MemCore::LoaderParameters{{bundleFile}, false});
  const auto bundle = Fiber::Bundle::load(ok, parameters, nullptr, &failure);
  if (!ok) return MemCore::Failure{failure};
  std::uint64_t points = 0;
  for (const auto& [time, slice] : bundle->slices()) {
    for (const auto& [name, grid] : slice->grids()) {
      const auto positions = grid->CartesianPositions();
      for (const auto& id : positions->getFragmentIDs()) {
        if (const auto creator = positions->getCreator(id)) points += Fiber::pointCountOf(*creator);
      }
    }
  }
  return points;
}

}  // namespace Benchmarks
