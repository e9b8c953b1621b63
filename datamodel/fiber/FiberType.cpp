// SPDX-License-Identifier: Apache-2.0

#include "datamodel/fiber/FiberType.hpp"

#include <mutex>
#include <shared_mutex>
#include <vector>

namespace Fiber {

using MemCore::makeStrong;
using MemCore::StrongPtr;

namespace {

// The process's registry of element types; a short list, searched in order of registration.
class TypeRegistry {
 public:
  TypeRegistry() {
    add<Eagle::PhysicalSpace::point>("point", ScalarKind::Float64, 3);
    add<Eagle::FixedArray<double, 3>>("vector3", ScalarKind::Float64, 3);
    add<double>("double", ScalarKind::Float64);
    add<float>("float", ScalarKind::Float32);
    add<std::int8_t>("int8", ScalarKind::Int8);
    add<std::uint8_t>("uint8", ScalarKind::UInt8);
    add<std::int16_t>("int16", ScalarKind::Int16);
    add<std::uint16_t>("uint16", ScalarKind::UInt16);
    add<std::int32_t>("int32", ScalarKind::Int32);
    add<std::uint32_t>("uint32", ScalarKind::UInt32);
    add<std::int64_t>("int64", ScalarKind::Int64);
    add<std::uint64_t>("uint64", ScalarKind::UInt64);
  }

  template <class Predicate>
  StrongPtr<FiberTypeBase> find(Predicate matches) const {
    const std::shared_lock lock(mutex_);
    for (const auto& type : types_) {
      if (matches(*type)) return type;
    }
    return nullptr;
  }

  /// The registered type of the same C++ type; `type` itself when there was none.
  StrongPtr<FiberTypeBase> findOrAdd(const StrongPtr<FiberTypeBase>& type) {
    const std::unique_lock lock(mutex_);
    for (const auto& known : types_) {
      if (known->type() == type->type()) return known;
    }
    types_.push_back(type);
    return type;
  }

 private:
  template <class T>
  void add(const char* name, ScalarKind scalar, std::size_t componentCount = 1) {
    types_.push_back(makeStrong<FiberTypeBase>(name, typeid(T), scalar, componentCount));
  }

  mutable std::shared_mutex mutex_;
  std::vector<StrongPtr<FiberTypeBase>> types_;
};

TypeRegistry& registry() {
  static TypeRegistry theRegistry;
  return theRegistry;
}

}  // namespace

std::size_t scalarBytes(ScalarKind kind) {
  switch (kind) {
    case ScalarKind::Int8:
    case ScalarKind::UInt8:
      return 1;
    case ScalarKind::Int16:
    case ScalarKind::UInt16:
      return 2;
    case ScalarKind::Int32:
    case ScalarKind::UInt32:
    case ScalarKind::Float32:
      return 4;
    case ScalarKind::Int64:
    case ScalarKind::UInt64:
    case ScalarKind::Float64:
      return 8;
  }
  return 0;
}

StrongPtr<FiberTypeBase> FiberTypeBase::find(const std::type_info& type) {
  return registry().find([&](const FiberTypeBase& candidate) { return candidate.type() == type; });
}

StrongPtr<FiberTypeBase> FiberTypeBase::find(const std::string& name) {
  return registry().find([&](const FiberTypeBase& candidate) { return candidate.name() == name; });
}

StrongPtr<FiberTypeBase> FiberTypeBase::remember(const StrongPtr<FiberTypeBase>& type) {
  return type ? registry().findOrAdd(type) : nullptr;
}

}  // namespace Fiber
