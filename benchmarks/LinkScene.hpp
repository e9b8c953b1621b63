// SPDX-License-Identifier: Apache-2.0
//
// Very many tile files for measuring what is done per file: copies of one small tile under
// different names.

#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "datamodel/memcore/Outcome.hpp"

namespace Benchmarks {

struct LinkScene {
  std::string folder;
  std::uint64_t edge = 0;  ///< tiles along x and y
  std::vector<std::string> tiles;

  std::string linked() const { return folder + "/linked.f5"; }
};

/// Writes the files into a folder, which is made. Errors: those of saving the first one.
MemCore::Outcome<LinkScene> makeLinkScene(const std::string& folder, std::uint64_t count);

/// Links all files into linked(); returns how many.
MemCore::Outcome<std::uint64_t> linkAll(const LinkScene& scene);

}  // namespace Benchmarks
