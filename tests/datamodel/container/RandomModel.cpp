// SPDX-License-Identifier: Apache-2.0

#include "tests/datamodel/container/RandomModel.hpp"

#include <array>
#include <cmath>
#include <cstring>
#include <limits>
#include <string>

namespace Fiber::Container {
namespace {

using MemCore::Attributes;
using MemCore::Chunk;
using MemCore::makeStrong;
using MemCore::StrongPtr;
using Point = Eagle::PhysicalSpace::point;
using Vector3 = Eagle::FixedArray<double, 3>;

class Builder {
 public:
  Builder(std::mt19937_64& random, const RandomModelSize& size) : random_(random), size_(size) {}

  BundlePtr build() {
    BundlePtr bundle(new Bundle);
    for (std::uint64_t s = 0; s < 1 + upTo(2); ++s) {
      const auto slice = (*bundle)[anyTime(s)];
      for (std::uint64_t g = 0; g < 1 + upTo(2); ++g) fillGrid(*slice->newGrid(anyName("grid", g)));
    }
    return bundle;
  }

 private:
  std::uint64_t upTo(std::uint64_t limit) { return random_() % (limit + 1); }
  bool oneIn(std::uint64_t n) { return random_() % n == 0; }

  double anyTime(std::uint64_t s) {
    constexpr std::array kTimes = {0.0, 1e-300, 2.5, 0.1, -7.0, 123456789.123456789};
    return kTimes[(s + upTo(5)) % kTimes.size()] + static_cast<double>(s) * 1000;
  }

  std::string anyName(const std::string& kind, std::uint64_t number) {
    constexpr std::array kOdd = {
        "",   "with space", "a/b",           "100%",         "x#1",   ".",
        "..", "fragments",  "property_bits", "scale_factor", "tab\t", "\xC3\xA9t\xC3\xA9"};
    if (oneIn(3)) return kOdd[upTo(kOdd.size() - 1)] + std::to_string(number);
    if (oneIn(4)) return kOdd[upTo(kOdd.size() - 1)];
    return kind + std::to_string(number);
  }

  template <class T>
  StrongPtr<Chunk<T>> anyChunk(std::uint64_t n) {
    auto chunk = makeStrong<Chunk<T>>(n);
    if constexpr (std::is_same_v<T, double> || std::is_same_v<T, float>) {
      for (T& v : chunk->span()) v = static_cast<T>(static_cast<double>(random_() >> 11U) * 1e-6);
    } else {
      // Few different values, so that there is something to compress.
      for (std::uint64_t i = 0; i < chunk->byteCount(); ++i) {
        chunk->bytes()[i] = static_cast<std::byte>(upTo(3) + (i % sizeof(T) == 0 ? i % 7 : 0));
      }
    }
    return chunk;
  }

  void fillAttributes(Attributes& attributes) {
    for (std::uint64_t a = 0; a < upTo(14); ++a) {
      attributes.setAttribute(anyName("attribute", a), anyValue(upTo(3)));
    }
  }

  StrongPtr<MemCore::ChunkBase> anyValue(std::uint64_t n) {
    switch (upTo(13)) {
      case 0:
        return anyChunk<double>(n);
      case 1:
        return anyChunk<float>(n);
      case 2:
        return anyChunk<std::int8_t>(n);
      case 3:
        return anyChunk<std::uint8_t>(oneIn(4) ? 100000 : n * 1000);
      case 4:
        return anyChunk<std::int16_t>(n);
      case 5:
        return anyChunk<std::uint16_t>(n);
      case 6:
        return anyChunk<std::int32_t>(n);
      case 7:
        return anyChunk<unsigned int>(n);
      case 8:
        return anyChunk<std::int64_t>(n);
      case 9:
        return anyChunk<std::uint64_t>(n);
      case 10:
        return anyChunk<Point>(n);
      case 11:
        return anyChunk<Vector3>(n);
      case 12:
        return anyChunk<std::byte>(n * 30);
      default:
        return anyChunk<char>(n * 20);
    }
  }

  void fillGrid(Grid& grid) {
    fillAttributes(grid.attributes());
    if (oneIn(2)) grid.propertyBits = random_();
    fillRepresentation(*grid.makeCartesianRepresentation(3, "", 0));
    if (oneIn(3)) fillRepresentation(*grid.makeCartesianRepresentation(3, "Polar/Chart", 0));
    if (oneIn(4)) {
      const auto skeleton = grid.skeletons()[SkeletonID{2, 1}];
      grid.makeCartesianChart("faces", 0);
      fillRepresentation(*(*skeleton)[grid.baseSpace("faces")]);
    }
  }

  void fillRepresentation(Representation& representation) {
    const bool regular = oneIn(3);
    differentLengths_ = oneIn(6);
    makeFragments(representation, regular);
    if (!oneIn(8)) addField(representation, "Positions", regular, 10);
    for (std::uint64_t f = 0; f < upTo(6); ++f) {
      addField(representation, anyName("field", f), regular, upTo(14));
    }
  }

  void makeFragments(Representation& representation, bool regular) {
    counts_.clear();
    for (std::uint64_t k = 0; k < upTo(size_.maxFragments); ++k) {
      if (regular) {
        const MultiIndex<3> index{{k % 2, k / 2 % 3, k / 6}};
        representation.fragments()->makeFragmentID(
            tileIndexText(index), static_cast<unsigned>(index[0] + 2 * index[1] + 6 * index[2]));
      } else {
        representation.fragments()->makeFragmentID(anyName("part", k) + std::to_string(k),
                                                   static_cast<unsigned>(k * 3 + upTo(2)));
      }
      counts_.push_back(oneIn(6) ? 0 : upTo(size_.maxPoints));
    }
  }

  void addField(Representation& representation, const std::string& name, bool regular,
                std::uint64_t kind) {
    StrongPtr<Field> field = makeStrong<Field>(representation.fragments());
    if (regular) {
      field = makeStrong<RegularlyFragmentedField<3>>(MultiIndex<3>{{2, 3, 4}}, "RegularFragment",
                                                      representation.fragments());
    }
    fillAttributes(field->properties());
    if (oneIn(3)) field->propertyBits = random_();
    if (oneIn(3))
      field->addInterface(makeStrong<Eagle::BoundingBox>(Point{-1, 2, 3}, Point{4, 5, 6}));
    if (oneIn(3)) field->addInterface(makeStrong<DataRangeBase>(ValueRange{-0.5, 1e9}));
    const auto fragments = representation.fragments()->all();
    onGrid_ = !oneIn(3);
    for (std::size_t k = 0; k < fragments.size(); ++k) {
      if (oneIn(9)) continue;
      const std::uint64_t points = counts_[k] + (differentLengths_ ? upTo(5) : 0);
      const auto creator =
          field->setPersistentData(anyArray(kind, points), fragments[k], nullptr, "");
      if (oneIn(3)) fillAttributes(creator->attributes());
      if (oneIn(3)) LidarLib::setCellSizeAttribute(*creator, -1.0);
    }
    representation.setField(name, field);
  }

  StrongPtr<MemBase> anyArray(std::uint64_t kind, std::uint64_t points) {
    switch (kind) {
      case 0:
        return makeArray(anyChunk<double>(points));
      case 1:
        return makeArray(anyChunk<float>(points));
      case 2:
        return makeArray(anyChunk<std::int8_t>(points));
      case 3:
        return makeArray(anyChunk<std::uint8_t>(points));
      case 4:
        return makeArray(anyChunk<std::int16_t>(points));
      case 5:
        return makeArray(anyChunk<std::uint16_t>(points));
      case 6:
        return makeArray(anyChunk<std::int32_t>(points));
      case 7:
        return makeArray(anyChunk<std::uint32_t>(points));
      case 8:
        return makeArray(anyChunk<std::int64_t>(points));
      case 9:
        return makeArray(anyChunk<std::uint64_t>(points));
      case 10:
        return makeArray(anyPoints(points));
      case 11:
        return makeArray(anyChunk<Vector3>(points));
      case 12:
        return anyCube(points);
      default:
        return anyWaveforms(points);
    }
  }

  StrongPtr<Chunk<Point>> anyPoints(std::uint64_t n) {
    auto chunk = makeStrong<Chunk<Point>>(n);
    const auto gridValue = [&](double offset) {
      const volatile double product = static_cast<double>(upTo(100000)) * 0.01;
      return product + offset;
    };
    for (Point& p : chunk->span()) {
      p = {gridValue(202500), gridValue(2184500), gridValue(1331)};
      if (!onGrid_) p.x = std::sqrt(p.x + p.y);
    }
    if (!onGrid_ && n > 0) (*chunk)[upTo(n - 1)].z = std::numeric_limits<double>::quiet_NaN();
    return chunk;
  }

  StrongPtr<MemBase> anyWaveforms(std::uint64_t points) {
    const std::uint64_t samples = 1 + upTo(9);
    return makeStrong<MemArray<2, std::uint16_t>>(std::array<std::uint64_t, 2>{samples, points},
                                                  anyChunk<std::uint16_t>(samples * points));
  }

  StrongPtr<MemBase> anyCube(std::uint64_t points) {
    return makeStrong<MemArray<3, Vector3>>(std::array<std::uint64_t, 3>{2, 3, points},
                                            anyChunk<Vector3>(6 * points));
  }

  std::mt19937_64& random_;
  RandomModelSize size_;
  std::vector<std::uint64_t> counts_;
  bool differentLengths_ = false;
  bool onGrid_ = false;
};

}  // namespace

BundlePtr randomModel(std::mt19937_64& random, const RandomModelSize& size) {
  return Builder(random, size).build();
}

}  // namespace Fiber::Container
