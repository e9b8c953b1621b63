// SPDX-License-Identifier: Apache-2.0

#include "formats/las/OutputFile.hpp"

#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <limits>
#include <system_error>
#include <utility>

namespace Formats {

using MemCore::Failure;
using MemCore::Outcome;

namespace {

constexpr std::size_t kBufferBytes = std::size_t{1} << 20;

/// More leftovers than this under one name are taken for a fault elsewhere.
constexpr int kMaxTemporaries = 10000;

Failure describe(const std::string& path, const char* action, int error) {
  return Failure{
      fmt::format("{}: cannot be {}, {}", path, action, std::generic_category().message(error))};
}

}  // namespace

OutputFile::OutputFile(std::string path, std::string temporaryPath, int descriptor)
    : path_(std::move(path)), temporaryPath_(std::move(temporaryPath)), descriptor_(descriptor) {
  buffer_.reserve(kBufferBytes);
}

OutputFile::OutputFile(OutputFile&& other) noexcept
    : path_(std::move(other.path_)),
      temporaryPath_(std::move(other.temporaryPath_)),
      descriptor_(std::exchange(other.descriptor_, -1)),
      sizeBytes_(other.sizeBytes_),
      buffer_(std::move(other.buffer_)) {}

OutputFile& OutputFile::operator=(OutputFile&& other) noexcept {
  if (this != &other) {
    discard();
    path_ = std::move(other.path_);
    temporaryPath_ = std::move(other.temporaryPath_);
    descriptor_ = std::exchange(other.descriptor_, -1);
    sizeBytes_ = other.sizeBytes_;
    buffer_ = std::move(other.buffer_);
  }
  return *this;
}

OutputFile::~OutputFile() { discard(); }

Outcome<OutputFile> OutputFile::create(const std::string& path) {
  for (int number = 0; number < kMaxTemporaries; ++number) {
    std::string temporaryPath = fmt::format("{}.tmp.{}.{}", path, ::getpid(), number);
    const int descriptor =
        ::open(temporaryPath.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    if (descriptor >= 0) return OutputFile(path, std::move(temporaryPath), descriptor);
    if (errno != EEXIST) return describe(path, "created", errno);
  }
  return describe(path, "created", EEXIST);
}

Outcome<void> OutputFile::append(std::span<const std::byte> bytes) {
  if (buffer_.size() + bytes.size() > kBufferBytes) {
    if (Outcome<void> flushed = flush(); !flushed) return flushed;
  }
  if (bytes.size() > kBufferBytes) {
    if (Outcome<void> written = writeAt(sizeBytes_, bytes); !written) return written;
  } else {
    buffer_.insert(buffer_.end(), bytes.begin(), bytes.end());
  }
  sizeBytes_ += bytes.size();
  return {};
}

Outcome<void> OutputFile::overwrite(std::uint64_t offset, std::span<const std::byte> bytes) {
  if (Outcome<void> flushed = flush(); !flushed) return flushed;
  return writeAt(offset, bytes);
}

Outcome<std::uint64_t> OutputFile::reserve(std::uint64_t byteCount) {
  if (Outcome<void> flushed = flush(); !flushed) return flushed.failure();
  constexpr auto kMostBytes = static_cast<std::uint64_t>(std::numeric_limits<off_t>::max());
  if (byteCount > kMostBytes - sizeBytes_) return failure("written", EFBIG);
  if (::ftruncate(descriptor_, static_cast<off_t>(sizeBytes_ + byteCount)) != 0) {
    return failure("written", errno);
  }
  return std::exchange(sizeBytes_, sizeBytes_ + byteCount);
}

Outcome<void> OutputFile::appendAll(OutputFile& source) {
  if (Outcome<void> flushed = source.flush(); !flushed) return flushed;
  std::vector<std::byte> piece(kBufferBytes);
  std::uint64_t done = 0;
  while (done < source.sizeBytes_) {
    const ssize_t got =
        ::pread(source.descriptor_, piece.data(), piece.size(), static_cast<off_t>(done));
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) return source.failure("read back", got < 0 ? errno : EIO);
    const auto part = std::span<const std::byte>(piece).first(static_cast<std::size_t>(got));
    if (Outcome<void> appended = append(part); !appended) return appended;
    done += part.size();
  }
  return {};
}

Outcome<void> OutputFile::publish(bool durable) {
  if (Outcome<void> flushed = flush(); !flushed) return flushed;
  if (durable && ::fsync(descriptor_) != 0) return failure("flushed to the disk", errno);
  if (::close(std::exchange(descriptor_, -1)) != 0) {
    const int error = errno;
    ::unlink(temporaryPath_.c_str());
    return failure("closed", error);
  }
  if (std::rename(temporaryPath_.c_str(), path_.c_str()) != 0) {
    const int error = errno;
    ::unlink(temporaryPath_.c_str());
    return failure("put in place", error);
  }
  return {};
}

Outcome<void> OutputFile::flush() {
  const std::uint64_t offset = sizeBytes_ - buffer_.size();
  Outcome<void> written = writeAt(offset, buffer_);
  if (written) buffer_.clear();
  return written;
}

Outcome<void> OutputFile::writeAt(std::uint64_t offset, std::span<const std::byte> bytes) const {
  std::size_t done = 0;
  while (done < bytes.size()) {
    const ssize_t put = ::pwrite(descriptor_, bytes.data() + done, bytes.size() - done,
                                 static_cast<off_t>(offset + done));
    if (put < 0 && errno == EINTR) continue;
    if (put <= 0) return failure("written", put < 0 ? errno : ENOSPC);
    done += static_cast<std::size_t>(put);
  }
  return {};
}

Failure OutputFile::failure(const char* action, int error) const {
  return describe(path_, action, error);
}

void OutputFile::discard() {
  if (descriptor_ < 0) return;
  ::close(std::exchange(descriptor_, -1));
  ::unlink(temporaryPath_.c_str());
}

}  // namespace Formats
