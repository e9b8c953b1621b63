// SPDX-License-Identifier: Apache-2.0

#include "datamodel/container/objects/Lookup3.hpp"

#include <bit>
#include <cstring>

namespace Fiber::Container {

namespace {

struct State {
  std::uint32_t a;
  std::uint32_t b;
  std::uint32_t c;
};

void mix(State& s) {
  s.a = (s.a - s.c) ^ std::rotl(s.c, 4);
  s.c += s.b;
  s.b = (s.b - s.a) ^ std::rotl(s.a, 6);
  s.a += s.c;
  s.c = (s.c - s.b) ^ std::rotl(s.b, 8);
  s.b += s.a;
  s.a = (s.a - s.c) ^ std::rotl(s.c, 16);
  s.c += s.b;
  s.b = (s.b - s.a) ^ std::rotl(s.a, 19);
  s.a += s.c;
  s.c = (s.c - s.b) ^ std::rotl(s.b, 4);
  s.b += s.a;
}

void finish(State& s) {
  s.c = (s.c ^ s.b) - std::rotl(s.b, 14);
  s.a = (s.a ^ s.c) - std::rotl(s.c, 11);
  s.b = (s.b ^ s.a) - std::rotl(s.a, 25);
  s.c = (s.c ^ s.b) - std::rotl(s.b, 16);
  s.a = (s.a ^ s.c) - std::rotl(s.c, 4);
  s.b = (s.b ^ s.a) - std::rotl(s.a, 14);
  s.c = (s.c ^ s.b) - std::rotl(s.b, 24);
}

constexpr std::size_t kBlockBytes = 12;

/// Adds a block; a shorter last one counts as if zeros stood behind it.
void add(State& s, std::span<const std::byte> block) {
  std::uint32_t words[3] = {0, 0, 0};
  std::memcpy(words, block.data(), block.size());
  s.a += words[0];
  s.b += words[1];
  s.c += words[2];
}

}  // namespace

std::uint32_t lookup3(std::span<const std::byte> bytes) {
  const std::uint32_t start = 0xDEADBEEFU + static_cast<std::uint32_t>(bytes.size());
  State state{start, start, start};
  while (bytes.size() > kBlockBytes) {
    add(state, bytes.first(kBlockBytes));
    mix(state);
    bytes = bytes.subspan(kBlockBytes);
  }
  if (bytes.empty()) return state.c;
  add(state, bytes);
  finish(state);
  return state.c;
}

}  // namespace Fiber::Container
