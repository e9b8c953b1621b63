// SPDX-License-Identifier: Apache-2.0

#include "fuzz/FuzzedFile.hpp"

#include <sys/mman.h>
#include <unistd.h>

namespace Fuzz {

FuzzedFile::FuzzedFile(const std::uint8_t* data, std::size_t bytes)
    : descriptor_(::memfd_create("fuzzed", MFD_CLOEXEC)) {
  if (descriptor_ < 0) return;
  if (::write(descriptor_, data, bytes) != static_cast<ssize_t>(bytes)) return;
  path_ = "/proc/self/fd/" + std::to_string(descriptor_);
}

FuzzedFile::~FuzzedFile() {
  if (descriptor_ >= 0) ::close(descriptor_);
}

}  // namespace Fuzz
