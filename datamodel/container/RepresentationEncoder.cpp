// SPDX-License-Identifier: Apache-2.0

#include "datamodel/container/RepresentationEncoder.hpp"

#include <fmt/format.h>
#include <libdeflate.h>
#include <omp.h>

#include <algorithm>

#include "datamodel/container/ParallelTexts.hpp"

namespace Fiber::Container {

using MemCore::Failure;
using MemCore::Outcome;
using MemCore::StrongPtr;

namespace {

std::uint32_t crc32(std::span<const std::byte> bytes) {
  return libdeflate_crc32(0, bytes.data(), bytes.size());
}

std::span<const std::byte> bytesOf(const MemBase& array) {
  const MemCore::ChunkBase& elements = *array.elements();
  return {elements.bytes(), elements.byteCount()};
}

std::span<const double> coordinatesOf(const MemBase& array) {
  const auto bytes = bytesOf(array);
  return {reinterpret_cast<const double*>(bytes.data()), bytes.size() / sizeof(double)};
}

std::uint64_t bytesOfRow(const PlannedRepresentation& plan, const PlannedRow& row) {
  std::uint64_t bytes = 0;
  for (std::size_t f = 0; f < row.parts.size(); ++f) {
    if (!row.parts[f].creator) continue;
    bytes += row.parts[f].size.elementCount() * plan.fields[f].stored.type->elementBytes();
  }
  return bytes;
}

/// Makes the creator remember box and range while its data are at hand.
void rememberFacts(const StoredField& field, CreativeArrayBase& creator) {
  if (field.name == kPositions) {
    StrongPtr<Eagle::BoundingBox> box;
    ExpandBBox(box, creator, DataCreationMode::KnownOrCreate);
  }
  rangeOf(creator);
}

/// The data of one part, which must be what was planned.
Outcome<StrongPtr<MemBase>> arrayOf(const PlannedField& field, const PlannedPart& part) {
  auto array = part.creator->data();
  if (!array) return Failure{part.creator->failure()};
  if (!array->elements()) return Failure{"an array that is computed cannot be stored"};
  const auto type = array->type();
  if (!type || type->name() != field.stored.type->name() || array->size() != part.size ||
      array->elements()->size() != part.size.elementCount()) {
    return Failure{"its data are not of the promised type and extents"};
  }
  rememberFacts(field.stored, *part.creator);
  return array;
}

}  // namespace

RepresentationEncoder::RepresentationEncoder(PlannedRepresentation& plan, StorageKind kind,
                                             const BatchSizes& sizes)
    : plan_(plan),
      kind_(kind),
      sizes_(sizes),
      encoders_(plan.fields.size()),
      threadEncoders_(static_cast<std::size_t>(omp_get_max_threads())),
      checksums_(kind == StorageKind::Raw ? plan.rows.size() * plan.fields.size() : 0) {
  for (std::size_t r = 0; r < plan.rows.size(); ++r) {
    if (!plan.rows[r].link) ownRows_.push_back(r);
  }
  if (!ownRows_.empty()) grids_.resize(plan.rows.size());
  for (std::size_t f = 0; f < plan.fields.size(); ++f) {
    if (plan.fields[f].stored.name == kPositions) positions_ = f;
    makeEncoder(f);
  }
}

void RepresentationEncoder::makeEncoder(std::size_t f) {
  const PlannedField& field = plan_.fields[f];
  if (!field.stored.type) return;
  encoders_[f] = std::make_unique<FieldEncoder>(
      field.stored, encodingFor(field.stored, kind_, field.gridRefused), fragmentRows(f));
}

std::uint64_t RepresentationEncoder::fragmentRows(std::size_t f) const {
  if (ownRows_.size() < 2) return 0;
  const std::uint64_t rows = plan_.rows[ownRows_[0]].parts[f].rows;
  return plan_.rows[ownRows_[1]].parts[f].rows == rows ? rows : 0;
}

ChunkEncoder& RepresentationEncoder::threadEncoder(int thread) {
  auto& encoder = threadEncoders_[static_cast<std::size_t>(thread)];
  if (!encoder) encoder = std::make_unique<ChunkEncoder>();
  return *encoder;
}

RepresentationEncoder::Batch RepresentationEncoder::takeRows() {
  const std::uint64_t wanted =
      sizes_.perThread * static_cast<std::uint64_t>(omp_in_parallel() ? 1 : omp_get_max_threads());
  Batch batch;
  do takeGroup(batch);
  while (!isFinished() && batch.bytes < wanted);
  batch.arrays.resize(batch.rows.size());
  batch.points.resize(batch.rows.size());
  return batch;
}

void RepresentationEncoder::takeGroup(Batch& batch) {
  const std::uint64_t before = batch.bytes;
  Group group;
  do {
    const PlannedRow& row = plan_.rows[ownRows_[nextRow_]];
    batch.bytes += bytesOfRow(plan_, row);
    group.endRow = row.start + row.pointCount;
    batch.rows.push_back(ownRows_[nextRow_++]);
  } while (!isFinished() && batch.bytes - before < sizes_.group);
  group.end = batch.rows.size();
  group.nextRow = nextRow_;
  batch.groups.push_back(group);
}

Outcome<void> RepresentationEncoder::makeRowArrays(Batch& batch, std::size_t i) {
  const PlannedRow& row = plan_.rows[batch.rows[i]];
  batch.arrays[i].resize(plan_.fields.size());
  // Positions come first: a source that makes all columns at once then makes no doubles of them.
  if (takesGridPoints()) batch.points[i] = gridPointsOf(row.parts[*positions_]);
  for (std::size_t f = 0; f < plan_.fields.size(); ++f) {
    if (!row.parts[f].creator || (f == positions_ && batch.points[i])) continue;
    if (auto made = makeArray(batch, i, f); !made.ok()) return made;
  }
  return {};
}

Outcome<void> RepresentationEncoder::makeArray(Batch& batch, std::size_t i, std::size_t field) {
  const PlannedRow& row = plan_.rows[batch.rows[i]];
  auto array = arrayOf(plan_.fields[field], row.parts[field]);
  if (!array.ok()) {
    return Failure{fmt::format("field {}, fragment {}: {}", plan_.fields[field].stored.name,
                               row.fragment->name(), array.error())};
  }
  if (kind_ == StorageKind::Raw) {
    checksums_[batch.rows[i] * plan_.fields.size() + field] = crc32(bytesOf(**array));
  }
  batch.arrays[i][field] = std::move(array).value();
  return {};
}

bool RepresentationEncoder::takesGridPoints() const {
  return positions_ && encoders_[*positions_] &&
         encoders_[*positions_]->encoding() == Encoding::kGridColumns;
}

/// What the source has on the grid that it names; empty when doubles have to be asked for. Where
/// several numbers stand for one double, the source's own are kept.
GridPointsHandle RepresentationEncoder::gridPointsOf(const PlannedPart& part) const {
  if (!part.creator || part.rows == 0) return nullptr;
  const auto grid = namedGrid(part);
  GridPointsHandle points = grid ? part.creator->gridPoints(*grid) : nullptr;
  if (!points || points->count() != part.rows) return nullptr;
  rememberFacts(plan_.fields[*positions_].stored, *part.creator);
  return points;
}

Outcome<void> RepresentationEncoder::makeArrays(Batch& batch) {
  return parallelTexts(batch.rows.size(), batch.bytes,
                       [&](std::size_t i) { return makeRowArrays(batch, i); });
}

/// The grid that is named for a fragment, else for the field.
std::optional<CoordinateGrid> RepresentationEncoder::namedGrid(const PlannedPart& positions) const {
  if (auto own = gridIn(positions.creator->attributes())) return own;
  return gridIn(plan_.fields[*positions_].field->properties());
}

Outcome<void> RepresentationEncoder::putOnGrid(Batch& batch) {
  if (!takesGridPoints()) return {};
  const auto partOf = [&](std::size_t i) -> const PlannedPart& {
    return plan_.rows[batch.rows[i]].parts[*positions_];
  };
  const auto encodeRow = [&](std::size_t i) -> Outcome<void> {
    const auto& array = batch.arrays[i][*positions_];
    if (!array || batch.points[i]) return {};
    // Without a grid of its own, that of the first fragment: one for all makes the simplest file.
    const auto named = namedGrid(partOf(i));
    auto points = encodeExactly(coordinatesOf(*array), named ? named : firstGrid_);
    if (points) batch.points[i] = MemCore::makeStrong<GridPoints>(std::move(*points));
    return {};
  };
  // The first fragment with points goes ahead: the others take its grid as a hint.
  for (std::size_t i = 0; i < batch.rows.size() && !firstGrid_; ++i) {
    if (!partOf(i).creator || partOf(i).rows == 0) continue;
    if (auto done = encodeRow(i); !done.ok()) return done;
    if (!batch.points[i]) break;
    firstGrid_ = batch.points[i]->grid;
  }
  auto done = parallelTexts(batch.rows.size(), batch.bytes, encodeRow);
  if (!done.ok()) return done;
  for (std::size_t i = 0; i < batch.rows.size(); ++i) {
    if (!partOf(i).creator || partOf(i).rows == 0) continue;
    if (!batch.points[i]) return refuseGrid(batch);
    grids_[batch.rows[i]] = batch.points[i]->grid;
  }
  return done;
}

/// Falls back to doubles: at once in the first batch, by beginning again after it.
Outcome<void> RepresentationEncoder::refuseGrid(Batch& batch) {
  plan_.fields[*positions_].gridRefused = true;
  std::fill(grids_.begin(), grids_.end(), std::nullopt);
  std::fill(batch.points.begin(), batch.points.end(), nullptr);
  mustRestart_ = batch.rows.front() != ownRows_.front();
  makeEncoder(*positions_);
  if (mustRestart_) return {};
  return parallelTexts(batch.rows.size(), batch.bytes, [&](std::size_t i) -> Outcome<void> {
    const bool isMissing =
        plan_.rows[batch.rows[i]].parts[*positions_].creator && !batch.arrays[i][*positions_];
    return isMissing ? makeArray(batch, i, *positions_) : Outcome<void>();
  });
}

void RepresentationEncoder::addPieces(Batch& batch, std::size_t i, EncodedBatch& encoded) {
  const PlannedRow& row = plan_.rows[batch.rows[i]];
  for (std::size_t f = 0; f < plan_.fields.size(); ++f) {
    StrongPtr<MemBase>& array = batch.arrays[i][f];
    const PlannedPart& part = row.parts[f];
    if (!part.creator || part.rows == 0) continue;
    const std::uint64_t width =
        part.size.elementCount() / part.rows * plan_.fields[f].stored.type->componentCount();
    const Encoding encoding = encoders_[f]->encoding();
    if (encoding == Encoding::kPiece) {
      const std::uint32_t checksum =
          kind_ == StorageKind::Raw ? checksumOf(batch.rows[i], f) : crc32(bytesOf(*array));
      encoded.rows.push_back({f, part.start, width, std::move(array), checksum});
    } else if (encoding == Encoding::kGridColumns) {
      encoders_[f]->add({part.start, part.rows, width, nullptr, std::move(batch.points[i])});
    } else {
      encoders_[f]->add({part.start, part.rows, width, std::move(array), nullptr});
    }
  }
}

/// All rows of a field's dataset below this one are there after a group.
std::uint64_t RepresentationEncoder::endOf(std::size_t f, const Group& group) const {
  if (group.nextRow == ownRows_.size()) return plan_.fields[f].stored.rows;
  if (plan_.sharesExtents) return group.endRow;
  return plan_.rows[ownRows_[group.nextRow]].parts[f].start;
}

/// Requires: the pieces of the first group were added, and no others.
Outcome<void> RepresentationEncoder::settleFilters() {
  for (auto& encoder : encoders_) {
    if (!encoder || encoder->encoding() == Encoding::kPiece) continue;
    if (auto settled = encoder->settleFilter(threadEncoder(0)); !settled.ok()) return settled;
  }
  return {};
}

/// Lists the chunks that a group completes. Series end with it: how many groups make up a batch
/// depends on the machine.
void RepresentationEncoder::takeComplete(const Group& group, Batch& batch, EncodedBatch& encoded) {
  /// Long enough that codes are seldom made, short enough to give every thread some.
  constexpr std::size_t kMostInSeries = 4;
  for (std::size_t f = 0; f < encoders_.size(); ++f) {
    if (!encoders_[f] || encoders_[f]->encoding() == Encoding::kPiece) continue;
    const std::size_t first = encoded.chunks.size();
    for (const ChunkRange& range : encoders_[f]->takeComplete(endOf(f, group))) {
      encoded.chunks.push_back({f, range, {}, 0});
    }
    const auto across = static_cast<std::size_t>(encoders_[f]->chunksAcross());
    for (std::size_t at = first; at < encoded.chunks.size(); at += kMostInSeries * across) {
      const std::size_t down = (encoded.chunks.size() - at) / across;
      for (std::size_t column = 0; column < across; ++column) {
        batch.series.push_back({at + column, across, std::min(down, kMostInSeries)});
      }
    }
  }
}

Outcome<void> RepresentationEncoder::encodeSeries(const ChunkSeries& series,
                                                  EncodedBatch& encoded) {
  ChunkEncoder& encoder = threadEncoder(omp_get_thread_num());
  StreamCodes codes = StreamCodes::kOwn;
  for (std::size_t i = 0; i < series.count; ++i) {
    BatchChunk& target = encoded.chunks[series.first + i * series.step];
    auto chunk = encoders_[target.field]->encode(target.range, encoder, codes);
    if (!chunk.ok()) return chunk.failure();
    target.chunk = std::move(chunk).value();
    target.checksum = crc32(target.chunk.bytes);
    codes = StreamCodes::kLikeBefore;
  }
  return {};
}

Outcome<void> RepresentationEncoder::encodeChunks(const Batch& batch, EncodedBatch& encoded,
                                                  const std::function<void()>& alongside) {
  const std::size_t before = alongside ? 1 : 0;
  const auto encodeStep = [&](std::size_t step) -> Outcome<void> {
    if (step >= before) return encodeSeries(batch.series[step - before], encoded);
    alongside();
    return {};
  };
  auto done = parallelTexts(before + batch.series.size(), batch.bytes, encodeStep);
  for (auto& encoder : encoders_) {
    if (encoder) encoder->dropEncoded();
  }
  return done;
}

Outcome<EncodedBatch> RepresentationEncoder::next(const std::function<void()>& alongside) {
  Batch batch = takeRows();
  if (auto made = makeArrays(batch); !made.ok()) return made.failure();
  if (auto done = putOnGrid(batch); !done.ok()) return done.failure();
  EncodedBatch encoded;
  if (mustRestart_) return encoded;
  std::size_t i = 0;
  for (const Group& group : batch.groups) {
    while (i < group.end) addPieces(batch, i++, encoded);
    const bool isFirst = batch.rows.front() == ownRows_.front() && &group == &batch.groups.front();
    if (isFirst) {
      if (auto settled = settleFilters(); !settled.ok()) return settled.failure();
    }
    takeComplete(group, batch, encoded);
  }
  if (auto done = encodeChunks(batch, encoded, alongside); !done.ok()) return done.failure();
  return encoded;
}

}  // namespace Fiber::Container
