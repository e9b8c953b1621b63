// SPDX-License-Identifier: Apache-2.0

#include "datamodel/fiber/MemBase.hpp"

#include <algorithm>
#include <cstring>
#include <map>
#include <mutex>
#include <shared_mutex>
#include <typeindex>

#include "datamodel/fiber/NumberRange.hpp"

namespace Fiber {

using MemCore::ChunkBase;
using MemCore::StrongPtr;

namespace {

/// The two ways to make arrays of one element type and rank; either may be absent.
struct ArrayCreator {
  MemBase::CreatorFunction zeroed;
  MemBase::CreatorFunction unfilled;
};

class ArrayCreators {
 public:
  ArrayCreators() {
    addRanks<Eagle::PhysicalSpace::point>();
    addRanks<Eagle::FixedArray<double, 3>>();
    addRanks<double>();
    addRanks<float>();
    addRanks<std::int8_t>();
    addRanks<std::uint8_t>();
    addRanks<std::int16_t>();
    addRanks<std::uint16_t>();
    addRanks<std::int32_t>();
    addRanks<std::uint32_t>();
    addRanks<std::int64_t>();
    addRanks<std::uint64_t>();
  }

  void add(const std::type_info& type, std::size_t rank, const ArrayCreator& creator) {
    const std::unique_lock lock(mutex_);
    creators_.try_emplace({std::type_index(type), rank}, creator);
  }

  ArrayCreator find(const std::type_info& type, std::size_t rank) const {
    const std::shared_lock lock(mutex_);
    const auto found = creators_.find({std::type_index(type), rank});
    return found == creators_.end() ? ArrayCreator() : found->second;
  }

 private:
  template <std::size_t N>
  static std::array<std::uint64_t, N> extentsOf(const DynamicSize& size) {
    std::array<std::uint64_t, N> extents{};
    for (std::size_t i = 0; i < N; ++i) extents[i] = size[i];
    return extents;
  }

  template <class T, std::size_t N>
  void addRank() {
    add(typeid(T), N,
        {[](const DynamicSize& size) {
           return StrongPtr<MemBase>(MemCore::makeStrong<MemArray<N, T>>(extentsOf<N>(size)));
         },
         [](const DynamicSize& size) {
           return StrongPtr<MemBase>(MemArray<N, T>::unfilled(extentsOf<N>(size)));
         }});
  }
  template <class T>
  void addRanks() {
    addRank<T, 1>();
    addRank<T, 2>();
    addRank<T, 3>();
    addRank<T, 4>();
  }

  mutable std::shared_mutex mutex_;
  std::map<std::pair<std::type_index, std::size_t>, ArrayCreator> creators_;
};

ArrayCreators& arrayCreators() {
  static ArrayCreators theCreators;
  return theCreators;
}

/// Whether every element that one side of the copy uses lies below `limit`.
bool staysInside(const IndexList* indices, const IndirectionRange& range, std::uint64_t offset,
                 std::uint64_t stride, std::uint64_t limit) {
  if (range.count == 0) return true;
  const std::uint64_t end = range.first + range.count;
  if (end < range.first || offset >= limit) return false;
  if (indices != nullptr && end > indices->size()) return false;
  std::uint64_t highest = end - 1;
  if (indices != nullptr) {
    highest = highestIndex(indices->span().subspan(range.first, range.count));
  }
  return stride == 0 || highest <= (limit - 1 - offset) / stride;
}

/// Whether indices follow each other without a gap. The ends alone tell it of most scattered lists;
/// the rest is free of branches per index, because each would be a surprise.
bool isConsecutive(std::span<const unsigned> indices) {
  const unsigned first = indices.front();
  if (indices.back() - first != indices.size() - 1) return false;
  unsigned differences = 0;
  for (unsigned r = 0; r < indices.size(); ++r) differences |= indices[r] ^ (first + r);
  // Indices that wrap around are no run.
  return differences == 0 && indices.back() >= first;
}

/// Gathers elements of a size known at compile time; blocks of consecutive indices go as one copy.
template <std::size_t kBytes>
void gather(std::byte* output, const std::byte* input, std::span<const unsigned> indices) {
  constexpr std::size_t kBlock = 32;
  std::size_t j = 0;
  for (; j + kBlock <= indices.size(); j += kBlock) {
    const auto block = indices.subspan(j).first<kBlock>();
    std::byte* to = output + j * kBytes;
    if (isConsecutive(block)) {
      std::memcpy(to, input + std::size_t{block[0]} * kBytes, kBlock * kBytes);
    } else {
      for (std::size_t r = 0; r < kBlock; ++r) {
        std::memcpy(to + r * kBytes, input + std::size_t{block[r]} * kBytes, kBytes);
      }
    }
  }
  for (; j < indices.size(); ++j) {
    std::memcpy(output + j * kBytes, input + std::size_t{indices[j]} * kBytes, kBytes);
  }
}

using GatherFunction = void (*)(std::byte*, const std::byte*, std::span<const unsigned>);

GatherFunction gatherFor(std::size_t elementBytes) {
  switch (elementBytes) {
    case 1:
      return gather<1>;
    case 2:
      return gather<2>;
    case 4:
      return gather<4>;
    case 8:
      return gather<8>;
    case 24:
      return gather<24>;
    default:
      return nullptr;
  }
}

}  // namespace

StrongPtr<FiberTypeBase> MemBase::type() const {
  return elements_ ? FiberTypeBase::find(elements_->elementType()) : nullptr;
}

StrongPtr<MemBase> MemBase::create(const StrongPtr<FiberTypeBase>& type, const DynamicSize& size,
                                   const std::type_info& elementType) {
  if (!type || type->type() != elementType) return nullptr;
  const CreatorFunction creator = arrayCreators().find(elementType, size.rank()).zeroed;
  return creator ? creator(size) : nullptr;
}

StrongPtr<MemBase> MemBase::createUnfilled(const StrongPtr<FiberTypeBase>& type,
                                           const DynamicSize& size,
                                           const std::type_info& elementType) {
  if (!type || type->type() != elementType) return nullptr;
  const CreatorFunction creator = arrayCreators().find(elementType, size.rank()).unfilled;
  return creator ? creator(size) : nullptr;
}

void MemBase::registerCreator(const std::type_info& elementType, std::size_t rank,
                              const CreatorFunction& creator) {
  arrayCreators().add(elementType, rank, {creator, nullptr});
}

bool CreateIndirection(const StrongPtr<ChunkBase>& output, const StrongPtr<ChunkBase>& input,
                       const IndexList* outputIndices, const IndexList* inputIndices,
                       const IndirectionRange& range) {
  if (!output || !input || output == input) return false;
  if (output->elementSize() != input->elementSize()) return false;
  if (!output->isPlain() || !input->isPlain()) return false;
  if (!staysInside(outputIndices, range, range.outputOffset, range.stride, output->size()) ||
      !staysInside(inputIndices, range, range.inputOffset, 1, input->size())) {
    return false;
  }
  if (range.count == 0) return true;
  const std::size_t bytes = input->elementSize();
  const std::byte* from = input->bytes() + range.inputOffset * bytes;
  std::byte* to = output->bytes() + range.outputOffset * bytes;
  const GatherFunction gatherElements = gatherFor(bytes);
  if (outputIndices == nullptr && inputIndices != nullptr && range.stride == 1 &&
      gatherElements != nullptr) {
    gatherElements(to + range.first * bytes, from,
                   inputIndices->span().subspan(range.first, range.count));
    return true;
  }
  for (std::uint64_t j = range.first; j < range.first + range.count; ++j) {
    const std::uint64_t target = (outputIndices ? (*outputIndices)[j] : j) * range.stride;
    const std::uint64_t source = inputIndices ? (*inputIndices)[j] : j;
    std::memcpy(to + target * bytes, from + source * bytes, bytes);
  }
  return true;
}

}  // namespace Fiber
