// SPDX-License-Identifier: Apache-2.0
//
// SectionDeflater: a zlib stream put together from sections, each deflated in the way that suits
// its bytes. The planes of shuffled numbers could hardly differ more: the lowest one is often
// noise, the next has a few frequent values, the highest is one value throughout. One Huffman table
// for all of them suits none.
//   - noise is stored as it stands: copying it is many times as fast, both ways;
//   - a few runs of equal bytes share one table, which is made once;
//   - everything else gets a table of its own, made from a sample; it is searched for matches only
//     if the sample has some that are worth it.
// Streams of one kind can share their tables, section by section: sampling and making tables takes
// a quarter of the time. Built with ISA-L only.

#pragma once

#include <isa-l/igzip_lib.h>

#include <cstddef>
#include <span>
#include <vector>

#include "datamodel/container/ZlibStream.hpp"

namespace Fiber::Container {

/// Threads: one object per thread, it reuses its work space.
class SectionDeflater {
 public:
  /// Writes the zlib stream of `plain`, whose sections are `sectionBytes` long each (the last one
  /// may be shorter), to `out`; `codes` may be those of the call before. Returns the number of
  /// bytes written, 0 when there are too many. Requires: sectionBytes > 0; `out` has room for
  /// `plain`, a thousandth more, and 1 KiB for each section and for the frame.
  std::size_t deflate(std::span<const std::byte> plain, std::size_t sectionBytes, StreamCodes codes,
                      std::span<std::byte> out);

 private:
  /// What is left of the output.
  struct Place {
    std::span<std::byte> left;
    void put(std::initializer_list<unsigned> bytes);
  };

  /// How a section was coded.
  struct Code {
    enum class Kind { kNone, kLiterals, kMatches };
    Kind kind = Kind::kNone;
    isal_hufftables tables{};
    double bytesPerByte = 0;  ///< of the section that it was made for
  };

  bool addRuns(std::span<const std::byte> runs, Place& place);
  bool addDeflated(std::span<const std::byte> section, Code& code, Place& place);
  bool addCoded(std::span<const std::byte> section, Code& code, double mostPerByte, Place& place);
  bool makeCode(std::span<const std::byte> section, Code& code);
  static void addStored(std::span<const std::byte> section, Place& place);
  std::size_t writeBlock(std::span<const std::byte> plain, isal_hufftables& tables,
                         std::span<std::byte> out);
  std::span<const std::byte> sampleOf(std::span<const std::byte> section);

  isal_zstream stream_{};
  isal_huff_histogram histogram_{};
  isal_huff_histogram literals_{};
  std::vector<Code> codes_;  ///< by section, of the last stream
  isal_hufftables runTables_{};
  bool hasRunTables_ = false;
  std::vector<std::byte> sample_;
};

}  // namespace Fiber::Container
