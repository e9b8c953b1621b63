// SPDX-License-Identifier: Apache-2.0

#include "tests/support/NamelessFiles.hpp"

#include <system_error>

namespace LidarLib::TestSupport {

int cutNamelessFiles(const TempDir& folder) {
  namespace fs = std::filesystem;
  int count = 0;
  for (const auto& open : fs::directory_iterator("/proc/self/fd")) {
    std::error_code gone;
    const std::string target = fs::read_symlink(open.path(), gone).string();
    if (gone || !target.starts_with(folder / "") || !target.ends_with("(deleted)")) continue;
    fs::resize_file(open.path(), 0);
    ++count;
  }
  return count;
}

}  // namespace LidarLib::TestSupport
