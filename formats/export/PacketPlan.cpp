// SPDX-License-Identifier: Apache-2.0

#include "formats/export/PacketPlan.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <functional>
#include <optional>
#include <string_view>

#include "formats/las/ByteStream.hpp"

namespace Formats {

using MemCore::Failure;
using MemCore::Outcome;

namespace {

/// Loaded at once while packets are gathered.
constexpr std::size_t kFragmentsAtOnce = 16;

/// Written at once while packets stand in a row.
constexpr std::size_t kRunBytes = std::size_t{4} << 20U;

/// Padding behind the samples of a packet that is written with them; longer ones stay holes.
constexpr std::size_t kShortPadding = 4096;

/// Packets that are longer than their samples by more than all this come from damaged numbers.
constexpr std::uint64_t kMostPaddingBytes = std::uint64_t{64} << 20U;
constexpr std::uint64_t kMostPaddingFactor = 16;

template <class T>
std::span<const T> elementsOf(const MemCore::StrongPtr<Fiber::MemBase>& column) {
  const auto chunk = column ? MemCore::chunkCast<T>(column->elements()) : nullptr;
  return chunk ? std::as_const(*chunk).span() : std::span<const T>();
}

std::uint64_t hashOf(std::span<const std::uint16_t> samples) {
  const std::string_view bytes(reinterpret_cast<const char*>(samples.data()), samples.size_bytes());
  return std::hash<std::string_view>()(bytes);
}

}  // namespace

/// What the points of one fragment name.
class PacketPlan::Names {
 public:
  Names(const PacketPlan& plan, const FragmentColumns& fragment)
      : plan_(plan),
        descriptors_(elementsOf<std::uint8_t>(fragment.fields[plan.fields_.descriptor])),
        offsets_(elementsOf<std::uint64_t>(fragment.fields[plan.fields_.offset])),
        sizes_(elementsOf<std::uint32_t>(fragment.fields[plan.fields_.size])),
        lengths_(elementsOf<std::uint16_t>(fragment.lengths)),
        samples_(elementsOf<std::uint16_t>(fragment.samples)),
        stride_(samples_.size() / fragment.fragment->pointCount) {}

  /// Errors: columns of other types.
  Outcome<void> check(const FragmentColumns& fragment) const {
    const std::size_t points = fragment.fragment->pointCount;
    if (descriptors_.size() == points && offsets_.size() == points && sizes_.size() == points &&
        lengths_.size() == points && (!fragment.samples || stride_ > 0)) {
      return {};
    }
    return Failure{fmt::format("waveforms: fragment {}: packets are not named as LAS names them",
                               fragment.fragment->id->name())};
  }

  std::uint64_t sampleBytes(std::size_t row) const {
    return std::uint64_t{lengths_[row]} * plan_.sampleBytes_[descriptors_[row]];
  }

  Named at(std::size_t row) const {
    Named named;
    named.descriptor = descriptors_[row];
    named.key.offset = offsets_[row];
    named.key.size = sizes_[row];
    named.isThere = named.descriptor != 0 && lengths_[row] != 0;
    if (!named.isThere || stride_ == 0) return named;
    named.samples = samples_.subspan(row * stride_, std::min<std::size_t>(lengths_[row], stride_));
    if (plan_.hashesContent_) named.key.contentHash = hashOf(named.samples);
    return named;
  }

 private:
  const PacketPlan& plan_;
  std::span<const std::uint8_t> descriptors_;
  std::span<const std::uint64_t> offsets_;
  std::span<const std::uint32_t> sizes_;
  std::span<const std::uint16_t> lengths_;
  std::span<const std::uint16_t> samples_;
  std::size_t stride_;  ///< samples per point
};

PacketPlan::PacketPlan(const PacketFields& fields, bool hashesContent,
                       const std::vector<VariableRecord>& descriptors)
    : fields_(fields), hashesContent_(hashesContent) {
  constexpr std::uint8_t kBitsPerByte = 8;
  sampleBytes_.fill(2);
  for (const VariableRecord& record : descriptors) {
    if (!isWaveformDescriptor(record) || record.payload.empty()) continue;
    const std::size_t index = record.recordId - kFirstWaveformDescriptorId + 1U;
    const auto bits = std::to_integer<std::uint8_t>(record.payload.front());
    sampleBytes_[index] = bits == kBitsPerByte ? 1 : 2;
  }
}

Outcome<std::unique_ptr<PacketPlan>> PacketPlan::make(
    const ExportSource& source, std::span<const ExportFragment> fragments,
    const PacketFields& fields, const std::vector<VariableRecord>& descriptors,
    const ChooserWithFields& choose) {
  std::unique_ptr<PacketPlan> plan(new PacketPlan(fields, source.files.size() > 1, descriptors));
  ColumnNeeds needs{{fields.descriptor, fields.offset, fields.size}, plan->hashesContent_, true};
  needs.fields.insert(needs.fields.end(), choose.fields.begin(), choose.fields.end());
  std::uint64_t sampleBytes = 0;
  while (!fragments.empty()) {
    const std::size_t count = std::min(kFragmentsAtOnce, fragments.size());
    const auto loaded = loadFragments(source, fragments.first(count), needs, choose.choose);
    if (!loaded) return loaded.failure();
    for (const FragmentColumns& fragment : *loaded) {
      const Names names(*plan, fragment);
      if (auto valid = names.check(fragment); !valid) return valid.failure();
      const std::size_t chosen = fragment.choice.countOf(*fragment.fragment);
      for (std::size_t i = 0; i < chosen; ++i) {
        const Named named = names.at(chosenRow(fragment, i));
        const bool isRepeated = !plan->keys_.empty() && plan->keys_.back() == named.key;
        if (named.isThere) sampleBytes += names.sampleBytes(chosenRow(fragment, i));
        if (named.isThere && !isRepeated) plan->keys_.push_back(named.key);
      }
    }
    fragments = fragments.subspan(count);
  }
  plan->place();
  if (plan->byteCount() > kMostPaddingBytes + kMostPaddingFactor * sampleBytes) {
    return Failure{
        fmt::format("waveforms: impossible packet sizes, found {} bytes for samples of "
                    "{} bytes",
                    plan->byteCount(), sampleBytes)};
  }
  return plan;
}

bool PacketPlan::keepsOffsets() const {
  if (hashesContent_ || keys_.empty() || keys_.front().offset < kEvlrHeaderBytes) return false;
  std::uint64_t bytes = 0;
  std::uint64_t end = 0;
  for (const Key& key : keys_) {
    if (key.offset > UINT64_MAX - key.size) return false;
    bytes += key.size;
    end = std::max(end, key.offset + key.size);
  }
  return end / 2 <= bytes;
}

void PacketPlan::place() {
  std::sort(keys_.begin(), keys_.end());
  keys_.erase(std::unique(keys_.begin(), keys_.end()), keys_.end());
  const bool isKept = keepsOffsets();
  offsets_.reserve(keys_.size());
  for (const Key& key : keys_) {
    offsets_.push_back(isKept ? key.offset : end_);
    end_ = std::max(end_, offsets_.back() + key.size);
  }
  written_ = std::make_unique<std::atomic<bool>[]>(keys_.size());
}

std::size_t PacketPlan::find(const Key& key) const {
  return static_cast<std::size_t>(std::lower_bound(keys_.begin(), keys_.end(), key) -
                                  keys_.begin());
}

/// The samples in the width that the descriptor tells, and short padding up to the size that the
/// point says.
void PacketPlan::appendSamples(const Named& named, std::vector<std::byte>& bytes) const {
  const std::size_t start = bytes.size();
  const std::size_t width = sampleBytes_[named.descriptor];
  const std::size_t count = std::min(named.samples.size(), named.key.size / width);
  const std::size_t padding = named.key.size - count * width;
  bytes.resize(start + count * width + (padding <= kShortPadding ? padding : 0));
  for (std::size_t i = 0; i < count; ++i) {
    if (width == 1) {
      bytes[start + i] = static_cast<std::byte>(named.samples[i]);
    } else {
      storeValue(&bytes[start + 2 * i], named.samples[i]);
    }
  }
}

Outcome<void> PacketPlan::write(const FragmentColumns& fragment, std::size_t first,
                                std::span<std::uint64_t> offsets, LasWriter& writer) {
  struct Claim {
    std::uint64_t offset;
    std::size_t row;
  };
  const Names names(*this, fragment);
  std::vector<Claim> claims;
  for (std::size_t i = 0; i < offsets.size(); ++i) {
    const std::size_t row = chosenRow(fragment, first + i);
    const Named named = names.at(row);
    if (!named.isThere) {
      // A packet that was lost stays lost: its place must not become another's.
      offsets[i] = named.descriptor == 0 ? named.key.offset : std::max(named.key.offset, end_);
      continue;
    }
    const std::size_t packet = find(named.key);
    offsets[i] = offsets_[packet];
    if (!written_[packet].exchange(true, std::memory_order_relaxed)) {
      claims.push_back({offsets_[packet], row});
    }
  }
  std::sort(claims.begin(), claims.end(),
            [](const Claim& a, const Claim& b) { return a.offset < b.offset; });
  std::vector<std::byte> run;
  for (std::size_t i = 0; i < claims.size();) {
    const std::uint64_t start = claims[i].offset;
    run.clear();
    do {
      appendSamples(names.at(claims[i++].row), run);
    } while (i < claims.size() && claims[i].offset == start + run.size() && run.size() < kRunBytes);
    if (auto written = writer.writeWaveformPacketAt(start, run); !written) return written;
  }
  return {};
}

}  // namespace Formats
