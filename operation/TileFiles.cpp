// SPDX-License-Identifier: Apache-2.0

#include "operation/TileFiles.hpp"

#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include "datamodel/memcore/Text.hpp"

namespace LidarLib {

std::string TileFileScheme::fileName(const Fiber::MultiIndex<3>& index) const {
  return fmt::format("{}/{}/F{}x{}x{}T{}G{}.f5", outputDirectory, stem, index[0], index[1],
                     index[2], MemCore::formatFixed(time), gridName);
}

std::string fileStem(const std::string& path) {
  const std::size_t separator = path.find_last_of("/\\");
  const std::string name = separator == std::string::npos ? path : path.substr(separator + 1);
  const std::size_t dot = name.rfind('.');
  return dot == std::string::npos ? name : name.substr(0, dot);
}

bool canBeOpened(const std::string& fileName) {
  // Non-blocking: a FIFO of that name must not hold up the run.
  const int descriptor = ::open(fileName.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  if (descriptor < 0) return false;
  ::close(descriptor);
  return true;
}

}  // namespace LidarLib
