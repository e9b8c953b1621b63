// SPDX-License-Identifier: Apache-2.0
//
// Intercube: an object to which interface objects can be attached, at most one of each type.
// A bounding box hangs on a field or a creator this way, and so does a value range.

#pragma once

#include <mutex>
#include <vector>

#include "datamodel/memcore/StrongPtr.hpp"

namespace MemCore {

/// Base of everything that can be attached to an Intercube.
class FIBER_API InterfaceBase {
 public:
  virtual ~InterfaceBase() = default;

 protected:
  InterfaceBase() = default;
  InterfaceBase(const InterfaceBase&) = default;
  InterfaceBase& operator=(const InterfaceBase&) = default;
};

/// Threads: attaching and finding may run at once on the same object.
class FIBER_API Intercube {
 public:
  Intercube() = default;
  virtual ~Intercube() = default;
  Intercube(const Intercube&) = delete;
  Intercube& operator=(const Intercube&) = delete;

  /// Attaches an interface, replacing one of the same dynamic type. An empty handle does nothing.
  void addInterface(const StrongPtr<InterfaceBase>& interface);

  /// The attached interface of type T, or an empty handle.
  template <class T>
  StrongPtr<T> findInterface() const {
    const std::lock_guard lock(interfaceMutex_);
    for (const auto& candidate : interfaces_) {
      if (auto found = handleCast<T>(candidate)) return found;
    }
    return nullptr;
  }

 private:
  mutable std::mutex interfaceMutex_;
  std::vector<StrongPtr<InterfaceBase>> interfaces_;
};

}  // namespace MemCore
