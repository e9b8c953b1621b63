// SPDX-License-Identifier: Apache-2.0

#include "datamodel/fiber/Field.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <limits>

namespace Fiber {

using Eagle::BoundingBox;
using MemCore::makeStrong;
using MemCore::StrongPtr;

Field::Field(StrongPtr<FragmentIDCollection> fragments)
    : fragments_(fragments ? std::move(fragments) : makeStrong<FragmentIDCollection>()) {}

std::vector<FragmentHandle> Field::getFragmentIDs() const { return fragments_->all(); }

FragmentHandle Field::getFragmentID(const std::string& name) const {
  return fragments_->findFragmentID(name);
}

FragmentHandle Field::makeFragmentID(const std::string& name) {
  return fragments_->makeFragmentID(name);
}

CreatorHandle Field::getCreator(const FragmentHandle& fragment) const {
  if (!fragment) return nullptr;
  const std::shared_lock lock(mutex_);
  const auto found = creators_.find(fragment->number());
  return found == creators_.end() ? nullptr : found->second;
}

CreatorHandle Field::getFirstCreator() const {
  const std::shared_lock lock(mutex_);
  return creators_.empty() ? nullptr : creators_.begin()->second;
}

void Field::setCreator(const FragmentHandle& fragment, const CreatorHandle& creator) {
  if (!fragment) return;
  const std::unique_lock lock(mutex_);
  if (creator) {
    creators_[fragment->number()] = creator;
  } else {
    creators_.erase(fragment->number());
  }
}

StrongPtr<MemBase> Field::getData(const FragmentHandle& fragment) const {
  const CreatorHandle creator = getCreator(fragment);
  return creator ? creator->data() : nullptr;
}

CreatorHandle Field::setPersistentData(const StrongPtr<MemBase>& data,
                                       const FragmentHandle& fragment,
                                       const StrongPtr<MemCore::Cache>& /*cache*/,
                                       const std::string& /*creatorName*/) {
  if (!data || !fragment) return nullptr;
  auto creator = makeStrong<MemoryCreator>(data);
  data->setCreator(StrongPtr<MemCore::Creature>(creator));
  setCreator(fragment, creator);
  return creator;
}

StrongPtr<MemArray<1, FragmentHandle>> Field::newFragmentationArray() const {
  return makeStrong<MemArray<1, FragmentHandle>>(std::array<std::uint64_t, 1>{fragments_->size()});
}

template <std::size_t N>
FragmentHandle RegularlyFragmentedField<N>::fragmentAt(const MultiIndex<N>& index) {
  std::uint64_t number = 0;
  for (std::size_t axis = N; axis-- > 0;) number = number * counts_[axis] + index[axis];
  if (number > std::numeric_limits<unsigned>::max()) return nullptr;
  return getFragmentIDCollection()->makeFragmentID(tileIndexText(index),
                                                   static_cast<unsigned>(number));
}

template class RegularlyFragmentedField<3>;

std::string tileIndexText(const MultiIndex<3>& index) {
  return fmt::format("[{}x{}x{}]", index[0], index[1], index[2]);
}

std::optional<MultiIndex<3>> parseTileIndex(const std::string& text) {
  const char* next = text.data();
  const char* end = text.data() + text.size();
  MultiIndex<3> index;
  for (std::size_t axis = 0; axis < 3; ++axis) {
    const char before = axis == 0 ? '[' : 'x';
    if (next == end || *next != before) return std::nullopt;
    const auto [stop, error] = std::from_chars(next + 1, end, index[axis]);
    if (error != std::errc()) return std::nullopt;
    next = stop;
  }
  if (next + 1 != end || *next != ']') return std::nullopt;
  return index;
}

bool expandBoundingBox(const StrongPtr<Field>& field, StrongPtr<BoundingBox>& box) {
  if (!field) return false;
  const auto fragments = field->getFragmentIDs();
  // Each fragment's box is made (and remembered by its creator) independently of the others; the
  // boxes are then joined in order.
#pragma omp parallel for schedule(dynamic, 1)
  for (std::size_t i = 0; i < fragments.size(); ++i) {
    if (const CreatorHandle creator = field->getCreator(fragments[i])) {
      StrongPtr<BoundingBox> own;
      ExpandBBox(own, *creator, DataCreationMode::KnownOrCreate);
    }
  }
  bool grown = false;
  for (const FragmentHandle& fragment : fragments) {
    const CreatorHandle creator = field->getCreator(fragment);
    if (creator && ExpandBBox(box, *creator, DataCreationMode::KnownOnly)) grown = true;
  }
  if (grown) field->addInterface(makeStrong<BoundingBox>(box->min(), box->max()));
  return grown;
}

StrongPtr<DataRangeBase> getRange(Field& field, const FragmentHandle& fragment, bool /*recompute*/,
                                  bool /*exact*/) {
  const CreatorHandle creator = field.getCreator(fragment);
  if (!creator) return nullptr;
  const auto range = rangeOf(*creator);
  return range ? makeStrong<DataRangeBase>(*range) : nullptr;
}

StrongPtr<DataRangeBase> getRange(Field& field, std::string& name, bool /*recompute*/,
                                  bool /*exact*/) {
  std::optional<ValueRange> whole;
  for (const FragmentHandle& fragment : field.getFragmentIDs()) {
    const CreatorHandle creator = field.getCreator(fragment);
    if (!creator) continue;
    const auto range = rangeOf(*creator);
    if (!range) continue;
    whole = whole ? ValueRange{std::min(whole->min, range->min), std::max(whole->max, range->max)}
                  : *range;
  }
  if (!whole) return nullptr;
  auto registered = makeStrong<DataRangeBase>(*whole);
  name = registered->text();
  field.addInterface(registered);
  return registered;
}

}  // namespace Fiber
