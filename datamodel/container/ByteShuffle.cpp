// SPDX-License-Identifier: Apache-2.0

#include "datamodel/container/ByteShuffle.hpp"

#include <hwy/highway.h>

#include <cassert>
#include <cstdint>
#include <cstring>

namespace Fiber::Container {
namespace {

namespace hn = hwy::HWY_NAMESPACE;

const std::uint8_t* asBytes(std::span<const std::byte> bytes) {
  return reinterpret_cast<const std::uint8_t*>(bytes.data());
}

std::uint8_t* asBytes(std::span<std::byte> bytes) {
  return reinterpret_cast<std::uint8_t*>(bytes.data());
}

/// Where the planes of `count` elements lie: plane b starts at b * count.
/// Each vector kernel below returns how many leading elements it has done; the rest is for the
/// plain loops.
std::size_t shuffle2(const std::uint8_t* in, std::size_t count, std::uint8_t* out) {
  const hn::ScalableTag<std::uint8_t> d;
  const std::size_t lanes = hn::Lanes(d);
  std::size_t i = 0;
  for (; i + lanes <= count; i += lanes) {
    hn::Vec<decltype(d)> p0, p1;
    hn::LoadInterleaved2(d, in + 2 * i, p0, p1);
    hn::StoreU(p0, d, out + i);
    hn::StoreU(p1, d, out + count + i);
  }
  return i;
}

std::size_t unshuffle2(const std::uint8_t* in, std::size_t count, std::uint8_t* out) {
  const hn::ScalableTag<std::uint8_t> d;
  const std::size_t lanes = hn::Lanes(d);
  std::size_t i = 0;
  for (; i + lanes <= count; i += lanes) {
    hn::StoreInterleaved2(hn::LoadU(d, in + i), hn::LoadU(d, in + count + i), d, out + 2 * i);
  }
  return i;
}

std::size_t shuffle4(const std::uint8_t* in, std::size_t count, std::uint8_t* out) {
  const hn::ScalableTag<std::uint8_t> d;
  const std::size_t lanes = hn::Lanes(d);
  std::size_t i = 0;
  for (; i + lanes <= count; i += lanes) {
    hn::Vec<decltype(d)> p0, p1, p2, p3;
    hn::LoadInterleaved4(d, in + 4 * i, p0, p1, p2, p3);
    hn::StoreU(p0, d, out + i);
    hn::StoreU(p1, d, out + count + i);
    hn::StoreU(p2, d, out + 2 * count + i);
    hn::StoreU(p3, d, out + 3 * count + i);
  }
  return i;
}

std::size_t unshuffle4(const std::uint8_t* in, std::size_t count, std::uint8_t* out) {
  const hn::ScalableTag<std::uint8_t> d;
  const std::size_t lanes = hn::Lanes(d);
  std::size_t i = 0;
  for (; i + lanes <= count; i += lanes) {
    hn::StoreInterleaved4(hn::LoadU(d, in + i), hn::LoadU(d, in + count + i),
                          hn::LoadU(d, in + 2 * count + i), hn::LoadU(d, in + 3 * count + i), d,
                          out + 4 * i);
  }
  return i;
}

/// Eight-byte elements go through 16-bit lanes: one interleaved load gives the four byte pairs of
/// each element, and each pair splits into its two planes.
std::size_t shuffle8(const std::uint8_t* in, std::size_t count, std::uint8_t* out) {
  const hn::ScalableTag<std::uint16_t> d16;
  const hn::RebindToSigned<decltype(d16)> s16;
  const hn::Rebind<std::uint8_t, decltype(d16)> d8;
  const std::size_t lanes = hn::Lanes(d16);
  const auto lowByte = hn::Set(d16, 0x00FF);
  const auto storePair = [&](hn::Vec<decltype(d16)> pairs, std::uint8_t* plane) {
    const auto low = hn::And(pairs, lowByte);
    const auto high = hn::ShiftRight<8>(pairs);
    hn::StoreU(hn::DemoteTo(d8, hn::BitCast(s16, low)), d8, plane);
    hn::StoreU(hn::DemoteTo(d8, hn::BitCast(s16, high)), d8, plane + count);
  };
  std::size_t i = 0;
  for (; i + lanes <= count; i += lanes) {
    hn::Vec<decltype(d16)> w0, w1, w2, w3;
    hn::LoadInterleaved4(d16, reinterpret_cast<const std::uint16_t*>(in + 8 * i), w0, w1, w2, w3);
    storePair(w0, out + i);
    storePair(w1, out + 2 * count + i);
    storePair(w2, out + 4 * count + i);
    storePair(w3, out + 6 * count + i);
  }
  return i;
}

std::size_t unshuffle8(const std::uint8_t* in, std::size_t count, std::uint8_t* out) {
  const hn::ScalableTag<std::uint16_t> d16;
  const hn::Rebind<std::uint8_t, decltype(d16)> d8;
  const std::size_t lanes = hn::Lanes(d16);
  const auto loadPair = [&](const std::uint8_t* plane) {
    const auto low = hn::PromoteTo(d16, hn::LoadU(d8, plane));
    const auto high = hn::PromoteTo(d16, hn::LoadU(d8, plane + count));
    return hn::Or(low, hn::ShiftLeft<8>(high));
  };
  std::size_t i = 0;
  for (; i + lanes <= count; i += lanes) {
    hn::StoreInterleaved4(loadPair(in + i), loadPair(in + 2 * count + i),
                          loadPair(in + 4 * count + i), loadPair(in + 6 * count + i), d16,
                          reinterpret_cast<std::uint16_t*>(out + 8 * i));
  }
  return i;
}

}  // namespace

void shuffleBytes(std::span<const std::byte> plain, std::size_t elementSize,
                  std::span<std::byte> shuffled) {
  assert(plain.size() == shuffled.size() && elementSize > 0);
  const std::size_t count = plain.size() / elementSize;
  const std::uint8_t* in = asBytes(plain);
  std::uint8_t* out = asBytes(shuffled);
  std::size_t done = 0;
  if (elementSize == 2) done = shuffle2(in, count, out);
  if (elementSize == 4) done = shuffle4(in, count, out);
  if (elementSize == 8) done = shuffle8(in, count, out);
  if (elementSize == 1 && count > 0) {
    std::memcpy(out, in, count);
    done = count;
  }
  for (std::size_t i = done; i < count; ++i) {
    for (std::size_t b = 0; b < elementSize; ++b) out[b * count + i] = in[i * elementSize + b];
  }
  for (std::size_t k = count * elementSize; k < plain.size(); ++k) out[k] = in[k];
}

void unshuffleBytes(std::span<const std::byte> shuffled, std::size_t elementSize,
                    std::span<std::byte> plain) {
  assert(plain.size() == shuffled.size() && elementSize > 0);
  const std::size_t count = shuffled.size() / elementSize;
  const std::uint8_t* in = asBytes(shuffled);
  std::uint8_t* out = asBytes(plain);
  std::size_t done = 0;
  if (elementSize == 2) done = unshuffle2(in, count, out);
  if (elementSize == 4) done = unshuffle4(in, count, out);
  if (elementSize == 8) done = unshuffle8(in, count, out);
  if (elementSize == 1 && count > 0) {
    std::memcpy(out, in, count);
    done = count;
  }
  for (std::size_t i = done; i < count; ++i) {
    for (std::size_t b = 0; b < elementSize; ++b) out[i * elementSize + b] = in[b * count + i];
  }
  for (std::size_t k = count * elementSize; k < shuffled.size(); ++k) out[k] = in[k];
}

}  // namespace Fiber::Container
