// SPDX-License-Identifier: Apache-2.0

#include "operation/Linking.hpp"

#include <unordered_set>
#include <vector>

#include "datamodel/fiber/Bundle.hpp"
#include "datamodel/memcore/Console.hpp"

namespace LidarLib {

using Fiber::FieldProxy;
using MemCore::Console;
using MemCore::makeStrong;
using MemCore::StrongPtr;

namespace {

/// What linking one tile file needs at every field.
struct LinkTarget {
  Fiber::Grid& grid;
  RegularPositions& positions;
  const Fiber::MultiIndex<3>& tileIndex;
  std::uint64_t& outputPoints;
};

/// The output field of a name, made over the fragments of the positions when absent.
StrongPtr<Fiber::Field> outputField(const LinkTarget& target, const std::string& chart,
                                    const std::string& name) {
  const auto representation = target.grid.makeCartesianRepresentation(3, chart, 0);
  if (!representation) return nullptr;
  if (!representation->findField(name)) {
    FieldProxy(representation, name) = target.positions->emptyCopy();
  }
  return representation->findField(name);
}

/// The first tile that brings a description of a field gives it to the output field, so that a
/// linked bundle says as much about its fields as its tiles do.
void adoptProperties(Fiber::Field& output, const Fiber::Field& input) {
  if (!output.properties().all().empty()) return;
  output.properties() = input.properties();
  output.propertyBits = input.propertyBits;
}

void linkFieldFragment(const LinkTarget& target, const std::string& chart, const std::string& name,
                       const Fiber::Field& field) {
  const auto ids = field.getFragmentIDs();
  if (ids.size() != 1) {
    Console() << "copyCreators: Have no ID !?!: " << ids.size();
    return;
  }
  const Fiber::CreatorHandle creator = field.getCreator(ids.front());
  if (!creator) {
    Console() << "WARNING HAVE NO CREATOR TO COPY!";
    return;
  }
  StrongPtr<Eagle::BoundingBox> box;
  Fiber::ExpandBBox(box, *creator, Fiber::DataCreationMode::KnownOnly);
  creator->touch();
  if (name == "Positions" && chart == Fiber::kCartesianChart) {
    target.outputPoints += Fiber::pointCountOf(*creator);
  }
  const auto output = outputField(target, chart, name);
  if (!output) return;
  adoptProperties(*output, field);
  if (const auto regular = MemCore::handleCast<Fiber::RegularlyFragmentedField<3>>(output)) {
    regular->setCreatorAt(target.tileIndex, creator);
  }
}

void linkGrid(const LinkTarget& target, Fiber::Grid& grid) {
  const auto vertices = grid.skeletons().findVertices(-1);
  if (!vertices) return;
  std::unordered_set<unsigned long long> visited;
  vertices->iterate_fields(
      [&](const MemCore::WeakPtr<Fiber::BaseSpace>& space, Fiber::Representation&,
          const Fiber::FieldID& id, const StrongPtr<Fiber::Field>& field) {
        const auto chart = space.lock();
        linkFieldFragment(target, chart ? chart->name() : std::string(), id.name, *field);
        return true;
      },
      visited);
}

void attachRangeOrBox(const StrongPtr<Fiber::Field>& field) {
  std::string name;
  if (Fiber::getRange(*field, name, false, false)) return;
  StrongPtr<Eagle::BoundingBox> box;
  if (Fiber::expandBoundingBox(field, box)) field->addInterface(box);
}

}  // namespace

void copyCreators(const std::string& fileName, Fiber::Grid& outputGrid,
                  RegularPositions& outputPositions, const Fiber::MultiIndex<3>& tileIndex,
                  std::uint64_t& outputPoints) {
  const auto parameters =
      makeStrong<MemCore::LoaderParameters>(MemCore::LoaderParameters{{fileName}, false});
  bool ok = false;
  const Fiber::BundlePtr loaded = Fiber::Bundle::load(ok, parameters, nullptr);
  if (!ok || !loaded) return;
  const LinkTarget target{outputGrid, outputPositions, tileIndex, outputPoints};
  for (const auto& [time, slice] : loaded->slices()) {
    slice->accessSlice();
    for (const auto& [name, grid] : slice->grids()) {
      if (grid) linkGrid(target, *grid);
    }
  }
}

std::string saveLinking(const RefragmentAndSplit& operation, Fiber::Bundle& bundle,
                        StrongPtr<Fiber::StorageTransformations> transformations) {
  if (!transformations) transformations = makeStrong<Fiber::StorageTransformations>();
  transformations->linkFragments = true;
  // Deliberate: the transformations go in the progress position, where they are no progress object
  // and so an empty handle, and the defaults apply.
  const auto saved =
      bundle.save(operation.outputFileName,
                  MemCore::handleCast<MemCore::LoaderProgress>(transformations), nullptr);
  return saved.ok() ? std::string() : saved.error();
}

void addFieldAttributes(Fiber::Grid& grid) {
  const auto vertices = grid.skeletons().findVertices(-1);
  if (!vertices) return;
  std::unordered_set<unsigned long long> visited;
  vertices->iterate_fields(
      [](const MemCore::WeakPtr<Fiber::BaseSpace>&, Fiber::Representation&, const Fiber::FieldID&,
         const StrongPtr<Fiber::Field>& field) {
        attachRangeOrBox(field);
        return true;
      },
      visited);
}

}  // namespace LidarLib
