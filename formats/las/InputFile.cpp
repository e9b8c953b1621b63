// SPDX-License-Identifier: Apache-2.0

#include "formats/las/InputFile.hpp"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace Formats {

using MemCore::Failure;
using MemCore::Outcome;

namespace {

std::string errorText(int error) { return std::generic_category().message(error); }

const char* kindOf(mode_t mode) {
  if (S_ISDIR(mode)) return "a directory";
  if (S_ISFIFO(mode)) return "a FIFO";
  if (S_ISSOCK(mode)) return "a socket";
  return "a device";
}

}  // namespace

Outcome<std::shared_ptr<const InputFile>> InputFile::open(const std::string& path) {
  // O_NONBLOCK: opening a FIFO would otherwise wait for its other end.
  const int descriptor = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  if (descriptor < 0)
    return Failure{fmt::format("{}: cannot be opened, {}", path, errorText(errno))};
  return adopt(path, descriptor);
}

Outcome<std::shared_ptr<const InputFile>> InputFile::adopt(const std::string& path,
                                                           int descriptor) {
  struct stat facts {};
  if (::fstat(descriptor, &facts) != 0) {
    const int error = errno;
    ::close(descriptor);
    return Failure{fmt::format("{}: cannot be examined, {}", path, errorText(error))};
  }
  if (!S_ISREG(facts.st_mode)) {
    ::close(descriptor);
    return Failure{
        fmt::format("{}: not a file that can be read by offset, found {}, expected a "
                    "regular file",
                    path, kindOf(facts.st_mode))};
  }
  return std::shared_ptr<const InputFile>(
      new InputFile(path, descriptor, static_cast<std::uint64_t>(facts.st_size)));
}

InputFile::~InputFile() { ::close(descriptor_); }

Outcome<void> InputFile::read(std::uint64_t offset, std::span<std::byte> out) const {
  if (offset > sizeBytes_ || out.size() > sizeBytes_ - offset) {
    return Failure{fmt::format("{}: {} bytes at byte {} lie past the end, found {} bytes", path_,
                               out.size(), offset, sizeBytes_)};
  }
  std::size_t done = 0;
  while (done < out.size()) {
    const ssize_t got = ::pread(descriptor_, out.data() + done, out.size() - done,
                                static_cast<off_t>(offset + done));
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) {
      return Failure{
          fmt::format("{}: cannot be read at byte {}, {}", path_, offset + done, errorText(errno))};
    }
    if (got == 0) {
      return Failure{fmt::format("{}: has shrunk since it was opened, found {} bytes, expected {}",
                                 path_, offset + done, sizeBytes_)};
    }
    done += static_cast<std::size_t>(got);
  }
  return {};
}

Outcome<std::vector<std::byte>> InputFile::read(std::uint64_t offset,
                                                std::uint64_t byteCount) const {
  if (offset > sizeBytes_ || byteCount > sizeBytes_ - offset) {
    return Failure{fmt::format("{}: {} bytes at byte {} lie past the end, found {} bytes", path_,
                               byteCount, offset, sizeBytes_)};
  }
  std::vector<std::byte> bytes(byteCount);
  if (const Outcome<void> done = read(offset, std::span<std::byte>(bytes)); !done) {
    return done.failure();
  }
  return bytes;
}

}  // namespace Formats
