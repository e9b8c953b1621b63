// SPDX-License-Identifier: Apache-2.0

#include "datamodel/fiber/StorageTransformations.hpp"

#include <mutex>

namespace Fiber {

namespace {

struct Defaults {
  std::mutex mutex;
  StorageTransformations value;
};

Defaults& processDefaults() {
  static Defaults theDefaults;
  return theDefaults;
}

}  // namespace

StorageTransformations StorageTransformations::defaults() {
  Defaults& defaults = processDefaults();
  const std::lock_guard lock(defaults.mutex);
  return defaults.value;
}

void StorageTransformations::setDefaults(const StorageTransformations& transformations) {
  Defaults& defaults = processDefaults();
  const std::lock_guard lock(defaults.mutex);
  defaults.value = transformations;
}

}  // namespace Fiber
