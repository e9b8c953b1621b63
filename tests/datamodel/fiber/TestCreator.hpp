// SPDX-License-Identifier: Apache-2.0
//
// Creators for tests: one whose data are made by a function, which counts how often it was asked,
// and short forms for arrays in memory.

#pragma once

#include <atomic>
#include <functional>
#include <utility>
#include <vector>

#include "datamodel/fiber/CreativeArrayBase.hpp"

namespace Fiber {

using Point = Eagle::PhysicalSpace::point;
using MadeData = MemCore::Outcome<MemCore::StrongPtr<MemBase>>;

/// Makes its data by a function.
class TestCreator final : public CreativeArrayBase {
 public:
  explicit TestCreator(std::function<MadeData()> make, ArrayFacts facts = {})
      : CreativeArrayBase(std::move(facts)), make_(std::move(make)) {}
  /// How often data were made.
  int timesMade() const { return timesMade_; }

 protected:
  MadeData create() override {
    ++timesMade_;
    return make_();
  }

 private:
  std::function<MadeData()> make_;
  std::atomic<int> timesMade_ = 0;
};

template <class T>
MemCore::StrongPtr<MemBase> arrayOf(const std::vector<T>& values) {
  return makeArray<T>(MemCore::makeStrong<MemCore::Chunk<T>>(std::span<const T>(values)));
}

template <class T>
MemCore::StrongPtr<CreativeArrayBase> creatorOf(const std::vector<T>& values) {
  return MemCore::makeStrong<MemoryCreator>(arrayOf<T>(values));
}

/// A creator that makes the same values anew each time it is asked.
template <class T>
MemCore::StrongPtr<TestCreator> makerOf(const std::vector<T>& values, ArrayFacts facts = {}) {
  return MemCore::makeStrong<TestCreator>([values] { return MadeData(arrayOf<T>(values)); },
                                          std::move(facts));
}

}  // namespace Fiber
