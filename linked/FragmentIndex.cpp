// SPDX-License-Identifier: Apache-2.0

#include "linked/FragmentIndex.hpp"

#include <array>
#include <cstdint>

namespace LidarLib {

std::optional<Fiber::MultiIndex<3>> parseFragmentIndex(const std::string& baseName) {
  constexpr std::array kLetters = {'x', 'x', 'T'};
  Fiber::MultiIndex<3> index;
  std::size_t at = 1;
  for (std::size_t axis = 0; axis < kLetters.size(); ++axis) {
    const std::size_t end = baseName.find(kLetters[axis], at);
    if (end == std::string::npos) return std::nullopt;
    const int number = std::stoi(baseName.substr(at, end - at));
    index[axis] = static_cast<std::uint64_t>(static_cast<std::int64_t>(number));
    at = end + 1;
  }
  return index;
}

}  // namespace LidarLib
