// SPDX-License-Identifier: Apache-2.0
//
// PacketPlan: where the waveform packets of a new file go, each once however many points share it.
// Packets keep the byte offsets that points name where these leave little unused, so that a whole
// survey comes back with the very same offsets; otherwise they are packed in the order of their
// former offsets. Points whose packet was lost keep naming bytes past the end.
// Threads: once made, every member may be called by any number of threads at once.

#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <memory>
#include <span>
#include <tuple>
#include <vector>

#include "datamodel/memcore/Outcome.hpp"
#include "formats/export/FragmentColumns.hpp"
#include "formats/las/LasWriter.hpp"

namespace Formats {

/// The columns that name packets, by number in ExportSource::fields.
struct PacketFields {
  std::size_t descriptor = 0;
  std::size_t offset = 0;
  std::size_t size = 0;
};

class PacketPlan {
 public:
  /// Reads what all chosen points name. `descriptors` are the records of the new file.
  /// Errors: columns that cannot be read or have another type than LAS gives them.
  static MemCore::Outcome<std::unique_ptr<PacketPlan>> make(
      const ExportSource& source, std::span<const ExportFragment> fragments,
      const PacketFields& fields, const std::vector<VariableRecord>& descriptors,
      const ChooserWithFields& choose);

  /// Bytes of all packets together, gaps included.
  std::uint64_t byteCount() const { return end_ - kEvlrHeaderBytes; }

  /// Writes the packets of some chosen points that nobody has written yet, and puts the offset that
  /// each point is to name into `offsets`. Errors: as writeWaveformPacketAt.
  MemCore::Outcome<void> write(const FragmentColumns& fragment, std::size_t first,
                               std::span<std::uint64_t> offsets, LasWriter& writer);

 private:
  /// What tells packets apart: points of several files may name other packets by the same place.
  struct Key {
    std::uint64_t offset = 0;
    std::uint64_t contentHash = 0;  ///< 0 in grids of one file
    std::uint32_t size = 0;
    friend bool operator==(const Key&, const Key&) = default;
    friend bool operator<(const Key& a, const Key& b) {
      return std::tie(a.offset, a.contentHash, a.size) < std::tie(b.offset, b.contentHash, b.size);
    }
  };
  /// A point's packet.
  struct Named {
    Key key;
    std::uint8_t descriptor = 0;
    bool isThere = false;  ///< the point has samples
    std::span<const std::uint16_t> samples;
  };
  class Names;

  PacketPlan(const PacketFields& fields, bool hashesContent,
             const std::vector<VariableRecord>& descriptors);
  void place();
  bool keepsOffsets() const;
  std::size_t find(const Key& key) const;
  void appendSamples(const Named& named, std::vector<std::byte>& bytes) const;

  PacketFields fields_;
  bool hashesContent_;
  std::array<std::uint8_t, 256> sampleBytes_{};  ///< by descriptor; 2 where nothing is said
  std::vector<Key> keys_;                        ///< ascending
  std::vector<std::uint64_t> offsets_;           ///< new ones, by key
  std::unique_ptr<std::atomic<bool>[]> written_;
  std::uint64_t end_ = kEvlrHeaderBytes;
};

}  // namespace Formats
