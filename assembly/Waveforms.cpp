// SPDX-License-Identifier: Apache-2.0

#include "assembly/Waveforms.hpp"

#include <algorithm>
#include <cstring>
#include <limits>

#include "datamodel/fiber/NumberRange.hpp"

namespace LidarLib {

using Fiber::IndexList;
using MemCore::makeStrong;
using MemCore::StrongPtr;

namespace {

constexpr std::uint64_t kIndexLimit = std::uint64_t{1} << 32;

using LengthArray = Fiber::MemArray<1, unsigned short>;

/// The largest length among the selected points of one fragment, at least `atLeast`.
std::uint32_t longestOf(const StrongPtr<Fiber::Field>& field, const Fiber::FragmentHandle& fragment,
                        const IndexList& points, std::uint32_t atLeast) {
  if (!field) return atLeast;
  const auto lengths =
      MemCore::handleCast<LengthArray>(field->getData(field->getFragmentID(fragment->name())));
  if (!lengths) return atLeast;
  const std::span<const unsigned short> values = std::as_const(*lengths).span();
  for (const unsigned int point : points) {
    if (point < values.size()) atLeast = std::max<std::uint32_t>(atLeast, values[point]);
  }
  return atLeast;
}

/// Points below this one lie inside the input; points without samples take no room there.
std::uint64_t pointLimit(const WaveformBlock& block, const MemCore::ChunkBase& input) {
  return block.inputSamples == 0 ? kIndexLimit : input.size() / block.inputSamples;
}

/// Copies rows of so many bytes; those of consecutive points go as one.
void copyRows(std::byte* to, const std::byte* from, std::span<const unsigned int> points,
              std::size_t rowBytes) {
  for (std::size_t k = 0; k < points.size();) {
    const std::size_t first = k++;
    while (k < points.size() && points[k] > points[k - 1] && points[k] - points[k - 1] == 1) ++k;
    std::memcpy(to + first * rowBytes, from + points[first] * rowBytes, (k - first) * rowBytes);
  }
}

struct RowBytes {
  std::size_t input = 0;
  std::size_t output = 0;
};

/// Copies rows, cut or padded with zeros to the length that they have in the output.
void fitRows(std::byte* to, const std::byte* from, std::span<const unsigned int> points,
             const RowBytes& row) {
  const std::size_t copied = std::min(row.input, row.output);
  for (const unsigned int point : points) {
    if (copied != 0) std::memcpy(to, from + point * row.input, copied);
    std::memset(to + copied, 0, row.output - copied);
    to += row.output;
  }
}

}  // namespace

WaveformLengths scanWaveformLengths(Fiber::Grid& inputGrid, const FragmentSet& fragments,
                                    const MemCore::Chunk<StrongPtr<IndexList>>& indexLists) {
  const auto chart = inputGrid.makeCartesianChart(Fiber::kCartesianChart, 0);
  const auto vertices = inputGrid.skeletons().findVertices(-1);
  const auto lengths = inputGrid.getField(chart, "FWFLength", vertices);
  const auto lengthsHp = inputGrid.getField(chart, "FWFLength_hp", vertices);
  WaveformLengths longest;
  if (!lengths && !lengthsHp) return longest;
  std::size_t k = 0;
  for (const Fiber::FragmentHandle& fragment : fragments) {
    if (k == indexLists.size()) break;
    const StrongPtr<IndexList>& points = indexLists[k++];
    if (!fragment || !points || points->empty()) continue;
    longest.maxWaveformLength = longestOf(lengths, fragment, *points, longest.maxWaveformLength);
    longest.maxWaveformLengthHp =
        longestOf(lengthsHp, fragment, *points, longest.maxWaveformLengthHp);
  }
  return longest;
}

std::uint32_t waveformLengthOf(const std::string& fieldName, const WaveformLengths& lengths) {
  if (fieldName == "Waveforms") return lengths.maxWaveformLength;
  if (fieldName == "Waveforms_hp") return lengths.maxWaveformLengthHp;
  return 0;
}

WaveformIndices expandWaveformIndices(const StrongPtr<IndexList>& points,
                                      std::uint64_t inputSamplesPerPoint,
                                      const std::string& fieldName,
                                      const WaveformLengths& lengths) {
  const std::uint32_t outputSamples = waveformLengthOf(fieldName, lengths);
  if (!points || outputSamples == 0) return {};
  const auto count =
      static_cast<std::uint32_t>(outputSamples * static_cast<std::uint64_t>(points->size()));
  WaveformIndices indices{makeStrong<IndexList>(), nullptr};
  if (outputSamples >= inputSamplesPerPoint) indices.padding = makeStrong<IndexList>();
  IndexList& samples = *indices.samples;
  samples.reserve(count);
  for (const unsigned int point : *points) {
    const std::uint64_t first = point * inputSamplesPerPoint;
    for (std::uint32_t s = 0; s < outputSamples && samples.size() < count; ++s) {
      const bool isPadding = s >= inputSamplesPerPoint;
      if (isPadding) indices.padding->push_back(static_cast<std::uint32_t>(samples.size()));
      samples.push_back(isPadding ? 0 : static_cast<std::uint32_t>(first + s));
    }
    if (samples.size() == count) break;
  }
  return indices;
}

bool fitsIndices(const WaveformBlock& block, std::uint64_t inputElements) {
  return inputElements <= kIndexLimit &&
         block.points.size() * std::uint64_t{block.outputSamples} < kIndexLimit;
}

bool copyWaveforms(MemCore::ChunkBase& output, const MemCore::ChunkBase& input,
                   const WaveformBlock& block) {
  const std::span<const unsigned int> points = block.points;
  const std::size_t bytes = input.elementSize();
  if (points.empty() || &output == &input || output.elementSize() != bytes) return false;
  if (!output.isPlain() || !input.isPlain()) return false;
  const std::uint64_t samples = points.size() * std::uint64_t{block.outputSamples};
  if (block.outputOffset + samples > output.size()) return false;
  if (Fiber::highestIndex(points) >= pointLimit(block, input)) return false;

  std::byte* to = output.bytes() + block.outputOffset * bytes;
  if (block.inputSamples == block.outputSamples && block.inputSamples != 0) {
    copyRows(to, input.bytes(), points, block.inputSamples * bytes);
  } else {
    fitRows(to, input.bytes(), points, {block.inputSamples * bytes, block.outputSamples * bytes});
  }
  return true;
}

}  // namespace LidarLib
