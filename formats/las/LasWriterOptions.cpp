// SPDX-License-Identifier: Apache-2.0

#include "formats/las/LasWriterOptions.hpp"

#include <fmt/format.h>

#include <limits>

#include "formats/las/PointLayout.hpp"

namespace Formats {

using MemCore::Failure;
using MemCore::Outcome;

namespace {

constexpr std::uint8_t kNewestMinor = 4;
constexpr std::size_t kMaxVlrPayload = std::numeric_limits<std::uint16_t>::max();

Outcome<void> checkVersion(const std::string& path, const LasWriterOptions& options) {
  const LasHeader& header = options.header;
  if (header.versionMajor != 1 || header.versionMinor > kNewestMinor) {
    return Failure{fmt::format("{}: LAS version not known, found {}.{}, expected 1.0 to 1.{}", path,
                               header.versionMajor, header.versionMinor, kNewestMinor)};
  }
  if (header.versionMinor < oldestMinorOf(header.pointFormat)) {
    return cannotHold(path, header, fmt::format("point format {}", header.pointFormat));
  }
  if (!options.evlrs.empty() && header.versionMinor < 4) {
    return cannotHold(path, header, "extended variable length records");
  }
  if (options.waveforms != WaveformPlace::Nowhere && !formatHasWaveforms(header.pointFormat)) {
    return Failure{
        fmt::format("{}: waveforms need another point format, found {}, expected 4, 5, 9 "
                    "or 10",
                    path, header.pointFormat)};
  }
  return {};
}

Outcome<void> checkRecords(const std::string& path, const LasWriterOptions& options) {
  std::uint64_t frontBytes = kLas14HeaderBytes + options.header.trailingBytes.size();
  for (const VariableRecord& record : options.vlrs) {
    frontBytes += kVlrHeaderBytes + record.payload.size();
    if (record.payload.size() > kMaxVlrPayload) {
      return Failure{
          fmt::format("{}: variable length record {} {} too long, found {} bytes, expected "
                      "at most {}",
                      path, textBeforeNul(record.userId), record.recordId, record.payload.size(),
                      kMaxVlrPayload)};
    }
  }
  if (frontBytes > std::numeric_limits<std::uint32_t>::max()) {
    return Failure{
        fmt::format("{}: variable length records too long, found {} bytes, expected less "
                    "than 4 GiB",
                    path, frontBytes)};
  }
  for (const VariableRecord& record : options.evlrs) {
    if (!record.isLoaded) {
      return Failure{fmt::format("{}: extended record {} {} not in memory", path,
                                 textBeforeNul(record.userId), record.recordId)};
    }
  }
  return {};
}

}  // namespace

std::uint8_t oldestMinorOf(std::uint8_t pointFormat) {
  if (pointFormat >= 6) return 4;
  if (pointFormat >= 4) return 3;
  return pointFormat >= 2 ? 2 : 0;
}

std::uint64_t mostPointsOf(const LasHeader& header) {
  return header.versionMinor < 4 ? std::numeric_limits<std::uint32_t>::max()
                                 : std::numeric_limits<std::uint64_t>::max();
}

Outcome<void> checkWriterOptions(const std::string& path, const LasWriterOptions& options) {
  if (auto fits = checkVersion(path, options); !fits) return fits;
  return checkRecords(path, options);
}

Failure cannotHold(const std::string& path, const LasHeader& header, const std::string& what) {
  return Failure{fmt::format("{}: LAS {}.{} cannot hold {}", path, header.versionMajor,
                             header.versionMinor, what)};
}

}  // namespace Formats
