// SPDX-License-Identifier: Apache-2.0
//
// Bundle, slice and their handle: the whole data set, one slice per time, named grids per slice.
// Reading and writing of bundle files is implemented by the container folder.

#pragma once

#include <map>
#include <string>

#include "datamodel/fiber/Grid.hpp"
#include "datamodel/fiber/StorageTransformations.hpp"
#include "datamodel/memcore/LoaderParameters.hpp"
#include "datamodel/memcore/LoaderProgress.hpp"
#include "datamodel/memcore/Outcome.hpp"

namespace Fiber {

/// The grids of one time, walked in ascending order of name.
class FIBER_API Slice {
 public:
  /// Must be called before a slice's grids are read. Grids are present from loading on, so nothing
  /// remains to be done.
  void accessSlice() const {}
  /// The named grid, made when absent.
  MemCore::StrongPtr<Grid> operator[](const std::string& name);
  /// The named grid; empty when absent.
  MemCore::StrongPtr<Grid> findGrid(const std::string& name) const;
  /// Makes the named grid in place of any that exists.
  MemCore::StrongPtr<Grid> newGrid(const std::string& name);
  const std::map<std::string, MemCore::StrongPtr<Grid>>& grids() const { return grids_; }

 private:
  std::map<std::string, MemCore::StrongPtr<Grid>> grids_;
};

class BundlePtr;

class Bundle;

/// The file that a growing bundle is bound to. It appears under its name when it is completed;
/// given up before that, it leaves nothing behind.
class FIBER_API BundleBinding {
 public:
  virtual ~BundleBinding() = default;
  /// Moves a fragment's finished data out of memory; they are read back on demand. Does nothing
  /// for a fragment without data in memory. Errors: the data cannot be written; they then stay.
  virtual MemCore::Outcome<void> store(Field& field, const FragmentHandle& fragment) = 0;
  /// Writes the bundle under the file's name. Errors: as Bundle::save.
  virtual MemCore::Outcome<void> complete(Bundle& bundle) = 0;
};

/// The slices of a data set, walked in ascending order of time. Threads: reads may run at once;
/// different bundles may be built and saved at once.
class FIBER_API Bundle {
 public:
  Bundle() = default;

  /// The slice of a time, made when absent. Requires: the time is not NaN.
  MemCore::StrongPtr<Slice> operator[](double time);
  const std::map<double, MemCore::StrongPtr<Slice>>& slices() const { return slices_; }

  /// Writes the bundle to a file: under a temporary name first, renamed when complete, so that a
  /// file of that name is always whole. Fragments whose creators live in other bundle files are
  /// linked, all others are copied. The progress handle (may be empty) is asked as the file grows;
  /// empty transformations mean StorageTransformations::defaults(). On failure nothing stays
  /// behind under the name, and an older file of that name stays as it was.
  MemCore::Outcome<void> save(const std::string& file,
                              const MemCore::StrongPtr<MemCore::LoaderProgress>& progress,
                              const MemCore::StrongPtr<StorageTransformations>& transformations);

  /// Binds the bundle to a new file (see BundleBinding), which holds copies of all fragments.
  /// Empty transformations mean StorageTransformations::defaults(). Errors: nothing can be written
  /// in the file's folder; the bundle then stays in memory.
  MemCore::Outcome<void> bindToNew(
      const std::string& file, const MemCore::StrongPtr<StorageTransformations>& transformations);

  /// Loads bundle files into a bundle (a new one when `into` is empty) and returns it. Point data
  /// are read on demand. `ok` tells success; on failure the handle is empty and `failure` holds
  /// the text.
  static BundlePtr load(bool& ok, const MemCore::StrongPtr<MemCore::LoaderParameters>& parameters,
                        const MemCore::StrongPtr<Bundle>& into, std::string* failure = nullptr);

  /// What the bundle is bound to; empty for a bundle in memory.
  MemCore::StrongPtr<BundleBinding> binding;

 private:
  std::map<double, MemCore::StrongPtr<Slice>> slices_;
};

/// The owning handle on a bundle.
class FIBER_API BundlePtr : public MemCore::StrongPtr<Bundle> {
 public:
  BundlePtr() = default;
  explicit BundlePtr(Bundle* fresh) : StrongPtr<Bundle>(fresh) {}
  BundlePtr(const MemCore::StrongPtr<Bundle>& other)  // NOLINT(google-explicit-constructor)
      : StrongPtr<Bundle>(other) {}
};

}  // namespace Fiber
