// SPDX-License-Identifier: Apache-2.0

#include "datamodel/container/SectionDeflater.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <vector>

namespace Fiber::Container {
namespace {

using Bytes = std::vector<std::byte>;

constexpr std::size_t kSection = 62500;

/// Bytes of which every one is `times` as frequent as the next, beginning with `first`.
Bytes fallingBytes(unsigned first, double times, std::uint64_t seed) {
  std::mt19937_64 random(seed);
  std::geometric_distribution<unsigned> kind(1 - 1 / times);
  Bytes bytes(kSection);
  for (std::byte& b : bytes) b = static_cast<std::byte>(first + std::min(kind(random), 99U));
  return bytes;
}

Bytes noise(std::uint64_t seed) {
  std::mt19937_64 random(seed);
  Bytes bytes(kSection);
  for (std::byte& b : bytes) b = static_cast<std::byte>(random());
  return bytes;
}

Bytes deflated(SectionDeflater& deflater, const Bytes& plain, StreamCodes codes) {
  Bytes stream(2 * plain.size() + 4096);
  stream.resize(deflater.deflate(plain, kSection, codes, stream));
  EXPECT_FALSE(stream.empty());
  return stream;
}

Bytes deflatedAlone(const Bytes& plain) {
  SectionDeflater deflater;
  return deflated(deflater, plain, StreamCodes::kOwn);
}

/// The codes of the first section, in part: they begin the stream.
Bytes codesOf(const Bytes& stream) { return {stream.begin() + 2, stream.begin() + 42}; }

TEST(SectionDeflater, CodesOfTheStreamBeforeAreTakenWhereTheySuit) {
  for (const double times : {1.08, 1.15, 1.3}) {
    SectionDeflater deflater;
    const Bytes before = deflated(deflater, fallingBytes(0, times, 1), StreamCodes::kOwn);
    const Bytes plain = fallingBytes(0, times, 2);
    const Bytes own = deflatedAlone(plain);
    const Bytes stream = deflated(deflater, plain, StreamCodes::kLikeBefore);
    ASSERT_NE(codesOf(own), codesOf(before));
    EXPECT_EQ(codesOf(stream), codesOf(before)) << times;
    EXPECT_LT(static_cast<double>(stream.size()), 1.02 * static_cast<double>(own.size())) << times;
  }
}

TEST(SectionDeflater, BytesThatHaveChangedGetCodesOfTheirOwn) {
  const std::vector<Bytes> kinds{fallingBytes(0, 1.3, 1), fallingBytes(100, 2.0, 2), noise(3),
                                 Bytes(kSection, std::byte{7}), fallingBytes(7, 8.0, 4)};
  for (const Bytes& before : kinds) {
    for (const Bytes& plain : kinds) {
      if (&plain == &before) continue;
      SectionDeflater deflater;
      deflated(deflater, before, StreamCodes::kOwn);
      EXPECT_EQ(deflated(deflater, plain, StreamCodes::kLikeBefore), deflatedAlone(plain))
          << &before - kinds.data() << " " << &plain - kinds.data();
    }
  }
}

TEST(SectionDeflater, CodesAreForgottenWhereAStreamHasItsOwn) {
  SectionDeflater deflater;
  deflated(deflater, fallingBytes(0, 2.0, 1), StreamCodes::kOwn);
  const Bytes plain = fallingBytes(0, 2.0, 2);
  EXPECT_EQ(deflated(deflater, plain, StreamCodes::kOwn), deflatedAlone(plain));
}

TEST(SectionDeflater, SectionsBeyondThoseOfTheStreamBeforeGetCodesOfTheirOwn) {
  SectionDeflater deflater;
  const Bytes one = fallingBytes(0, 2.0, 1);
  deflated(deflater, one, StreamCodes::kOwn);
  Bytes two = one;
  const Bytes another = fallingBytes(50, 2.0, 2);
  two.insert(two.end(), another.begin(), another.end());
  EXPECT_EQ(deflated(deflater, two, StreamCodes::kLikeBefore), deflatedAlone(two));
}

}  // namespace
}  // namespace Fiber::Container
