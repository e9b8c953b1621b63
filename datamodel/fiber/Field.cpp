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
  const unsigned number = fragment->number();
  {
    const std::shared_lock lock(mutex_);
    CreatorHandle known = creators_.find(number);
    if (known || !source_ || removed_.contains(number)) return known;
  }
  CreatorHandle made = source_->make(number);
  if (!made) return nullptr;
  const std::unique_lock lock(mutex_);
  // Another thread may have been quicker, to store or to remove.
  CreatorHandle known = creators_.find(number);
  if (known || removed_.contains(number)) return known;
  creators_.set(number, made);
  return made;
}

CreatorHandle Field::getFirstCreator() const {
  if (source_) {
    for (const FragmentHandle& fragment : fragments_->all()) {
      if (CreatorHandle creator = getCreator(fragment)) return creator;
    }
    return nullptr;
  }
  CreatorHandle first;
  const std::shared_lock lock(mutex_);
  creators_.walk([&](const CreatorHandle& creator) {
    first = creator;
    return false;
  });
  return first;
}

void Field::setCreator(const FragmentHandle& fragment, const CreatorHandle& creator) {
  if (!fragment) return;
  const std::unique_lock lock(mutex_);
  creators_.set(fragment->number(), creator);
  if (creator) {
    removed_.erase(fragment->number());
  } else if (source_) {
    removed_.insert(fragment->number());
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
  // Below 2^32 after every axis: the next step then stays within 64 bits.
  constexpr std::uint64_t kMost = std::numeric_limits<unsigned>::max();
  std::uint64_t number = 0;
  for (std::size_t axis = N; axis-- > 0;) {
    if (index[axis] >= counts_[axis]) return nullptr;
    if (number != 0 && counts_[axis] > kMost) return nullptr;
    number = number * counts_[axis] + index[axis];
    if (number > kMost) return nullptr;
  }
  const auto position = static_cast<unsigned>(number);
  if (auto known = getFragmentIDCollection()->findFragmentID(position)) return known;
  return getFragmentIDCollection()->makeFragmentID(tileIndexText(index), position);
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
  // Leading zeros and whatever follows make it another text.
  if (text != tileIndexText(index)) return std::nullopt;
  return index;
}

namespace {

/// The answers of a field's creators to one question, in order of fragment, asked by several
/// threads at once; a fragment without a creator answers with a default value.
template <class Answer, class Question>
std::vector<Answer> askCreators(const Field& field, const Question& ask) {
  const auto fragments = field.getFragmentIDs();
  std::vector<Answer> answers(fragments.size());
  // One at a time where each may have to be decoded; many at a time only where there are so many
  // that handing them out would take as long as asking.
  const std::size_t atOnce = std::clamp<std::size_t>(fragments.size() / 4096, 1, 256);
#pragma omp parallel for schedule(dynamic, atOnce) if (fragments.size() > 1)
  for (std::size_t i = 0; i < fragments.size(); ++i) {
    if (const CreatorHandle creator = field.getCreator(fragments[i])) answers[i] = ask(*creator);
  }
  return answers;
}

std::optional<ValueRange> knownOrNew(CreativeArrayBase& creator, bool recompute) {
  return recompute ? computeRange(creator) : rangeOf(creator);
}

}  // namespace

bool expandBoundingBox(const StrongPtr<Field>& field, StrongPtr<BoundingBox>& box) {
  if (!field) return false;
  const auto boxes = askCreators<StrongPtr<BoundingBox>>(*field, [](CreativeArrayBase& creator) {
    StrongPtr<BoundingBox> own;
    ExpandBBox(own, creator, DataCreationMode::KnownOrCreate);
    return own;
  });
  StrongPtr<BoundingBox> whole;
  for (const auto& own : boxes) {
    if (whole && own) whole->expand(*own);
    if (!whole) whole = own;
  }
  if (!whole) return false;
  field->addInterface(whole);
  if (box) {
    box->expand(*whole);
  } else {
    box = makeStrong<BoundingBox>(whole->min(), whole->max());
  }
  return true;
}

StrongPtr<DataRangeBase> getRange(Field& field, const FragmentHandle& fragment, bool recompute,
                                  bool /*exact*/) {
  const CreatorHandle creator = field.getCreator(fragment);
  if (!creator) return nullptr;
  const auto range = knownOrNew(*creator, recompute);
  return range ? makeStrong<DataRangeBase>(*range) : nullptr;
}

StrongPtr<DataRangeBase> getRange(Field& field, std::string& name, bool recompute, bool /*exact*/) {
  const auto ranges = askCreators<std::optional<ValueRange>>(
      field, [&](CreativeArrayBase& creator) { return knownOrNew(creator, recompute); });
  std::optional<ValueRange> whole;
  for (const auto& range : ranges) {
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
