// SPDX-License-Identifier: Apache-2.0

#include "datamodel/container/ElementTypes.hpp"

namespace Fiber::Container {

using MemCore::StrongPtr;

namespace {

template <std::size_t N, class T>
StrongPtr<MemBase> uninitialisedArray(const DynamicSize& size) {
  std::array<std::uint64_t, N> extents{};
  std::copy(size.extents().begin(), size.extents().end(), extents.begin());
  return MemCore::makeStrong<MemArray<N, T>>(
      extents, MemCore::Chunk<T>::uninitialised(static_cast<std::size_t>(size.elementCount())));
}

/// Arrays of T in the ranks that point data have; empty for others.
template <class T>
StrongPtr<MemBase> tryArray(const FiberTypeBase& type, const DynamicSize& size) {
  if (type.type() != typeid(T)) return nullptr;
  if (size.rank() == 1) return uninitialisedArray<1, T>(size);
  if (size.rank() == 2) return uninitialisedArray<2, T>(size);
  return nullptr;
}

template <class... Types>
StrongPtr<MemBase> tryArrays(const FiberTypeBase& type, const DynamicSize& size) {
  StrongPtr<MemBase> array;
  static_cast<void>(((array = tryArray<Types>(type, size)) || ...));
  return array;
}

}  // namespace

StrongPtr<FiberTypeBase> plainType(ScalarKind kind) {
  switch (kind) {
    case ScalarKind::Int8:
      return FiberTypeBase::find(typeid(std::int8_t));
    case ScalarKind::UInt8:
      return FiberTypeBase::find(typeid(std::uint8_t));
    case ScalarKind::Int16:
      return FiberTypeBase::find(typeid(std::int16_t));
    case ScalarKind::UInt16:
      return FiberTypeBase::find(typeid(std::uint16_t));
    case ScalarKind::Int32:
      return FiberTypeBase::find(typeid(std::int32_t));
    case ScalarKind::UInt32:
      return FiberTypeBase::find(typeid(std::uint32_t));
    case ScalarKind::Int64:
      return FiberTypeBase::find(typeid(std::int64_t));
    case ScalarKind::UInt64:
      return FiberTypeBase::find(typeid(std::uint64_t));
    case ScalarKind::Float32:
      return FiberTypeBase::find(typeid(float));
    case ScalarKind::Float64:
      return FiberTypeBase::find(typeid(double));
  }
  return nullptr;
}

StrongPtr<MemBase> arrayToFill(const StrongPtr<FiberTypeBase>& type, const DynamicSize& size) {
  if (!type) return nullptr;
  auto array = tryArrays<Eagle::PhysicalSpace::point, Eagle::FixedArray<double, 3>, double, float,
                         std::int8_t, std::uint8_t, std::int16_t, std::uint16_t, std::int32_t,
                         std::uint32_t, std::int64_t, std::uint64_t>(*type, size);
  return array ? array : MemBase::create(type, size, type->type());
}

}  // namespace Fiber::Container
