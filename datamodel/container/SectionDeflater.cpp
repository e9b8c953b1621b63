// SPDX-License-Identifier: Apache-2.0

#include "datamodel/container/SectionDeflater.hpp"

#include <libdeflate.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>

#include "datamodel/container/HuffmanBlock.hpp"

namespace Fiber::Container {
namespace {

using Bytes = std::span<const std::byte>;

/// Sections shorter than this are not worth a table of their own.
constexpr std::size_t kSmallestSection = 4096;

/// The library only reads what it is given; its interface merely lacks the const.
std::uint8_t* readable(Bytes bytes) {
  return const_cast<std::uint8_t*>(reinterpret_cast<const std::uint8_t*>(bytes.data()));
}

/// Where the run of equal bytes that begins at `start` ends.
std::size_t runEnd(Bytes bytes, std::size_t start) {
  constexpr std::size_t kWindow = 1024;
  std::size_t end = start + 1;
  while (end + kWindow <= bytes.size() && std::memcmp(&bytes[end - 1], &bytes[end], kWindow) == 0) {
    end += kWindow;
  }
  while (end < bytes.size() && bytes[end] == bytes[start]) ++end;
  return end;
}

/// Whether some bytes are no more than a few runs of equal ones.
bool isFewRuns(Bytes bytes) {
  constexpr int kMostRuns = 16;
  std::size_t end = 0;
  for (int run = 0; run < kMostRuns && end < bytes.size(); ++run) end = runEnd(bytes, end);
  return end == bytes.size();
}

/// count * log2(count), as often as it is asked for.
double timesItsLogarithm(std::uint64_t count) {
  constexpr std::size_t kMostKnown = 1024;
  static const auto kKnown = [] {
    std::array<double, kMostKnown> known{};
    for (std::size_t n = 1; n < kMostKnown; ++n) {
      known[n] = static_cast<double>(n) * std::log2(static_cast<double>(n));
    }
    return known;
  }();
  if (count < kMostKnown) return kKnown[count];
  return static_cast<double>(count) * std::log2(static_cast<double>(count));
}

/// Bits that an ideal code takes for symbols that occur so often.
double codeBits(std::span<const std::uint64_t> counts) {
  std::uint64_t total = 0;
  double saved = 0;
  for (const std::uint64_t count : counts) {
    total += count;
    saved += timesItsLogarithm(count);
  }
  return timesItsLogarithm(total) - saved;
}

/// Bits that literals and matches take which were counted so.
double deflatedBits(const isal_huff_histogram& histogram) {
  double bits = codeBits(histogram.lit_len_histogram) + codeBits(histogram.dist_histogram);
  // From the fifth code of distances on every second one has another bit beside the code.
  for (std::size_t code = 4; code < std::size(histogram.dist_histogram); ++code) {
    const std::uint64_t further = code / 2 - 1;
    bits += static_cast<double>(histogram.dist_histogram[code] * further);
  }
  return bits;
}

/// Bits of literals alone; no code is shorter than one.
double literalBits(const isal_huff_histogram& histogram, std::size_t byteCount) {
  return std::max(codeBits(histogram.lit_len_histogram), static_cast<double>(byteCount));
}

}  // namespace

void SectionDeflater::Place::put(std::initializer_list<unsigned> bytes) {
  for (const unsigned byte : bytes) {
    left.front() = static_cast<std::byte>(byte);
    left = left.subspan(1);
  }
}

/// Some windows, evenly over the whole.
Bytes SectionDeflater::sampleOf(Bytes section) {
  constexpr std::size_t kWindow = 2048;
  constexpr std::size_t kStride = 8 * kWindow;
  if (section.size() < kStride) return section;
  sample_.clear();
  for (std::size_t at = 0; at + kWindow <= section.size(); at += kStride) {
    const auto window = section.subspan(at, kWindow);
    sample_.insert(sample_.end(), window.begin(), window.end());
  }
  return sample_;
}

/// Returns the length of the block; 0 when `out` or the room of the bytes themselves is too small.
/// ISA-L's levels 1 and 2 choose now and then other matches when their state lies at another
/// address, so that equal input would not give equal bytes. Level 0 is free of that.
std::size_t SectionDeflater::writeBlock(Bytes plain, isal_hufftables& tables,
                                        std::span<std::byte> out) {
  isal_deflate_stateless_init(&stream_);
  // Fields that the initialisation leaves alone.
  stream_.hist_bits = 0;
  stream_.hufftables = &tables;
  stream_.gzip_flag = IGZIP_DEFLATE;
  stream_.end_of_stream = 0;
  // The block ends at a whole byte.
  stream_.flush = FULL_FLUSH;
  stream_.next_in = readable(plain);
  stream_.avail_in = static_cast<std::uint32_t>(plain.size());
  stream_.next_out = reinterpret_cast<std::uint8_t*>(out.data());
  stream_.avail_out = static_cast<std::uint32_t>(std::min(out.size(), plain.size()));
  const bool isWhole = isal_deflate_stateless(&stream_) == COMP_OK && stream_.avail_in == 0;
  return isWhole ? stream_.total_out : 0;
}

/// Fields that say the same of all points are common; making a table for each would take longer
/// than using it.
bool SectionDeflater::addRuns(Bytes runs, Place& place) {
  if (!hasRunTables_) {
    const std::vector<std::byte> typical(4096);
    histogram_ = {};
    isal_update_histogram(readable(typical), static_cast<int>(typical.size()), &histogram_);
    if (isal_create_hufftables(&runTables_, &histogram_) != 0) return false;
    hasRunTables_ = true;
  }
  const std::size_t written = writeBlock(runs, runTables_, place.left);
  place.left = place.left.subspan(written);
  return written != 0;
}

/// False when the bytes had better be stored; a new code is not used then, either.
bool SectionDeflater::addDeflated(Bytes section, Code& code, Place& place) {
  /// Beyond this the bytes have changed, and a code of their own pays.
  constexpr double kStillSuits = 1.2;
  if (addCoded(section, code, kStillSuits * code.bytesPerByte, place)) return true;
  const std::size_t before = place.left.size();
  if (!makeCode(section, code) || !addCoded(section, code, 1.0, place)) {
    code.kind = Code::Kind::kNone;
    return false;
  }
  const std::size_t written = before - place.left.size();
  code.bytesPerByte = static_cast<double>(written) / static_cast<double>(section.size());
  return true;
}

/// False when there is no code, or more bytes than that would come out of each.
bool SectionDeflater::addCoded(Bytes section, Code& code, double mostPerByte, Place& place) {
  const auto most = static_cast<std::size_t>(mostPerByte * static_cast<double>(section.size()));
  const auto room = place.left.first(std::min({place.left.size(), section.size(), most}));
  std::size_t written = 0;
  if (code.kind == Code::Kind::kLiterals) written = writeLiterals(section, code.tables, room);
  if (code.kind == Code::Kind::kMatches) written = writeBlock(section, code.tables, room);
  place.left = place.left.subspan(written);
  return written != 0;
}

/// False when the bytes are nearly noise.
bool SectionDeflater::makeCode(Bytes section, Code& code) {
  /// What saves less than this had better be stored: making and reading codes takes some 3.5 ns a
  /// byte, so that a disk which takes more than 40 MB/s from each core is the faster way.
  constexpr double kNoiseBitsPerByte = 6.9;
  /// Matches have to save a twentieth: finding them takes twice as long as literals do.
  constexpr double kWorthMatches = 1.05;
  const Bytes sample = sampleOf(section);
  histogram_ = {};
  isal_update_histogram(readable(sample), static_cast<int>(sample.size()), &histogram_);
  literals_ = {};
  countLiterals(sample, literals_);
  const double withMatches = deflatedBits(histogram_);
  const double without = literalBits(literals_, sample.size());
  if (std::min(withMatches, without) > kNoiseBitsPerByte * static_cast<double>(sample.size())) {
    return false;
  }
  const bool wantsMatches = without > kWorthMatches * withMatches;
  code.kind = wantsMatches ? Code::Kind::kMatches : Code::Kind::kLiterals;
  return isal_create_hufftables(&code.tables, wantsMatches ? &histogram_ : &literals_) == 0;
}

void SectionDeflater::addStored(Bytes section, Place& place) {
  constexpr std::size_t kMostStored = 65535;
  while (!section.empty()) {
    const Bytes block = section.first(std::min(section.size(), kMostStored));
    const auto length = static_cast<unsigned>(block.size());
    place.put({0, length & 0xFFU, length >> 8U, ~length & 0xFFU, (~length >> 8U) & 0xFFU});
    std::copy(block.begin(), block.end(), place.left.begin());
    place.left = place.left.subspan(block.size());
    section = section.subspan(block.size());
  }
}

std::size_t SectionDeflater::deflate(Bytes plain, std::size_t sectionBytes, StreamCodes codes,
                                     std::span<std::byte> out) {
  constexpr std::size_t kMaxBytes = std::numeric_limits<std::uint32_t>::max();
  if (plain.size() > kMaxBytes || out.size() > kMaxBytes) return 0;
  if (sectionBytes < kSmallestSection) sectionBytes = std::max<std::size_t>(plain.size(), 1);
  if (codes == StreamCodes::kOwn) codes_.clear();
  codes_.resize((plain.size() + sectionBytes - 1) / sectionBytes);
  Place place{out};
  place.put({0x78, 0x01});
  for (std::size_t begin = 0; begin < plain.size();) {
    const auto sectionAt = [&](std::size_t at) {
      return plain.subspan(at, std::min(sectionBytes, plain.size() - at));
    };
    // Sections of runs that follow each other make one block.
    std::size_t end = begin;
    while (end < plain.size() && isFewRuns(sectionAt(end))) end += sectionAt(end).size();
    const bool isRuns = end > begin;
    if (!isRuns) end += sectionAt(end).size();
    const Bytes section = plain.subspan(begin, end - begin);
    Code& code = codes_[begin / sectionBytes];
    const bool isAdded = isRuns ? addRuns(section, place) : addDeflated(section, code, place);
    if (!isAdded) addStored(section, place);
    begin = end;
  }
  place.put({1, 0, 0, 0xFF, 0xFF});  // an empty last block
  const std::uint32_t sum = libdeflate_adler32(1, plain.data(), plain.size());
  place.put({sum >> 24U, (sum >> 16U) & 0xFFU, (sum >> 8U) & 0xFFU, sum & 0xFFU});
  return out.size() - place.left.size();
}

}  // namespace Fiber::Container
