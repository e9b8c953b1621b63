// SPDX-License-Identifier: Apache-2.0

#include "formats/cloud/DecodedFragment.hpp"

#include <algorithm>

namespace Formats {

using MemCore::Cache;
using MemCore::Outcome;
using MemCore::StrongPtr;

std::uint64_t DecodedFragment::byteCount() const {
  std::uint64_t bytes = 0;
  for (const auto& column : columns_) {
    if (column) bytes += column->byteCount();
  }
  if (gridPoints_) bytes += gridPoints_->count() * 3 * sizeof(std::int32_t);
  return bytes;
}

Outcome<DecodedHandle> DecodedFragmentSource::decoded() {
  if (auto present = decodedIfPresent()) {
    present->markAsUsed();
    return present;
  }
  // One decoding at a time: whoever waited here finds the fragment that the first one decoded.
  const std::lock_guard decoding(decodeMutex_);
  if (auto present = decodedIfPresent()) {
    present->markAsUsed();
    return present;
  }
  Outcome<DecodedHandle> made = decode();
  if (made) adopt(*made);
  return made;
}

DecodedHandle DecodedFragmentSource::decodedIfPresent() const {
  const std::lock_guard lock(stateMutex_);
  return fragment_.lock();
}

void DecodedFragmentSource::noteUse() const {
  if (const auto present = decodedIfPresent()) present->markAsUsed();
}

void DecodedFragmentSource::adopt(const DecodedHandle& fragment) {
  DecodedHandle former;
  {
    const std::lock_guard lock(stateMutex_);
    former = fragment_.lock();
    if (former == fragment) return;  // adopted already, on the way to another one
    fragment->setCreator(StrongPtr<MemCore::Creature>(weak_from_this().lock()));
    fragment_ = fragment;
  }
  if (former) Cache::MemCache()->remove(*former);
  if (cachingEnabled()) Cache::MemCache()->insert(fragment);
}

ColumnCreator::ColumnCreator(Fiber::ArrayFacts facts, StrongPtr<DecodedFragmentSource> source,
                             std::size_t column)
    : CreativeArrayBase(std::move(facts)), source_(std::move(source)), column_(column) {
  enableCaching(false);
}

Outcome<StrongPtr<Fiber::MemBase>> ColumnCreator::create() {
  const Outcome<DecodedHandle> fragment = source_->decoded();
  if (!fragment) return fragment.failure();
  return (*fragment)->column(column_);
}

void ColumnCreator::noteUse(const Fiber::MemBase& /*data*/) { source_->noteUse(); }

bool ZeroCreator::copyPart(const Fiber::PointPart& /*part*/, std::span<std::byte> out) {
  std::fill(out.begin(), out.end(), std::byte{0});
  return true;
}

Outcome<StrongPtr<Fiber::MemBase>> ZeroCreator::create() {
  const Fiber::ArrayFacts known = facts();
  return Fiber::MemBase::create(known.type, *known.size, known.type->type());
}

}  // namespace Formats
