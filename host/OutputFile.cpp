// SPDX-License-Identifier: Apache-2.0

#include "host/OutputFile.hpp"

#include <fmt/format.h>

#include <filesystem>
#include <system_error>

#include "datamodel/container/AtomicFile.hpp"

namespace Host {

namespace fs = std::filesystem;

Result<std::string> prepareOutputFile(const std::string& output, const std::string& ending,
                                      bool force) {
  const fs::path path = fs::absolute(output).lexically_normal();
  if (path.extension() != ending || path.stem().empty()) {
    return usageStop(
        fmt::format("--output: \"{}\" does not end in {}, expected a name such as out{}", output,
                    ending, ending));
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
