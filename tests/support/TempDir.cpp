// SPDX-License-Identifier: Apache-2.0

#include "tests/support/TempDir.hpp"

#include <gtest/gtest.h>
#include <stdlib.h>

#include <system_error>

namespace LidarLib::TestSupport {

TempDir::TempDir() {
  std::string pattern = (std::filesystem::temp_directory_path() / "lidarlib-XXXXXX").string();
  if (::mkdtemp(pattern.data()) == nullptr) {
    ADD_FAILURE() << pattern << ": cannot make a temporary folder";
    return;
  }
  path_ = pattern;
}

TempDir::~TempDir() {
  std::error_code ignored;
  if (!path_.empty()) std::filesystem::remove_all(path_, ignored);
}

}  // namespace LidarLib::TestSupport
