// SPDX-License-Identifier: Apache-2.0
//
// OriginalOrder: the order that the points of a grid had in their files, from the fields
// "SourceFile" (number of the file) and "SourceIndex" (number of the point in it). Points that are
// missing leave no gap. Memory: one bit per point of the files, and a fifteenth of that; where
// points are far apart, at most 600 bytes for each.
// Threads: const members may be called by any number of threads at once.

#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <span>
#include <unordered_map>
#include <utility>
#include <vector>

#include "datamodel/memcore/Outcome.hpp"
#include "formats/cloud/SourceOrder.hpp"
#include "formats/export/FragmentColumns.hpp"

namespace Formats {

/// Numbers that are set, and how many of them are below one. Kept in pages, so that one damaged
/// number does not take the room of all below it.
class RankedBits {
 public:
  /// False: it was set already.
  bool set(std::uint64_t number);
  /// To be called once, between the last set() and the first rank().
  void count();
  /// Set numbers below this one. Requires: it is set itself.
  std::uint64_t rank(std::uint64_t number) const;
  std::uint64_t size() const { return size_; }

 private:
  static constexpr std::size_t kWordBits = 64;
  static constexpr std::size_t kPageWords = 64;
  static constexpr std::size_t kPageBits = kWordBits * kPageWords;
  struct Page {
    std::array<std::uint64_t, kPageWords> words{};
    std::array<std::uint16_t, kPageWords> beforeWord{};  ///< set in front of each word
    std::uint64_t before = 0;                            ///< set in front of the page
  };

  std::unordered_map<std::uint64_t, Page> pages_;  ///< by number / kPageBits
  std::uint64_t size_ = 0;
};

class OriginalOrder {
 public:
  /// Whether the grid has the two fields in their types.
  static bool isKnown(const ExportSource& source);

  /// Errors: a point that occurs twice, numbers beyond what the fragments could have, columns that
  /// cannot be read.
  static MemCore::Outcome<OriginalOrder> read(const ExportSource& source,
                                              std::span<const ExportFragment> fragments,
                                              const ChooserWithFields& choose);

  std::uint64_t pointCount() const { return pointCount_; }
  /// Whether the chosen points stand in their former order already, fragment after fragment.
  bool isKept() const { return isKept_; }
  /// Numbers of the two fields in ExportSource::fields, which placesOf looks at.
  std::size_t fileField() const { return fileField_; }
  std::size_t indexField() const { return indexField_; }

  /// The places among all points of chosen points of a fragment, from the `first` on.
  void placesOf(const FragmentColumns& fragment, std::size_t first,
                std::span<std::uint64_t> places) const;

 private:
  struct File {
    RankedBits points;
    std::uint64_t before = 0;  ///< points of the files in front of it
  };

  MemCore::Outcome<void> add(const FragmentColumns& fragment);
  void finish();

  std::size_t fileField_ = 0;
  std::size_t indexField_ = 0;
  std::uint64_t pointCount_ = 0;
  bool isKept_ = true;
  std::pair<std::uint32_t, std::uint64_t> last_;  ///< file and number of the latest point
  std::map<std::uint32_t, File> files_;
};

}  // namespace Formats
