// SPDX-License-Identifier: Apache-2.0

#include "host/OutputFile.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <system_error>

#include "datamodel/container/AtomicFile.hpp"

namespace Host {

namespace fs = std::filesystem;

Result<std::string> prepareOutputFile(const std::string& output,
                                      const std::vector<std::string>& endings, bool force) {
  const fs::path path = fs::absolute(output).lexically_normal();
  const bool isKnown =
      std::find(endings.begin(), endings.end(), path.extension().string()) != endings.end();
  if (!isKnown || path.stem().empty()) {
    return usageStop(
        fmt::format("--output: \"{}\" does not end in {}, expected a name such as out{}", output,
                    fmt::join(endings, " or "), endings.front()));
  }
  std::error_code error;
  if (fs::is_directory(path, error)) {
    return failedStop(path.string() + ": is a folder, expected a file to write");
  }
  if (fs::exists(path, error) && !force) {
    return failedStop(path.string() + ": exists already; --force replaces it");
  }
  const std::string folder = path.parent_path().string();
  fs::create_directories(folder, error);
  if (error) {
    return failedStop(
        fmt::format("{}: cannot make the folder, found \"{}\"", folder, error.message()));
  }
  // A folder that cannot be read can still be written to: what is left there stays.
  static_cast<void>(Fiber::Container::removeStaleTemporaries(folder));
  return path.string();
}

}  // namespace Host
