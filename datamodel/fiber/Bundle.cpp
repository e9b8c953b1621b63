// SPDX-License-Identifier: Apache-2.0

#include "datamodel/fiber/Bundle.hpp"

namespace Fiber {

using MemCore::makeStrong;
using MemCore::StrongPtr;

StrongPtr<Grid> Slice::operator[](const std::string& name) {
  auto& grid = grids_[name];
  if (!grid) grid = makeStrong<Grid>(name);
  return grid;
}

StrongPtr<Grid> Slice::findGrid(const std::string& name) const {
  const auto found = grids_.find(name);
  return found == grids_.end() ? nullptr : found->second;
}

StrongPtr<Grid> Slice::newGrid(const std::string& name) {
  return grids_[name] = makeStrong<Grid>(name);
}

StrongPtr<Slice> Bundle::operator[](double time) {
  auto& slice = slices_[time];
  if (!slice) slice = makeStrong<Slice>();
  return slice;
}

}  // namespace Fiber
