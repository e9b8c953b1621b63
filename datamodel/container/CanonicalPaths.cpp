// SPDX-License-Identifier: Apache-2.0

#include "datamodel/container/CanonicalPaths.hpp"

#include <system_error>

namespace Fiber::Container {

std::filesystem::path CanonicalPaths::of(const std::string& path) {
  const std::filesystem::path given(path);
  const std::string folder = given.has_parent_path() ? given.parent_path().string() : ".";
  const auto [known, isNew] = folders_.try_emplace(folder);
  if (isNew) {
    std::error_code error;
    known->second = std::filesystem::weakly_canonical(folder, error);
    if (error) known->second = std::filesystem::path(folder).lexically_normal();
  }
  return known->second / given.filename();
}

}  // namespace Fiber::Container
