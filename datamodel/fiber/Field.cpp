// SPDX-License-Identifier: Apache-2.0

#include "datamodel/fiber/Field.hpp"

#include <algorithm>
#include <array>
#include <charconv>
#include <limits>

#include "datamodel/memcore/ParallelFor.hpp"

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
  return fragment ? creatorOf(fragment->number()) : nullptr;
}

std::vector<CreatorHandle> Field::getCreators(std::span<const unsigned> numbers) const {
  std::vector<CreatorHandle> creators(numbers.size());
  {
    const std::shared_lock lock(mutex_);
    NumberTable<CreatorHandle>::Finder finder(creators_);
    for (std::size_t i = 0; i < numbers.size(); ++i) creators[i] = finder.find(numbers[i]);
  }
  if (!source_) return creators;
  for (std::size_t i = 0; i < numbers.size(); ++i) {
    if (!creators[i]) creators[i] = creatorOf(numbers[i]);
  }
  return creators;
}

CreatorHandle Field::creatorOf(unsigned number) const {
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

namespace {

/// The names of the tiles of a regular fragmentation.
class TileNames final : public FragmentNames {
 public:
  explicit TileNames(const MultiIndex<3>& counts) : counts_(counts) {}
  std::string nameOf(unsigned number) const override {
    const std::uint64_t row = number / counts_[0];
    return tileIndexText({{number % counts_[0], row % counts_[1], row / counts_[1]}});
  }

 private:
  MultiIndex<3> counts_;
};

}  // namespace

template <std::size_t N>
RegularlyFragmentedField<N>::RegularlyFragmentedField(const MultiIndex<N>& counts,
                                                      std::string creatorName,
                                                      StrongPtr<FragmentIDCollection> fragments)
    : Field(std::move(fragments)),
      counts_(counts),
      creatorName_(std::move(creatorName)),
      names_(makeStrong<TileNames>(counts)) {}

template <std::size_t N>
StrongPtr<RegularlyFragmentedField<N>> RegularlyFragmentedField<N>::emptyCopy() const {
  auto copy =
      makeStrong<RegularlyFragmentedField>(counts_, creatorName_, getFragmentIDCollection());
  copy->names_ = names_;
  return copy;
}

/// The linear position of an index; absent outside the counts and beyond 32 bits.
template <std::size_t N>
std::optional<unsigned> RegularlyFragmentedField<N>::positionOf(const MultiIndex<N>& index) const {
  // Below 2^32 after every axis: the next step then stays within 64 bits.
  constexpr std::uint64_t kMost = std::numeric_limits<unsigned>::max();
  std::uint64_t number = 0;
  for (std::size_t axis = N; axis-- > 0;) {
    if (index[axis] >= counts_[axis]) return std::nullopt;
    if (number != 0 && counts_[axis] > kMost) return std::nullopt;
    number = number * counts_[axis] + index[axis];
    if (number > kMost) return std::nullopt;
  }
  return static_cast<unsigned>(number);
}

template <std::size_t N>
FragmentHandle RegularlyFragmentedField<N>::fragmentAt(const MultiIndex<N>& index) {
  const auto position = positionOf(index);
  if (!position) return nullptr;
  if (auto known = getFragmentIDCollection()->findFragmentID(*position)) return known;
  return getFragmentIDCollection()->makeFragmentIDs({&*position, 1}, names_).front();
}

template <std::size_t N>
std::vector<FragmentHandle> RegularlyFragmentedField<N>::fragmentsFrom(const MultiIndex<N>& first,
                                                                       std::uint64_t count) {
  std::vector<unsigned> numbers;
  MultiIndex<N> index = first;
  for (; index[0] - first[0] < count; ++index[0]) {
    const auto position = positionOf(index);
    if (!position) break;  // nor has any index behind it one
    numbers.push_back(*position);
  }
  auto fragments = getFragmentIDCollection()->makeFragmentIDs(numbers, names_);
  fragments.resize(count);
  return fragments;
}

template class RegularlyFragmentedField<3>;

std::string tileIndexText(const MultiIndex<3>& index) {
  constexpr std::size_t kMostDigits = 20;
  std::array<char, 3 * (1 + kMostDigits) + 1> text;
  char* end = text.data();
  for (std::size_t axis = 0; axis < 3; ++axis) {
    *end++ = axis == 0 ? '[' : 'x';
    end = std::to_chars(end, text.data() + text.size(), index[axis]).ptr;
  }
  *end++ = ']';
  return std::string(text.data(), end);
}

std::optional<MultiIndex<3>> parseTileIndex(const std::string& text) {
  const char* next = text.data();
  const char* end = text.data() + text.size();
  MultiIndex<3> index;
  for (std::size_t axis = 0; axis < 3; ++axis) {
    const char before = axis == 0 ? '[' : 'x';
    if (next == end || *next != before) return std::nullopt;
    const char* digits = next + 1;
    const auto [stop, error] = std::from_chars(digits, end, index[axis]);
    if (error != std::errc()) return std::nullopt;
    // Leading zeros make it another text, and so does whatever follows.
    if (*digits == '0' && stop != digits + 1) return std::nullopt;
    next = stop;
  }
  if (next == end || *next != ']' || next + 1 != end) return std::nullopt;
  return index;
}

namespace {

/// The answers of a field's creators to one question, in order of fragment, asked by several
/// threads at once; a fragment without a creator answers with a default value.
template <class Answer, class Question>
std::vector<Answer> askCreators(const Field& field, const Question& ask) {
  const auto fragments = field.getFragmentIDs();
  std::vector<Answer> answers(fragments.size());
  std::vector<unsigned> numbers(fragments.size());
  std::transform(fragments.begin(), fragments.end(), numbers.begin(),
                 [](const FragmentHandle& fragment) { return fragment->number(); });
  // One at a time where each may have to be decoded; many at a time only where there are so many
  // that handing them out would take as long as asking.
  const std::size_t atOnce = std::clamp<std::size_t>(numbers.size() / 4096, 1, 256);
  MemCore::parallelFor((numbers.size() + atOnce - 1) / atOnce, [&](std::size_t block) {
    const std::size_t begin = block * atOnce;
    const std::size_t count = std::min(atOnce, numbers.size() - begin);
    const auto creators = field.getCreators(std::span(numbers).subspan(begin, count));
    for (std::size_t i = 0; i < count; ++i) {
      if (creators[i]) answers[begin + i] = ask(*creators[i]);
    }
  });
  return answers;
}

std::optional<ValueRange> knownOrNew(CreativeArrayBase& creator, bool recompute) {
  return recompute ? computeRange(creator) : rangeOf(creator);
}

}  // namespace

bool expandBoundingBox(const StrongPtr<Field>& field, StrongPtr<BoundingBox>& box) {
  if (!field) return false;
  const auto boxes = askCreators<StrongPtr<const BoundingBox>>(
      *field,
      [](CreativeArrayBase& creator) { return boxOf(creator, DataCreationMode::KnownOrCreate); });
  StrongPtr<BoundingBox> whole;
  for (const auto& own : boxes) {
    if (whole && own) whole->expand(*own);
    if (!whole && own) whole = makeStrong<BoundingBox>(*own);
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
