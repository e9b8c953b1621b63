// SPDX-License-Identifier: Apache-2.0

#include "tests/support/CloudBuilder.hpp"

namespace LidarLib::TestSupport {

using MemCore::makeStrong;
using MemCore::StrongPtr;

namespace {

StrongPtr<Fiber::MemBase> positionArray(const std::vector<Point>& points) {
  return Fiber::makeArray(makeStrong<MemCore::Chunk<Point>>(std::span<const Point>(points)));
}

}  // namespace

CloudBuilder::CloudBuilder() : bundle_(new Fiber::Bundle) {}

CloudBuilder& CloudBuilder::time(double time) {
  slice_ = (*bundle_)[time];
  grid_.reset();
  fragment_.reset();
  return *this;
}

CloudBuilder& CloudBuilder::grid(const std::string& name) {
  if (!slice_) time(0.0);
  grid_ = (*slice_)[name];
  fragment_.reset();
  return *this;
}

CloudBuilder& CloudBuilder::fragment(const std::vector<Point>& points) {
  return fragmentOf(positionCreator(points));
}

CloudBuilder& CloudBuilder::fragmentOf(const Fiber::CreatorHandle& creator) {
  const auto field = fieldNamed("Positions");
  fragment_ = field->makeFragmentID(std::to_string(field->getFragmentIDs().size()));
  field->setCreator(fragment_, creator);
  return *this;
}

CloudBuilder& CloudBuilder::array(const std::string& name, const StrongPtr<Fiber::MemBase>& data) {
  fieldNamed(name)->setPersistentData(data, fragment_, MemCore::Cache::MemCache(), name);
  return *this;
}

StrongPtr<Fiber::Grid> CloudBuilder::currentGrid() {
  if (!grid_) grid("points");
  return grid_;
}

StrongPtr<Fiber::Field> CloudBuilder::positions() { return currentGrid()->CartesianPositions(); }

StrongPtr<Fiber::Field> CloudBuilder::fieldNamed(const std::string& name) {
  return Fiber::FieldProxy(currentGrid()->makeCartesianRepresentation(3, "", 0), name);
}

Fiber::CreatorHandle positionCreator(const std::vector<Point>& points) {
  return makeStrong<Fiber::MemoryCreator>(positionArray(points));
}

}  // namespace LidarLib::TestSupport
