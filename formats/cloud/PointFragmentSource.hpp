// SPDX-License-Identifier: Apache-2.0
//
// PointFragmentSource: decodes the columns of one fragment from a LAS or LAZ file, and tells the
// creator of its positions the box that it finds on the way.
//
// Files that are one compressed stream (the oldest LASzip scheme) can only be decoded from the
// front. Their fragments take turns, and a fragment that is asked before its predecessors has them
// decoded too, instead of leaving them to be decoded again from the start of the file.

#pragma once

#include <cstddef>
#include <memory>
#include <mutex>
#include <vector>

#include "formats/cloud/DecodedFragment.hpp"
#include "formats/cloud/PointDecoding.hpp"

namespace Formats {

class PointFragmentSource;

/// What the fragments of one file share. Invariant: only `nextInStream` changes once all fragments
/// are made.
struct FilePoints {
  PointColumns columns;
  std::vector<MemCore::WeakPtr<PointFragmentSource>> fragments;  ///< In the order of the points.

  std::mutex streamMutex;        ///< Held while a stream is decoded; guards `nextInStream`.
  std::size_t nextInStream = 0;  ///< Fragments in front of it have all been decoded once.
};

/// Threads: as its base; setPositions before any other thread knows the source.
class PointFragmentSource final : public DecodedFragmentSource {
 public:
  /// `index` is the fragment's place in `file->fragments`.
  PointFragmentSource(std::shared_ptr<FilePoints> file, const PointRange& range, std::size_t index)
      : file_(std::move(file)), range_(range), index_(index) {}

  const PointRange& range() const { return range_; }
  const LasFile& file() const { return *file_->columns.file; }
  /// Who is told the box of the positions.
  void setPositions(const MemCore::WeakPtr<Fiber::CreativeArrayBase>& creator) {
    positions_ = creator;
  }

 protected:
  MemCore::Outcome<DecodedHandle> decode() override;

 private:
  MemCore::Outcome<DecodedHandle> decodeHere();
  MemCore::Outcome<DecodedHandle> decodeInTurn();

  std::shared_ptr<FilePoints> file_;
  PointRange range_;
  std::size_t index_;
  MemCore::WeakPtr<Fiber::CreativeArrayBase> positions_;
};

}  // namespace Formats
