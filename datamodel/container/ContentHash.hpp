// SPDX-License-Identifier: Apache-2.0
//
// The content id of a bundle file: a hash over everything stored in it, by which a linking file
// recognises its tiles. Unlike a modification time it survives copying, and the same contents have
// the same id in every run. It tells changed files from unchanged ones; it is no signature.

#pragma once

#include <cstdint>
#include <string_view>

namespace Fiber::Container {

/// Takes numbers (checksums of the parts, their places) one after the other.
class ContentHash {
 public:
  void add(std::uint64_t number) {
    // The finishing steps of SplitMix64, over the number and all that came before it.
    state_ += number + 0x9E3779B97F4A7C15U;
    state_ = (state_ ^ (state_ >> 30U)) * 0xBF58476D1CE4E5B9U;
    state_ = (state_ ^ (state_ >> 27U)) * 0x94D049BB133111EBU;
    state_ ^= state_ >> 31U;
  }
  void add(std::string_view text) {
    add(std::uint64_t{text.size()});
    for (const char c : text) add(std::uint64_t{static_cast<unsigned char>(c)});
  }
  std::uint64_t value() const { return state_; }

 private:
  std::uint64_t state_ = 0;
};

}  // namespace Fiber::Container
