// SPDX-License-Identifier: Apache-2.0
//
// The creator of an array that lies in a bundle file: it knows the facts from the fragment table
// and reads the rows when they are asked for. Saving a bundle recognises it, and links to the file
// instead of copying its rows.

#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "datamodel/container/BundleDescription.hpp"
#include "datamodel/container/CoordinateGrid.hpp"
#include "datamodel/fiber/CreativeArrayBase.hpp"

namespace Fiber::Container {

/// A representation in a bundle file; shared by all creators over it.
struct StoredSource {
  FileIdentity file;
  std::string group;
};

/// Where one fragment's part of one field lies.
struct StoredPlace {
  std::shared_ptr<const StoredSource> source;
  std::shared_ptr<const std::string> dataset;  ///< stored name of the field
  std::uint64_t start = 0;                     ///< first row of the dataset
  std::optional<std::uint32_t> checksum;       ///< CRC-32 of the elements, in raw storage
  std::shared_ptr<const CoordinateGrid> grid;  ///< empty: that of the dataset, if any
};

/// Requires of the facts: type and size are known.
class StoredCreator final : public CreativeArrayBase {
 public:
  StoredCreator(ArrayFacts facts, StoredPlace place)
      : CreativeArrayBase(std::move(facts)), place_(std::move(place)) {}

  const StoredPlace& place() const { return place_; }

  /// Whether the file is there, is the one that was meant and has the rows; reads none of them.
  /// Errors: "<path>: ...".
  MemCore::Outcome<void> checkSource() const;

 protected:
  MemCore::Outcome<MemCore::StrongPtr<MemBase>> create() override;
  GridPointsHandle createGridPoints(const CoordinateGrid& grid) override;

 private:
  struct OpenRows;

  MemCore::Outcome<OpenRows> openRows() const;
  MemCore::Failure within(const std::string& text) const;

  StoredPlace place_;
};

}  // namespace Fiber::Container
