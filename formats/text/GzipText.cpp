// SPDX-License-Identifier: Apache-2.0

#include "formats/text/GzipText.hpp"

#include <fmt/format.h>
#include <libdeflate.h>
#include <unistd.h>
#include <zlib.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <filesystem>
#include <span>
#include <system_error>
#include <utility>
#include <vector>

#include "formats/las/NamelessFile.hpp"
#include "formats/text/TextLines.hpp"

namespace Formats {

using MemCore::Failure;
using MemCore::Outcome;

namespace {

constexpr std::size_t kBufferBytes = std::size_t{1} << 18;
constexpr std::array<std::byte, 2> kGzipMagic{std::byte{0x1f}, std::byte{0x8b}};

std::string errorText(int error) { return std::generic_category().message(error); }

/// A nameless temporary file that is written from front to back. Invariant: owns its descriptor
/// until release().
class Spill {
 public:
  Spill() = default;
  ~Spill() {
    if (descriptor_ >= 0) ::close(descriptor_);
  }
  Spill(const Spill&) = delete;
  Spill& operator=(const Spill&) = delete;

  Outcome<void> open() {
    std::error_code error;
    const std::string folder = std::filesystem::temp_directory_path(error).string();
    if (error) return Failure{"no folder for temporary files, " + error.message()};
    descriptor_ = openNamelessFile(folder);
    if (descriptor_ >= 0) return {};
    return Failure{fmt::format("no temporary file in {}, {}", folder, errorText(errno))};
  }

  Outcome<void> append(std::span<const unsigned char> bytes) {
    while (!bytes.empty()) {
      const ssize_t put = ::write(descriptor_, bytes.data(), bytes.size());
      if (put < 0 && errno == EINTR) continue;
      if (put <= 0) {
        return Failure{"temporary file cannot be written, " + errorText(put < 0 ? errno : ENOSPC)};
      }
      bytes = bytes.subspan(static_cast<std::size_t>(put));
    }
    return {};
  }

  int release() { return std::exchange(descriptor_, -1); }

 private:
  int descriptor_ = -1;
};

/// Refuses text that has no line ends, before it fills the disk.
class LineLengthGuard {
 public:
  bool allows(std::span<const unsigned char> text) {
    const auto last = std::find(text.rbegin(), text.rend(), '\n');
    const auto behind = static_cast<std::size_t>(last - text.rbegin());
    // Lines that end within one buffer are judged when they are parsed.
    openBytes_ = last == text.rend() ? openBytes_ + text.size() : behind;
    return openBytes_ <= kMaxLineBytes;
  }

 private:
  std::size_t openBytes_ = 0;
};

/// Expands the bytes of a gzip file step by step.
class Expander {
 public:
  explicit Expander(const InputFile& file)
      : file_(file), input_(kBufferBytes), output_(kBufferBytes) {
    constexpr int kGzipWindow = 15 + 16;
    isReady_ = ::inflateInit2(&stream_, kGzipWindow) == Z_OK;
  }
  ~Expander() {
    if (isReady_) ::inflateEnd(&stream_);
  }
  Expander(const Expander&) = delete;
  Expander& operator=(const Expander&) = delete;

  /// The next part of the text; empty at the end. Errors: damaged or truncated data.
  Outcome<std::span<const unsigned char>> next() {
    if (!isReady_) return Failure{"not enough memory"};
    stream_.next_out = output_.data();
    stream_.avail_out = static_cast<uInt>(output_.size());
    while (stream_.avail_out == output_.size() && !isAtEnd_) {
      if (const auto stepped = step(); !stepped) return stepped.failure();
    }
    return std::span<const unsigned char>(output_).first(output_.size() - stream_.avail_out);
  }

 private:
  Outcome<void> step() {
    if (stream_.avail_in == 0) {
      if (auto read = refill(); !read) return read;
    }
    if (stream_.avail_in == 0) {
      if (!isBetweenMembers_) {
        return Failure{
            fmt::format("gzip data are cut off, found {} bytes, expected more", file_.sizeBytes())};
      }
      isAtEnd_ = true;
      return {};
    }
    if (std::exchange(isBetweenMembers_, false) && ::inflateReset(&stream_) != Z_OK) {
      return Failure{"gzip data cannot be expanded"};
    }
    const int status = ::inflate(&stream_, Z_NO_FLUSH);
    if (status == Z_STREAM_END) {
      isBetweenMembers_ = true;
    } else if (status != Z_OK && status != Z_BUF_ERROR) {
      return Failure{fmt::format("gzip data are damaged before byte {}, found {}", offset_,
                                 stream_.msg != nullptr ? stream_.msg : "no gzip stream")};
    }
    return {};
  }

  Outcome<void> refill() {
    const auto count = static_cast<std::size_t>(
        std::min<std::uint64_t>(input_.size(), file_.sizeBytes() - offset_));
    const auto target = std::span(input_).first(count);
    auto read = file_.read(offset_, std::as_writable_bytes(target));
    if (!read) return read;
    offset_ += count;
    stream_.next_in = input_.data();
    stream_.avail_in = static_cast<uInt>(count);
    return {};
  }

  const InputFile& file_;
  std::vector<unsigned char> input_;
  std::vector<unsigned char> output_;
  z_stream stream_{};
  std::uint64_t offset_ = 0;  ///< of the file, behind what was read
  bool isReady_ = false;
  bool isBetweenMembers_ = false;
  bool isAtEnd_ = false;
};

Outcome<int> expandInto(const InputFile& file) {
  Spill spill;
  if (const auto opened = spill.open(); !opened) return opened.failure();
  Expander expander(file);
  LineLengthGuard guard;
  while (true) {
    const auto text = expander.next();
    if (!text) return text.failure();
    if (text->empty()) return spill.release();
    if (!guard.allows(*text)) {
      return Failure{fmt::format("line is too long, found more than {} bytes, expected numbers",
                                 kMaxLineBytes)};
    }
    if (const auto written = spill.append(*text); !written) return written.failure();
  }
}

}  // namespace

Outcome<bool> isGzip(const InputFile& file) {
  if (file.path().ends_with(".gz") || file.path().ends_with(".GZ")) return true;
  if (file.sizeBytes() < kGzipMagic.size()) return false;
  std::array<std::byte, kGzipMagic.size()> magic{};
  const auto read = file.read(0, magic);
  if (!read) return read.failure();
  return magic == kGzipMagic;
}

Outcome<std::shared_ptr<const InputFile>> expandGzip(const InputFile& file) {
  const Outcome<int> descriptor = expandInto(file);
  if (descriptor) return InputFile::adopt(file.path(), *descriptor);
  const bool namesFile = descriptor.error().starts_with(file.path());
  return namesFile ? descriptor.failure()
                   : Failure{fmt::format("{}: {}", file.path(), descriptor.error())};
}

Outcome<std::string> gzipMember(std::string_view text) {
  constexpr int kLevel = 6;
  const auto compressor = std::unique_ptr<libdeflate_compressor, void (*)(libdeflate_compressor*)>(
      libdeflate_alloc_compressor(kLevel), libdeflate_free_compressor);
  if (!compressor) return Failure{"gzip: not enough memory"};
  std::string member(libdeflate_gzip_compress_bound(compressor.get(), text.size()), '\0');
  const std::size_t bytes = libdeflate_gzip_compress(compressor.get(), text.data(), text.size(),
                                                     member.data(), member.size());
  if (bytes == 0) return Failure{"gzip: nothing came out of the compressor"};
  member.resize(bytes);
  return member;
}

}  // namespace Formats
