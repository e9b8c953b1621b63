// SPDX-License-Identifier: Apache-2.0

#include "datamodel/container/objects/FileWindow.hpp"

#include <algorithm>

#include "datamodel/container/FileDescriptor.hpp"

namespace Fiber::Container {

FileWindow::FileWindow(int descriptor, std::uint64_t fileBytes, std::uint64_t tailBytes)
    : descriptor_(descriptor), fileBytes_(fileBytes) {
  const std::uint64_t bytes = std::min(tailBytes, fileBytes);
  tailAddress_ = fileBytes - bytes;
  tail_.resize(static_cast<std::size_t>(bytes));
  if (!readAt(descriptor, tailAddress_, tail_, "metadata").ok()) tail_.clear();
}

std::span<const std::byte> FileWindow::at(std::uint64_t address, std::uint64_t byteCount) {
  if (address > fileBytes_ || byteCount > fileBytes_ - address) return {};
  const auto count = static_cast<std::size_t>(byteCount);
  const bool isInTail = address >= tailAddress_ && address - tailAddress_ + count <= tail_.size();
  if (!isInTail) return readAside(address, count);
  return std::span(tail_).subspan(static_cast<std::size_t>(address - tailAddress_), count);
}

std::span<const std::byte> FileWindow::readAside(std::uint64_t address, std::size_t byteCount) {
  std::vector<std::byte> piece(byteCount);
  if (!readAt(descriptor_, address, piece, "metadata").ok()) return {};
  pieces_.push_back(std::move(piece));
  return pieces_.back();
}

}  // namespace Fiber::Container
