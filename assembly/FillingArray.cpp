// SPDX-License-Identifier: Apache-2.0

#include "assembly/FillingArray.hpp"

#include <cassert>
#include <cstring>
#include <limits>

namespace LidarLib {

using Fiber::DynamicSize;
using Fiber::FiberTypeBase;
using Fiber::MemBase;
using MemCore::StrongPtr;

FillingArray::FillingArray(StrongPtr<MemBase> array)
    : array_(std::move(array)),
      kind_(Fiber::numberKindOf(*array_)),
      unfilled_(array_->elements()->bytes(), array_->elements()->byteCount()),
      elementBytes_(array_->elements()->elementSize()) {}

std::optional<FillingArray> FillingArray::make(const StrongPtr<FiberTypeBase>& type,
                                               const DynamicSize& size) {
  if (!type || size.elementCount() > std::numeric_limits<std::uint32_t>::max()) return std::nullopt;
  auto array = MemBase::createUnfilled(type, size, type->type());
  return array ? std::optional(FillingArray(std::move(array))) : std::nullopt;
}

void FillingArray::noteFilled(std::uint64_t count) {
  const std::size_t bytes = count * elementBytes_;
  assert(bytes <= unfilled_.size());
  if (kind_) {
    range_ = Fiber::rangeOfBoth(range_, Fiber::rangeOfNumbers(*kind_, unfilled_.first(bytes)));
  }
  unfilled_ = unfilled_.subspan(bytes);
}

void FillingArray::fillRest() {
  if (unfilled_.empty()) return;
  std::memset(unfilled_.data(), 0, unfilled_.size());
  noteFilled(unfilled_.size() / elementBytes_);
}

}  // namespace LidarLib
