// SPDX-License-Identifier: Apache-2.0

#include "formats/cloud/SourceOrder.hpp"

#include <algorithm>
#include <cstring>
#include <numeric>

#include "formats/cloud/ColumnTypes.hpp"

namespace Formats {

using Fiber::ArrayFacts;
using Fiber::DynamicSize;
using Fiber::MemBase;
using Fiber::ValueRange;
using MemCore::Chunk;
using MemCore::makeStrong;
using MemCore::Outcome;
using MemCore::StrongPtr;

namespace {

// Neither kind is cached: making the values costs less than what the cache would drop for them.

class FileNumberCreator final : public Fiber::CreativeArrayBase {
 public:
  FileNumberCreator(std::uint32_t fileNumber, std::uint64_t pointCount)
      : CreativeArrayBase(
            {fiberTypeOf(ElementType::UInt32), DynamicSize{pointCount}, nullptr,
             ValueRange{static_cast<double>(fileNumber), static_cast<double>(fileNumber)}}),
        fileNumber_(fileNumber),
        pointCount_(pointCount) {
    enableCaching(false);
  }

  bool copyPart(const Fiber::PointPart& part, std::span<std::byte> out) override {
    for (std::size_t i = 0; i < part.points().size(); ++i) {
      std::memcpy(&out[i * sizeof fileNumber_], &fileNumber_, sizeof fileNumber_);
    }
    return true;
  }

 protected:
  Outcome<StrongPtr<MemBase>> create() override {
    const auto values = Chunk<std::uint32_t>::uninitialised(pointCount_);
    std::fill(values->begin(), values->end(), fileNumber_);
    return StrongPtr<MemBase>(Fiber::makeArray(values));
  }

 private:
  std::uint32_t fileNumber_;
  std::uint64_t pointCount_;
};

class PointNumberCreator final : public Fiber::CreativeArrayBase {
 public:
  explicit PointNumberCreator(const PointRange& range)
      : CreativeArrayBase(
            {fiberTypeOf(ElementType::UInt64), DynamicSize{range.pointCount}, nullptr,
             ValueRange{static_cast<double>(range.firstPoint),
                        static_cast<double>(range.firstPoint + range.pointCount - 1)}}),
        range_(range) {
    enableCaching(false);
  }

  bool copyPart(const Fiber::PointPart& part, std::span<std::byte> out) override {
    const auto points = part.points();
    for (std::size_t i = 0; i < points.size(); ++i) {
      const std::uint64_t number = range_.firstPoint + points[i];
      std::memcpy(&out[i * sizeof number], &number, sizeof number);
    }
    return true;
  }

 protected:
  Outcome<StrongPtr<MemBase>> create() override {
    const auto values = Chunk<std::uint64_t>::uninitialised(range_.pointCount);
    std::iota(values->begin(), values->end(), range_.firstPoint);
    return StrongPtr<MemBase>(Fiber::makeArray(values));
  }

 private:
  PointRange range_;
};

}  // namespace

SourceOrderCreators makeSourceOrder(std::uint32_t fileNumber, const PointRange& range) {
  return {makeStrong<FileNumberCreator>(fileNumber, range.pointCount),
          makeStrong<PointNumberCreator>(range)};
}

}  // namespace Formats
