// SPDX-License-Identifier: Apache-2.0
//
// Owning handles of HDF5 identifiers. A leaked identifier keeps its file open behind everybody's
// back, and closing the file then "succeeds" without having written it; so no identifier of ours
// lives outside one of these. A handle closes itself under the library lock.

#pragma once

#include <string_view>
#include <utility>

#include "datamodel/container/Hdf5Library.hpp"
#include "datamodel/memcore/Outcome.hpp"

namespace Fiber::Container {

/// Owns one identifier; Close is the library's function that releases it. Empty when the call that
/// was to give the identifier failed. Moves, never copies.
template <herr_t (*Close)(hid_t)>
class Hdf5Handle {
 public:
  Hdf5Handle() = default;
  explicit Hdf5Handle(hid_t id) : id_(id) {}
  Hdf5Handle(Hdf5Handle&& other) noexcept : id_(std::exchange(other.id_, kNone)) {}
  Hdf5Handle& operator=(Hdf5Handle&& other) noexcept {
    if (this != &other) {
      reset();
      id_ = std::exchange(other.id_, kNone);
    }
    return *this;
  }
  Hdf5Handle(const Hdf5Handle&) = delete;
  Hdf5Handle& operator=(const Hdf5Handle&) = delete;
  ~Hdf5Handle() { reset(); }

  bool ok() const { return id_ >= 0; }
  hid_t get() const { return id_; }

  /// Closes now; the handle is empty afterwards. Errors: `what` and the library's own words, for
  /// example when buffered metadata cannot be written.
  MemCore::Outcome<void> close(std::string_view what) {
    if (!ok()) return {};
    const Hdf5Lock lock;
    return checkHdf5(Close(std::exchange(id_, kNone)), what);
  }

 private:
  static constexpr hid_t kNone = -1;

  /// Closes without a report: for handles whose closing cannot lose anything.
  void reset() noexcept {
    if (!ok()) return;
    const Hdf5Lock lock;
    Close(std::exchange(id_, kNone));
  }

  hid_t id_ = kNone;
};

using FileHandle = Hdf5Handle<H5Fclose>;
using GroupHandle = Hdf5Handle<H5Gclose>;
using DatasetHandle = Hdf5Handle<H5Dclose>;
using DataspaceHandle = Hdf5Handle<H5Sclose>;
using DatatypeHandle = Hdf5Handle<H5Tclose>;
using AttributeHandle = Hdf5Handle<H5Aclose>;
using PropertyHandle = Hdf5Handle<H5Pclose>;

/// The handle on an identifier just obtained, or a text: `what`, then the library's own words.
/// Requires: Hdf5Lock held since the call that gave the identifier.
template <class Handle>
MemCore::Outcome<Handle> ownHdf5(hid_t id, std::string_view what) {
  if (id >= 0) return Handle(id);
  return checkHdf5(-1, what).failure();
}

}  // namespace Fiber::Container
