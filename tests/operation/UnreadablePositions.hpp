// SPDX-License-Identifier: Apache-2.0

#pragma once

#include "tests/support/CloudBuilder.hpp"

namespace LidarLib::TestSupport {

/// Positions that are known to exist but cannot be read.
class UnreadablePositions final : public Fiber::CreativeArrayBase {
 public:
  UnreadablePositions()
      : CreativeArrayBase({Fiber::FiberTypeBase::find(typeid(Point)), Fiber::DynamicSize{2},
                           MemCore::makeStrong<Eagle::BoundingBox>(Point{0, 0, 0}, Point{5, 5, 1}),
                           std::nullopt}) {}

 protected:
  MemCore::Outcome<MemCore::StrongPtr<Fiber::MemBase>> create() override {
    return MemCore::Failure{"survey.laz: chunk 3 is damaged"};
  }
};

}  // namespace LidarLib::TestSupport
