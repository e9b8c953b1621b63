// SPDX-License-Identifier: Apache-2.0

#include "formats/text/TextGrid.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <optional>

#include "datamodel/fiber/Field.hpp"
#include "formats/cloud/ColumnTypes.hpp"

namespace Formats {

using Fiber::ArrayFacts;
using Fiber::DynamicSize;
using Fiber::Field;
using MemCore::Chunk;
using MemCore::makeStrong;
using MemCore::StrongPtr;

namespace {

/// What all positions have in common.
struct CommonPositions {
  StrongPtr<Eagle::BoundingBox> box;  ///< Empty without points.
  std::array<std::uint8_t, 3> decimals{};
};

CommonPositions commonPositions(std::span<const SurveyedFile> files) {
  constexpr double kInfinity = std::numeric_limits<double>::infinity();
  Eagle::PhysicalSpace::point low{kInfinity, kInfinity, kInfinity};
  Eagle::PhysicalSpace::point high{-kInfinity, -kInfinity, -kInfinity};
  CommonPositions common;
  for (const SurveyedFile& file : files) {
    for (const auto& fragment : file.fragments) {
      for (std::size_t axis = 0; axis < 3; ++axis) {
        low[axis] = std::min(low[axis], fragment.box->min()[axis]);
        high[axis] = std::max(high[axis], fragment.box->max()[axis]);
      }
    }
    for (std::size_t axis = 0; axis < 3; ++axis) {
      common.decimals[axis] = std::max(common.decimals[axis], file.decimals[axis]);
    }
  }
  if (low.x <= high.x) common.box = makeStrong<Eagle::BoundingBox>(low, high);
  return common;
}

/// The offset near which coordinates of one axis count in 32 bits: a round number not above them.
/// Coordinates that are large against their extent become exact sums that way, as surveys do it.
std::optional<double> offsetFor(double low, double high, double scale) {
  constexpr double kMostSteps = 2147483000.0;
  double unit = 1.0;
  while (unit < high - low && unit < 1e9) unit *= 10.0;
  const double offset = std::floor(low / unit) * unit;
  if (!((high - offset) / scale < kMostSteps)) return std::nullopt;
  return offset;
}

void setHint(Field& positions, const CommonPositions& common) {
  std::array<double, 3> scales{};
  std::array<double, 3> offsets{};
  std::array<std::uint64_t, 3> decimals{};
  bool isGrid = true;
  for (std::size_t axis = 0; axis < 3; ++axis) {
    decimals[axis] = common.decimals[axis];
    if (common.decimals[axis] > kMostDecimals) return;  // of unknown spelling
    scales[axis] = 1.0 / kPowersOfTen[common.decimals[axis]];
    const auto offset = offsetFor(common.box->min()[axis], common.box->max()[axis], scales[axis]);
    isGrid = isGrid && offset.has_value();
    offsets[axis] = offset.value_or(0.0);
  }
  positions.properties().setAttribute(
      kDecimalsProperty,
      makeStrong<Chunk<std::uint64_t>>(std::span<const std::uint64_t>(decimals)));
  if (!isGrid) return;
  positions.properties().setAttribute("GridScale",
                                      makeStrong<Chunk<double>>(std::span<const double>(scales)));
  positions.properties().setAttribute("GridOffset",
                                      makeStrong<Chunk<double>>(std::span<const double>(offsets)));
}

/// Adds fragments to the fields of one grid.
class TextGridFiller {
 public:
  TextGridFiller(Fiber::Grid& grid, std::span<const TextField> fields)
      : representation_(*grid.makeCartesianRepresentation(3, Fiber::kCartesianChart, 0)),
        fields_(fields),
        positions_(makeField("Positions")) {
    for (const TextField& field : fields) {
      handles_.push_back(makeField(field.name));
      const bool isDouble = field.type == ElementType::Float64;
      if (!isDouble || field.facts.decimals > kMostDecimals) continue;
      handles_.back()->properties().setAttribute(
          kDecimalsProperty,
          makeStrong<Chunk<std::uint64_t>>(1, std::uint64_t{field.facts.decimals}));
    }
  }

  Field& positions() { return *positions_; }

  void addFragment(std::size_t file, std::size_t run, const SurveyedFile::Fragment& fragment) {
    const DynamicSize size{fragment.source->rowCount()};
    const auto id = positions_->makeFragmentID(fmt::format("{}-{}", file, run));
    std::size_t column = 0;
    positions_->setCreator(
        id, makeStrong<ColumnCreator>(ArrayFacts{pointType_, size, fragment.box, std::nullopt},
                                      fragment.source, column++));
    for (std::size_t i = 0; i < fields_.size(); ++i) {
      const auto type = fiberTypeOf(fields_[i].type);
      if (fields_[i].columns[file]) {
        handles_[i]->setCreator(
            id, makeStrong<ColumnCreator>(ArrayFacts{type, size, nullptr, std::nullopt},
                                          fragment.source, column++));
      } else {
        handles_[i]->setCreator(id, makeStrong<ZeroCreator>(type, size));
      }
    }
  }

 private:
  StrongPtr<Field> makeField(const std::string& name) {
    return representation_.makeField(representation_.makeFieldID(name), representation_.fragments(),
                                     nullptr);
  }

  Fiber::Representation& representation_;
  std::span<const TextField> fields_;
  StrongPtr<Field> positions_;
  std::vector<StrongPtr<Field>> handles_;  ///< In the order of `fields_`.
  StrongPtr<Fiber::FiberTypeBase> pointType_ =
      Fiber::FiberTypeBase::find(typeid(Eagle::PhysicalSpace::point));
};

}  // namespace

void fillTextGrid(Fiber::Grid& grid, std::span<const SurveyedFile> files,
                  std::span<const TextField> fields) {
  TextGridFiller filler(grid, fields);
  const CommonPositions common = commonPositions(files);
  if (common.box) setHint(filler.positions(), common);
  for (std::size_t file = 0; file < files.size(); ++file) {
    for (std::size_t run = 0; run < files[file].fragments.size(); ++run) {
      filler.addFragment(file, run, files[file].fragments[run]);
    }
  }
}

}  // namespace Formats
