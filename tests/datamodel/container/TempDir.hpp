// SPDX-License-Identifier: Apache-2.0
//
// A folder of its own for a test, removed with all its contents at the end.

#pragma once

#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <string>
#include <system_error>

namespace Fiber::Container {

class TempDir {
 public:
  TempDir() {
    std::string pattern = (std::filesystem::temp_directory_path() / "lidarlib-XXXXXX").string();
    if (::mkdtemp(pattern.data()) == nullptr) ADD_FAILURE() << "no temporary folder " << pattern;
    path_ = pattern;
  }
  ~TempDir() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  const std::string& path() const { return path_; }
  std::string operator/(const std::string& name) const { return path_ + "/" + name; }

  /// How many entries the folder holds.
  std::ptrdiff_t entryCount() const {
    return std::distance(std::filesystem::directory_iterator(path_), {});
  }

 private:
  std::string path_;
};

}  // namespace Fiber::Container
