// SPDX-License-Identifier: Apache-2.0

#include "formats/cloud/RecordSpill.hpp"

#include <fmt/format.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <system_error>

#include "formats/las/NamelessFile.hpp"

namespace Formats {

using MemCore::Failure;
using MemCore::Outcome;

namespace {

std::string notKept(const std::string& folder, const std::string& cause) {
  return fmt::format(
      "{}: decoded points cannot be kept there: {}: they are decoded again where "
      "they are needed again, which takes longer",
      folder, cause);
}

/// Moves all bytes by calls that may move a part of them; false with errno set.
template <class Call, class Byte>
bool moveAll(const Call& call, int file, std::span<Byte> bytes, std::uint64_t offset) {
  while (!bytes.empty()) {
    const ssize_t moved = call(file, bytes.data(), bytes.size(), static_cast<off_t>(offset));
    if (moved < 0 && errno == EINTR) continue;
    if (moved == 0) errno = EIO;  // the end of a file that has been cut
    if (moved <= 0) return false;
    bytes = bytes.subspan(static_cast<std::size_t>(moved));
    offset += static_cast<std::uint64_t>(moved);
  }
  return true;
}

}  // namespace

Outcome<std::shared_ptr<RecordSpill>> RecordSpill::make(const std::string& folder,
                                                        std::uint64_t byteCount) {
  std::error_code error;
  const std::uint64_t room = std::filesystem::space(folder, error).available;
  if (error) return Failure{notKept(folder, error.message())};
  if (room / 2 < byteCount) {
    return Failure{notKept(
        folder, fmt::format("found room for {} bytes, expected twice {}", room, byteCount))};
  }
  const int file = openNamelessFile(folder);
  if (file < 0) return Failure{notKept(folder, std::generic_category().message(errno))};
  return std::shared_ptr<RecordSpill>(new RecordSpill(folder, file));
}

RecordSpill::~RecordSpill() { ::close(file_); }

bool RecordSpill::write(std::uint64_t offset, std::span<const std::byte> bytes) {
  if (isGivenUp_) return false;
  if (!moveAll(::pwrite, file_, bytes, offset)) giveUp(errno);
  return !isGivenUp_;
}

bool RecordSpill::read(std::uint64_t offset, std::span<std::byte> bytes) {
  if (isGivenUp_) return false;
  if (!moveAll(::pread, file_, bytes, offset)) giveUp(errno);
  // What is read while another thread gives the spill up may be zeros: hence the second look.
  return !isGivenUp_;
}

std::string RecordSpill::failure() const {
  const std::lock_guard lock(mutex_);
  return failure_;
}

void RecordSpill::giveUp(int error) {
  const std::lock_guard lock(mutex_);
  if (isGivenUp_.exchange(true)) return;
  failure_ = notKept(folder_, std::generic_category().message(error));
  // The room goes back to the disk at once. Where that fails it goes back at the end of the run.
  if (::ftruncate(file_, 0) != 0) return;
}

}  // namespace Formats
