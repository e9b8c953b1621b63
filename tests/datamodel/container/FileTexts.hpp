// SPDX-License-Identifier: Apache-2.0
//
// Whole files as texts, for tests.

#pragma once

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

namespace Fiber::Container {

inline std::string contentsOf(const std::string& path) {
  std::ostringstream text;
  text << std::ifstream(path).rdbuf();
  return text.str();
}

/// Replaces a file under a new inode: nobody writes into a file that others have open.
inline void replaceFile(const std::string& path, const std::string& contents) {
  std::filesystem::remove(path);
  std::ofstream(path) << contents;
}

/// How many entries a folder holds.
inline std::ptrdiff_t entryCount(const std::filesystem::path& folder) {
  return std::distance(std::filesystem::directory_iterator(folder), {});
}

}  // namespace Fiber::Container
