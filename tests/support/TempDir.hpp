// SPDX-License-Identifier: Apache-2.0
//
// TempDir: a folder of its own for a test, removed with all its contents at the end.

#pragma once

#include <filesystem>
#include <string>

namespace LidarLib::TestSupport {

class TempDir {
 public:
  /// Fails the test when no folder can be made; path() is then empty.
  TempDir();
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  const std::filesystem::path& path() const { return path_; }
  /// Path of an entry of the folder, as text.
  std::string operator/(const std::string& name) const { return (path_ / name).string(); }

 private:
  std::filesystem::path path_;
};

}  // namespace LidarLib::TestSupport
