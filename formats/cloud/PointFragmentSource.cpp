// SPDX-License-Identifier: Apache-2.0

#include "formats/cloud/PointFragmentSource.hpp"

#include <algorithm>

namespace Formats {

using MemCore::Outcome;

Outcome<DecodedHandle> PointFragmentSource::decode() {
  return file().storage() == PointStorage::Sequential ? decodeInTurn() : decodeHere();
}

Outcome<DecodedHandle> PointFragmentSource::decodeHere() {
  Outcome<DecodedPoints> points = decodePoints(file_->columns, range_);
  if (!points) return points.failure();
  if (const auto positions = positions_.lock()) positions->rememberBox(points->box);
  return points->fragment;
}

Outcome<DecodedHandle> PointFragmentSource::decodeInTurn() {
  const std::lock_guard turn(file_->streamMutex);
  if (auto adopted = decodedIfPresent()) return adopted;
  while (file_->nextInStream < index_) {
    const auto predecessor = file_->fragments[file_->nextInStream].lock();
    if (predecessor) {
      const Outcome<DecodedHandle> decoded = predecessor->decodeHere();
      if (!decoded) return decoded.failure();
      predecessor->adopt(*decoded);
    }
    ++file_->nextInStream;
  }
  file_->nextInStream = std::max(file_->nextInStream, index_ + 1);
  return decodeHere();
}

}  // namespace Formats
