// SPDX-License-Identifier: Apache-2.0
//
// Paths of many files in a form that can be compared and related to each other: each folder is
// resolved once, however many files of it are asked about.

#pragma once

#include <filesystem>
#include <string>
#include <unordered_map>

namespace Fiber::Container {

class CanonicalPaths {
 public:
  /// The path with its folder made absolute and free of links; the file itself need not exist.
  std::filesystem::path of(const std::string& path);

 private:
  std::unordered_map<std::string, std::filesystem::path> folders_;
};

}  // namespace Fiber::Container
