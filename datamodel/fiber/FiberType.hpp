// SPDX-License-Identifier: Apache-2.0
//
// FiberTypeBase: the element types that arrays can have, each registered under its C++ type and a
// stable name. The name is what files hold.

#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <typeinfo>

#include "datamodel/eagle/PhysicalSpace.hpp"
#include "datamodel/memcore/StrongPtr.hpp"

namespace Fiber {

/// The number type that an element is made of.
enum class ScalarKind {
  Int8,
  UInt8,
  Int16,
  UInt16,
  Int32,
  UInt32,
  Int64,
  UInt64,
  Float32,
  Float64
};

/// Bytes of one number.
FIBER_API std::size_t scalarBytes(ScalarKind kind);

/// One element type: a number, or a fixed count of equal numbers in a row.
class FIBER_API FiberTypeBase {
 public:
  FiberTypeBase(std::string name, const std::type_info& type, ScalarKind scalar,
                std::size_t componentCount)
      : name_(std::move(name)), type_(&type), scalar_(scalar), componentCount_(componentCount) {}

  const std::string& name() const { return name_; }
  const std::type_info& type() const { return *type_; }
  ScalarKind scalar() const { return scalar_; }
  std::size_t componentCount() const { return componentCount_; }
  std::size_t elementBytes() const { return scalarBytes(scalar_) * componentCount_; }

  /// The registered type of that C++ type or name; empty when none is. Known from the start:
  /// "point" (Eagle::PhysicalSpace::point), "vector3" (Eagle::FixedArray<double, 3>), "double",
  /// "float", "int8" ... "uint64".
  static MemCore::StrongPtr<FiberTypeBase> find(const std::type_info& type);
  static MemCore::StrongPtr<FiberTypeBase> find(const std::string& name);
  /// Registers a type and returns the registered one: the first of a C++ type wins. An empty
  /// handle registers nothing. Threads: any.
  static MemCore::StrongPtr<FiberTypeBase> remember(const MemCore::StrongPtr<FiberTypeBase>& type);

 private:
  std::string name_;
  const std::type_info* type_;
  ScalarKind scalar_;
  std::size_t componentCount_;
};

}  // namespace Fiber
