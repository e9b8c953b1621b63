// SPDX-License-Identifier: Apache-2.0
//
// StrongPtr and WeakPtr: the handles of the data model. Thin layers over the standard library's
// shared and weak pointers, so counts are atomic and an empty handle means that the thing is
// absent. Misuse (following an empty handle) is raised through HandleDiagnostics.

#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <type_traits>
#include <utility>

#include "datamodel/memcore/HandleDiagnostics.hpp"

namespace MemCore {

/// Owning, reference-counted handle. Equality and hash are those of the object's address.
template <class T>
class StrongPtr {
 public:
  using element_type = T;

  StrongPtr() = default;
  StrongPtr(std::nullptr_t) {}  // NOLINT(google-explicit-constructor)
  /// Takes ownership of a freshly made object.
  explicit StrongPtr(T* fresh) : object_(fresh) {}
  explicit StrongPtr(std::shared_ptr<T> object) : object_(std::move(object)) {}
  template <class U, class = std::enable_if_t<std::is_convertible_v<U*, T*>>>
  // NOLINTNEXTLINE(google-explicit-constructor): a handle converts as a pointer does
  StrongPtr(const StrongPtr<U>& other) : object_(other.shared()) {}

  T* get() const { return object_.get(); }
  T* operator->() const { return checked(); }
  T& operator*() const { return *checked(); }
  explicit operator bool() const { return object_ != nullptr; }
  void reset() { object_.reset(); }
  const std::shared_ptr<T>& shared() const { return object_; }

  friend bool operator==(const StrongPtr& a, const StrongPtr& b) { return a.get() == b.get(); }
  friend bool operator==(const StrongPtr& a, std::nullptr_t) { return a.get() == nullptr; }

 private:
  T* checked() const {
    if (object_ == nullptr) InconsistentDynPtr::raise();
    return object_.get();
  }

  std::shared_ptr<T> object_;
};

/// Non-owning handle; lock() yields an empty StrongPtr once the object is gone.
template <class T>
class WeakPtr {
 public:
  WeakPtr() = default;
  template <class U, class = std::enable_if_t<std::is_convertible_v<U*, T*>>>
  // NOLINTNEXTLINE(google-explicit-constructor): a weak handle is made from any strong one
  WeakPtr(const StrongPtr<U>& strong) : object_(strong.shared()) {}
  explicit WeakPtr(std::weak_ptr<T> object) : object_(std::move(object)) {}

  StrongPtr<T> lock() const { return StrongPtr<T>(object_.lock()); }
  bool expired() const { return object_.expired(); }

 private:
  std::weak_ptr<T> object_;
};

/// Makes an object together with its first handle.
template <class T, class... Args>
StrongPtr<T> makeStrong(Args&&... args) {
  return StrongPtr<T>(std::make_shared<T>(std::forward<Args>(args)...));
}

/// The same object seen as a T; empty when the handle is empty or the object is no T.
template <class T, class U>
StrongPtr<T> handleCast(const StrongPtr<U>& handle) {
  return StrongPtr<T>(std::dynamic_pointer_cast<T>(handle.shared()));
}

/// The handle on an object that is held by handles already (T derives from
/// std::enable_shared_from_this). Raises SelfConstruction when nothing holds the object yet.
template <class T>
StrongPtr<T> selfHandle(T& object) {
  auto held = object.weak_from_this().lock();
  if (held == nullptr) SelfConstruction::raise();
  return StrongPtr<T>(std::move(held));
}

}  // namespace MemCore

template <class T>
struct std::hash<MemCore::StrongPtr<T>> {
  std::size_t operator()(const MemCore::StrongPtr<T>& handle) const noexcept {
    return std::hash<T*>()(handle.get());
  }
};
