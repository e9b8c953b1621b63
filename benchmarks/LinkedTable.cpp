// SPDX-License-Identifier: Apache-2.0

#include "benchmarks/LinkedTable.hpp"

#include <fmt/format.h>

#include <filesystem>
#include <memory>

#include "assembly/OutputGrid.hpp"
#include "benchmarks/PlanScene.hpp"
#include "datamodel/container/StoredCreator.hpp"

namespace Benchmarks {

using Fiber::Container::StoredCreator;
using Fiber::Container::StoredPlace;
using Fiber::Container::StoredSource;
using MemCore::Failure;
using MemCore::makeStrong;
using MemCore::Outcome;

namespace {

constexpr std::uint64_t kPointsPerTile = 5'000'000;
constexpr const char* kGrid = "LinkedGrid";

/// Fields beside the positions, with their element types.
struct FieldKind {
  const char* name;
  const char* type;
};
constexpr FieldKind kFields[] = {{"Classification", "uint8"}, {"GpsTime", "double"},
                                 {"Intensity", "uint16"},     {"NumberOfReturns", "uint8"},
                                 {"PointSourceId", "uint16"}, {"ReturnNumber", "uint8"}};

/// A grid of linked tiles under construction.
class LinkBuilder {
 public:
  /// `folder`: absolute, where the tiles would lie.
  LinkBuilder(Fiber::Bundle& bundle, std::string folder, std::uint64_t count)
      : folder_(std::move(folder)), count_(count), edge_(edgeOf(count)) {
    const auto grid = (*bundle[0.0])[kGrid];
    positions_ = LidarLib::makeRegularPositions(*grid, {{edge_, edge_, 1}});
    const auto vertices = grid->getCartesianRepresentation("");
    for (const FieldKind& kind : kFields) {
      fields_.push_back(positions_->emptyCopy());
      vertices->setField(kind.name, fields_.back());
      datasets_.push_back(std::make_shared<const std::string>(kind.name));
    }
    for (std::uint64_t t = 0; t < count; ++t) addTile(t);
  }

 private:
  void addTile(std::uint64_t t) {
    const Fiber::MultiIndex<3> index{{t % edge_, t / edge_, 0}};
    StoredSource source;
    source.file = {fmt::format("{}/F{}x{}x0T0.000000Gpoints.f5", folder_, index[0], index[1]),
                   60'000'000, t};
    source.group = "/0/points/vertices/StandardCartesianChart3D";
    const auto shared = std::make_shared<const StoredSource>(std::move(source));
    Fiber::ArrayFacts facts{Fiber::FiberTypeBase::find("point"), Fiber::DynamicSize{kPointsPerTile},
                            makeStrong<Eagle::BoundingBox>(rasterBox(t, count_)), std::nullopt};
    positions_->setCreatorAt(index, creator(facts, shared, positionsName_));
    facts.box = nullptr;
    for (std::size_t f = 0; f < fields_.size(); ++f) {
      facts.type = Fiber::FiberTypeBase::find(kFields[f].type);
      fields_[f]->setCreatorAt(index, creator(facts, shared, datasets_[f]));
    }
  }

  static Fiber::CreatorHandle creator(const Fiber::ArrayFacts& facts,
                                      const std::shared_ptr<const StoredSource>& source,
                                      const std::shared_ptr<const std::string>& dataset) {
    return makeStrong<StoredCreator>(facts, StoredPlace{source, dataset, 0, std::nullopt, nullptr});
  }

  std::string folder_;
  std::uint64_t count_;
  std::uint64_t edge_;
  LidarLib::RegularPositions positions_;
  std::vector<LidarLib::RegularPositions> fields_;
  std::vector<std::shared_ptr<const std::string>> datasets_;
  std::shared_ptr<const std::string> positionsName_ =
      std::make_shared<const std::string>("Positions");
};

Outcome<std::uint64_t> save(Fiber::Bundle& bundle, const std::string& file, std::uint64_t count) {
  const auto transformations = makeStrong<Fiber::StorageTransformations>();
  transformations->durable = false;
  const auto saved = bundle.save(file, nullptr, transformations);
  if (!saved.ok()) return saved.failure();
  return count;
}

Outcome<std::uint64_t> open(const std::string& file) {
  bool ok = false;
  std::string failure;
  const auto bundle = Fiber::Bundle::load(
      ok, makeStrong<MemCore::LoaderParameters>(MemCore::LoaderParameters{{file}, false}), nullptr,
      &failure);
  if (!ok) return Failure{failure};
  const auto grid = (*(*bundle)[0.0]).findGrid(kGrid);
  const auto positions = grid ? grid->CartesianPositions() : nullptr;
  if (!positions) return Failure{file + ": has no positions"};
  return positions->getFragmentIDs().size();
}

}  // namespace

Measure savingLinks(const std::string& file, std::uint64_t fragments) {
  return [=] {
    Fiber::Bundle bundle;  // filled in the child
    return measureInChild([&] { return save(bundle, file, fragments); },
                          [&]() -> Outcome<std::uint64_t> {
                            const auto folder = std::filesystem::absolute(file).parent_path();
                            const LinkBuilder filled(bundle, folder / "tiles", fragments);
                            return fragments;
                          });
  };
}

Measure openingLinks(const std::string& file) {
  return inChild([=] { return open(file); });
}

}  // namespace Benchmarks
