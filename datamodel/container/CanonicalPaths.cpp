// SPDX-License-Identifier: Apache-2.0

#include "datamodel/container/CanonicalPaths.hpp"

#include <system_error>

namespace Fiber::Container {

std::filesystem::path CanonicalPaths::of(const std::string& path) {
  const std::filesystem::path given(path);
  const std::string folder = given.has_parent_path() ? given.parent_path().string() : ".";
  const auto [known, isNew] = folders_.try_emplace(folder);
  if (isNew) {
    // Absolute first: of a relative folder that does not exist, the canonical form stays relative.
    std::error_code error;
    const std::filesystem::path absolute = std::filesystem::absolute(folder, error);
    if (!error) known->second = std::filesystem::weakly_canonical(absolute, error);
    if (error) known->second = absolute.lexically_normal();
  }
  return known->second / given.filename();
}

}  // namespace Fiber::Container
