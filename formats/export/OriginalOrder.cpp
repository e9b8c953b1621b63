// SPDX-License-Identifier: Apache-2.0

#include "formats/export/OriginalOrder.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <bit>

namespace Formats {

using MemCore::Failure;
using MemCore::Outcome;

namespace {

constexpr std::size_t kFragmentsAtOnce = 16;

/// Beyond this no file of ours numbers its points.
constexpr std::uint64_t kMostPoints = std::uint64_t{1} << 38U;

template <class T>
const T* elementsOf(const MemCore::StrongPtr<Fiber::MemBase>& column) {
  const auto chunk = column ? MemCore::chunkCast<T>(column->elements()) : nullptr;
  return chunk ? std::as_const(*chunk).data() : nullptr;
}

bool hasType(const ExportSource& source, const char* name, ElementType type) {
  const ExportField* field = source.find(name);
  return field != nullptr && field->type == type && field->components == 1;
}

}  // namespace

bool RankedBits::set(std::uint64_t number) {
  std::uint64_t& word = pages_[number / kPageBits].words[number % kPageBits / kWordBits];
  const std::uint64_t bit = std::uint64_t{1} << (number % kWordBits);
  if ((word & bit) != 0) return false;
  word |= bit;
  ++size_;
  return true;
}

void RankedBits::count() {
  std::vector<std::uint64_t> numbers;
  numbers.reserve(pages_.size());
  for (const auto& [number, page] : pages_) numbers.push_back(number);
  std::sort(numbers.begin(), numbers.end());
  std::uint64_t before = 0;
  for (const std::uint64_t number : numbers) {
    Page& page = pages_[number];
    page.before = before;
    unsigned inPage = 0;
    for (std::size_t w = 0; w < kPageWords; ++w) {
      page.beforeWord[w] = static_cast<std::uint16_t>(inPage);
      inPage += static_cast<unsigned>(std::popcount(page.words[w]));
    }
    before += inPage;
  }
}

std::uint64_t RankedBits::rank(std::uint64_t number) const {
  const Page& page = pages_.find(number / kPageBits)->second;
  const std::size_t word = number % kPageBits / kWordBits;
  const std::uint64_t below = (std::uint64_t{1} << (number % kWordBits)) - 1;
  return page.before + page.beforeWord[word] +
         static_cast<std::uint64_t>(std::popcount(page.words[word] & below));
}

bool OriginalOrder::isKnown(const ExportSource& source) {
  return hasType(source, kSourceFileField, ElementType::UInt32) &&
         hasType(source, kSourceIndexField, ElementType::UInt64);
}

Outcome<OriginalOrder> OriginalOrder::read(const ExportSource& source,
                                           std::span<const ExportFragment> fragments,
                                           const ChooserWithFields& choose) {
  OriginalOrder order;
  order.fileField_ = source.numberOf(kSourceFileField).value_or(0);
  order.indexField_ = source.numberOf(kSourceIndexField).value_or(0);
  ColumnNeeds needs{{order.fileField_, order.indexField_}};
  needs.fields.insert(needs.fields.end(), choose.fields.begin(), choose.fields.end());
  while (!fragments.empty()) {
    const std::size_t count = std::min(kFragmentsAtOnce, fragments.size());
    const auto loaded = loadFragments(source, fragments.first(count), needs, choose.choose);
    if (!loaded) return loaded.failure();
    for (const FragmentColumns& fragment : *loaded) {
      if (auto added = order.add(fragment); !added) return added.failure();
    }
    fragments = fragments.subspan(count);
  }
  order.finish();
  return order;
}

Outcome<void> OriginalOrder::add(const FragmentColumns& fragment) {
  const auto* files = elementsOf<std::uint32_t>(fragment.fields[fileField_]);
  const auto* indices = elementsOf<std::uint64_t>(fragment.fields[indexField_]);
  const std::string name = fragment.fragment->id->name();
  if (files == nullptr || indices == nullptr) {
    return Failure{fmt::format("fragment {}: does not tell where its points come from", name)};
  }
  const std::size_t count = fragment.choice.countOf(*fragment.fragment);
  for (std::size_t n = 0; n < count; ++n) {
    const std::size_t row = chosenRow(fragment, n);
    if (indices[row] >= kMostPoints) {
      return Failure{fmt::format("fragment {}: impossible {}, found {}, expected less than {}",
                                 name, kSourceIndexField, indices[row], kMostPoints)};
    }
    const std::pair here(files[row], indices[row]);
    isKept_ = isKept_ && (files_.empty() || here > last_);
    last_ = here;
    if (files_[files[row]].points.set(indices[row])) continue;
    return Failure{
        fmt::format("fragment {}: point {} of file {} occurs twice: its former order "
                    "cannot be restored",
                    name, indices[row], files[row])};
  }
  return {};
}

void OriginalOrder::finish() {
  for (auto& [number, file] : files_) {
    file.points.count();
    file.before = pointCount_;
    pointCount_ += file.points.size();
  }
}

void OriginalOrder::placesOf(const FragmentColumns& fragment, std::size_t first,
                             std::span<std::uint64_t> places) const {
  const auto* files = elementsOf<std::uint32_t>(fragment.fields[fileField_]);
  const auto* indices = elementsOf<std::uint64_t>(fragment.fields[indexField_]);
  auto file = files_.end();
  for (std::size_t i = 0; i < places.size(); ++i) {
    const std::size_t row = chosenRow(fragment, first + i);
    if (file == files_.end() || file->first != files[row]) file = files_.find(files[row]);
    places[i] = file->second.before + file->second.points.rank(indices[row]);
  }
}

}  // namespace Formats
