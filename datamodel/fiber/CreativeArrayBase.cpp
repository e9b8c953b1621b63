// SPDX-License-Identifier: Apache-2.0

#include "datamodel/fiber/CreativeArrayBase.hpp"

#include <limits>
#include <new>

#include "datamodel/fiber/NumberRange.hpp"

namespace Fiber {

using Eagle::BoundingBox;
using Eagle::PhysicalSpace;
using MemCore::handleCast;
using MemCore::makeStrong;
using MemCore::StrongPtr;

StrongPtr<MemBase> CreativeArrayBase::data() {
  if (auto present = dataIfPresent()) {
    noteUse(*present);
    return present;
  }
  // One creation at a time: whoever waited here finds the data that the first one made.
  const std::lock_guard creation(creationMutex_);
  if (auto present = dataIfPresent()) {
    noteUse(*present);
    return present;
  }
  return makeData();
}

StrongPtr<MemBase> CreativeArrayBase::makeData() {
  MemCore::Outcome<StrongPtr<MemBase>> made = StrongPtr<MemBase>();
  try {
    made = create();
    if (made.ok() && !made.value()) made = MemCore::Failure{"point data: the source has none"};
  } catch (const std::bad_alloc&) {
    made = MemCore::Failure{"point data: not enough memory to hold them"};
  }
  StrongPtr<MemBase> data = made.ok() ? made.value() : nullptr;
  if (data && cachingEnabled()) {
    data->setCreator(StrongPtr<MemCore::Creature>(weak_from_this().lock()));
    MemCore::Cache::MemCache()->insert(data);
  }
  const std::lock_guard lock(stateMutex_);
  if (!made.ok() && failure_.empty()) failure_ = made.error();
  data_ = data;
  if (!data) return nullptr;
  facts_.size = data->size();
  facts_.type = data->type();
  return data;
}

GridPointsHandle CreativeArrayBase::gridPoints(const CoordinateGrid& grid) {
  if (dataIfPresent()) return nullptr;
  try {
    return createGridPoints(grid);
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

StrongPtr<MemBase> CreativeArrayBase::dataIfPresent() const {
  const std::lock_guard lock(stateMutex_);
  return data_.lock();
}

std::string CreativeArrayBase::failure() const {
  const std::lock_guard lock(stateMutex_);
  return failure_;
}

void CreativeArrayBase::rememberFailure(const std::string& text) {
  const std::lock_guard lock(stateMutex_);
  if (failure_.empty()) failure_ = text;
}

ArrayFacts CreativeArrayBase::facts() const {
  const std::lock_guard lock(stateMutex_);
  return facts_;
}

void CreativeArrayBase::rememberBox(const StrongPtr<BoundingBox>& box) {
  const std::lock_guard lock(stateMutex_);
  facts_.box = box;
}

void CreativeArrayBase::rememberRange(const ValueRange& range) {
  const std::lock_guard lock(stateMutex_);
  facts_.range = range;
}

void CreativeArrayBase::touch() {
  const std::lock_guard lock(stateMutex_);
  const auto data = data_.lock();
  if (!data) return;  // nothing was filled: what the source knows stays true
  facts_.size = data->size();
  facts_.box = nullptr;
  facts_.range.reset();
}

MemoryCreator::MemoryCreator(StrongPtr<MemBase> data)
    : CreativeArrayBase({data->type(), data->size(), nullptr, std::nullopt}),
      data_(std::move(data)) {
  enableCaching(false);
  CreativeArrayBase::data();  // present from the start, to those who only ask what is in memory
}

std::optional<DynamicSize> getSize(CreativeArrayBase& creator) {
  if (auto size = creator.lookAtFacts([](const ArrayFacts& facts) { return facts.size; })) {
    return size;
  }
  const auto data = creator.data();
  return data ? std::optional(data->size()) : std::nullopt;
}

std::uint64_t pointCountOf(CreativeArrayBase& creator) {
  const auto size = getSize(creator);
  return size ? size->elementCount() : 0;
}

namespace {

using Points = MemArray<1, PhysicalSpace::point>;

struct AxisRange {
  double min = std::numeric_limits<double>::infinity();
  double max = -std::numeric_limits<double>::infinity();
  // Written so that NaN loses every comparison and drops out.
  void add(double value) {
    min = value < min ? value : min;
    max = value > max ? value : max;
  }
  bool empty() const { return !(min <= max); }
};

/// Box of points; empty when no axis-complete box exists (no points, or an axis of NaN alone).
StrongPtr<BoundingBox> boxOfPoints(std::span<const PhysicalSpace::point> points) {
  AxisRange x;
  AxisRange y;
  AxisRange z;
  for (const PhysicalSpace::point& p : points) {
    x.add(p.x);
    y.add(p.y);
    z.add(p.z);
  }
  if (x.empty() || y.empty() || z.empty()) return nullptr;
  return makeStrong<BoundingBox>(PhysicalSpace::point{x.min, y.min, z.min},
                                 PhysicalSpace::point{x.max, y.max, z.max});
}

StrongPtr<BoundingBox> computeBox(CreativeArrayBase& creator) {
  if (auto surveyed = creator.surveyBox()) return surveyed;
  const auto points = handleCast<Points>(creator.data());
  if (!points) return nullptr;
  // Creators that see every point on the way have noted the box by now.
  if (auto noted = creator.facts().box) return noted;
  auto box = boxOfPoints(points->span());
  if (box) creator.rememberBox(box);
  return box;
}

}  // namespace

StrongPtr<const BoundingBox> boxOf(CreativeArrayBase& creator, DataCreationMode mode) {
  auto known = creator.lookAtFacts([](const ArrayFacts& facts) { return facts.box; });
  if (known || mode == DataCreationMode::KnownOnly) return known;
  return computeBox(creator);
}

bool ExpandBBox(StrongPtr<BoundingBox>& box, CreativeArrayBase& creator, DataCreationMode mode) {
  const StrongPtr<const BoundingBox> own = boxOf(creator, mode);
  if (!own) return false;
  if (box) {
    box->expand(*own);
  } else {
    box = makeStrong<BoundingBox>(own->min(), own->max());
  }
  return true;
}

std::optional<ValueRange> rangeOf(CreativeArrayBase& creator) {
  const auto known = creator.lookAtFacts([](const ArrayFacts& facts) { return facts.range; });
  return known ? known : computeRange(creator);
}

std::optional<ValueRange> computeRange(CreativeArrayBase& creator) {
  const ArrayFacts facts = creator.facts();
  if (facts.type && facts.type->componentCount() != 1) return std::nullopt;
  const auto data = creator.data();
  if (!data) return std::nullopt;
  const auto kind = numberKindOf(*data);
  if (!kind || !data->elements()) return std::nullopt;
  const MemCore::ChunkBase& elements = *data->elements();
  const auto range = rangeOfNumbers(*kind, {elements.bytes(), elements.byteCount()});
  if (range) creator.rememberRange(*range);
  return range;
}

}  // namespace Fiber

namespace LidarLib {

void setCellSizeAttribute(Fiber::CreativeArrayBase& creator, double cellSize) {
  creator.attributes().setAttribute("CellSize",
                                    MemCore::makeStrong<MemCore::Chunk<double>>(1, cellSize));
}

}  // namespace LidarLib
