// SPDX-License-Identifier: Apache-2.0

#include "datamodel/container/FileDescriptor.hpp"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <limits>
#include <system_error>

namespace Fiber::Container {

using MemCore::Failure;
using MemCore::Outcome;

namespace {

/// What a file that is not regular is called in messages.
std::string_view kindOf(mode_t mode) {
  if (S_ISDIR(mode)) return "a folder";
  if (S_ISFIFO(mode)) return "a pipe";
  if (S_ISSOCK(mode)) return "a socket";
  if (S_ISCHR(mode) || S_ISBLK(mode)) return "a device";
  return "something else";
}

Outcome<FileStamp> stampOf(const struct stat& status, std::string_view path) {
  if (!S_ISREG(status.st_mode)) {
    return Failure{fmt::format("{}: not a regular file, found {}", path, kindOf(status.st_mode))};
  }
  constexpr std::int64_t kNanosecondsPerSecond = 1'000'000'000;
  return FileStamp{static_cast<std::uint64_t>(status.st_size),
                   status.st_mtim.tv_sec * kNanosecondsPerSecond + status.st_mtim.tv_nsec};
}

/// Offsets come from files and may claim anything; the system takes signed ones.
bool fitsOffset(std::uint64_t offsetBytes, std::size_t sizeBytes) {
  constexpr auto kLimit = static_cast<std::uint64_t>(std::numeric_limits<off_t>::max());
  return offsetBytes <= kLimit && sizeBytes <= kLimit - offsetBytes;
}

}  // namespace

void FileDescriptor::reset() noexcept {
  if (descriptor_ >= 0) ::close(std::exchange(descriptor_, -1));
}

std::string systemError(int errorNumber) { return std::generic_category().message(errorNumber); }

Outcome<FileStamp> stampOf(const std::string& path) {
  struct stat status {};
  if (::stat(path.c_str(), &status) != 0) {
    return Failure{fmt::format("{}: cannot be read, found \"{}\"", path, systemError(errno))};
  }
  return stampOf(status, path);
}

Outcome<OpenedFile> openRegularFile(const std::string& path) {
  // O_NONBLOCK: opening a pipe must not wait for its writer; it means nothing to regular files.
  FileDescriptor descriptor(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
  if (!descriptor.ok()) {
    return Failure{fmt::format("{}: cannot be opened, found \"{}\"", path, systemError(errno))};
  }
  struct stat status {};
  if (::fstat(descriptor.get(), &status) != 0) {
    return Failure{fmt::format("{}: cannot be read, found \"{}\"", path, systemError(errno))};
  }
  const auto stamp = stampOf(status, path);
  if (!stamp.ok()) return stamp.failure();
  return OpenedFile{std::move(descriptor), *stamp};
}

Outcome<void> readAt(int descriptor, std::uint64_t offsetBytes, std::span<std::byte> bytes,
                     std::string_view name) {
  if (!fitsOffset(offsetBytes, bytes.size())) {
    return Failure{fmt::format("{}: impossible file offset, found {}", name, offsetBytes)};
  }
  while (!bytes.empty()) {
    const ssize_t got =
        ::pread(descriptor, bytes.data(), bytes.size(), static_cast<off_t>(offsetBytes));
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) {
      return Failure{fmt::format("{}: cannot read {} bytes at offset {}, found \"{}\"", name,
                                 bytes.size(), offsetBytes, systemError(errno))};
    }
    if (got == 0) {
      return Failure{
          fmt::format("{}: the file ends too early, found nothing at offset {}, "
                      "expected {} bytes more",
                      name, offsetBytes, bytes.size())};
    }
    bytes = bytes.subspan(static_cast<std::size_t>(got));
    offsetBytes += static_cast<std::uint64_t>(got);
  }
  return {};
}

Outcome<void> writeAt(int descriptor, std::uint64_t offsetBytes, std::span<const std::byte> bytes,
                      std::string_view name) {
  if (!fitsOffset(offsetBytes, bytes.size())) {
    return Failure{fmt::format("{}: impossible file offset, found {}", name, offsetBytes)};
  }
  while (!bytes.empty()) {
    const ssize_t put =
        ::pwrite(descriptor, bytes.data(), bytes.size(), static_cast<off_t>(offsetBytes));
    if (put < 0 && errno == EINTR) continue;
    if (put <= 0) {
      return Failure{fmt::format("{}: cannot write {} bytes at offset {}, found \"{}\"", name,
                                 bytes.size(), offsetBytes, systemError(put < 0 ? errno : ENOSPC))};
    }
    bytes = bytes.subspan(static_cast<std::size_t>(put));
    offsetBytes += static_cast<std::uint64_t>(put);
  }
  return {};
}

Outcome<void> writeAllAt(int descriptor, std::uint64_t offsetBytes,
                         std::span<const std::span<const std::byte>> pieces,
                         std::string_view name) {
  constexpr std::size_t kMostAtOnce = 512;
  std::array<iovec, kMostAtOnce> vectors{};
  while (!pieces.empty()) {
    const auto some = pieces.first(std::min(kMostAtOnce, pieces.size()));
    std::size_t total = 0;
    for (std::size_t i = 0; i < some.size(); ++i) {
      // The system only reads what it is given here, whatever its type says.
      vectors[i] = {const_cast<std::byte*>(some[i].data()), some[i].size()};
      total += some[i].size();
    }
    if (!fitsOffset(offsetBytes, total)) {
      return Failure{fmt::format("{}: impossible file offset, found {}", name, offsetBytes)};
    }
    const ssize_t put = ::pwritev(descriptor, vectors.data(), static_cast<int>(some.size()),
                                  static_cast<off_t>(offsetBytes));
    // What the system did not take at once goes piece by piece, which also names the reason.
    auto left = put < 0 ? std::size_t{0} : static_cast<std::size_t>(put);
    for (const auto& piece : some) {
      const std::size_t done = std::min(left, piece.size());
      left -= done;
      if (done < piece.size()) {
        auto written = writeAt(descriptor, offsetBytes + done, piece.subspan(done), name);
        if (!written.ok()) return written;
      }
      offsetBytes += piece.size();
    }
    pieces = pieces.subspan(some.size());
  }
  return {};
}

}  // namespace Fiber::Container
