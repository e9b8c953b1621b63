// SPDX-License-Identifier: Apache-2.0

#include "datamodel/container/RepresentationWriter.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <cstring>
#include <utility>

#include "datamodel/container/FieldAttributes.hpp"
#include "datamodel/container/TableBuilder.hpp"

namespace Fiber::Container {

using MemCore::Failure;
using MemCore::Outcome;

namespace {

/// One dimension for plain numbers, two for everything with columns.
int dimensionsOf(const StoredField& field) {
  const bool isList = field.rank == 1 && field.columns == 1 && field.type->componentCount() == 1;
  return isList ? 1 : 2;
}

ObjectExtents extentsOf(const StoredField& field) {
  if (!field.type) return ObjectExtents::none();
  return {dimensionsOf(field), {field.rows, field.columns}};
}

std::uint64_t partsOf(std::uint64_t whole, std::uint64_t part) { return (whole + part - 1) / part; }

/// Prepares a dataset for its chunks.
void expectChunks(const StoredField& field, const FieldEncoder& encoder, ObjectDataset& dataset) {
  dataset.storage = ObjectDataset::Storage::kChunks;
  dataset.chunkCounts = {encoder.chunkRows(), encoder.chunkColumns()};
  dataset.filter = encoder.filter();
  dataset.chunks.resize(static_cast<std::size_t>(partsOf(field.rows, encoder.chunkRows()) *
                                                 partsOf(field.columns, encoder.chunkColumns())));
}

std::size_t chunkNumber(const StoredField& field, const ObjectDataset& dataset,
                        const ChunkRange& range) {
  const auto& [rows, columns] = dataset.chunkCounts;
  return static_cast<std::size_t>(range.row / rows * partsOf(field.columns, columns) +
                                  range.column / columns);
}

}  // namespace

Failure RepresentationWriter::within(std::size_t field, const std::string& text) const {
  return Failure{
      fmt::format("{}: field {}: {}", output_.name(), plan_.fields[field].stored.name, text)};
}

void RepresentationWriter::begin() {
  group_ = &output_.root().make(plan_.group);
  for (std::size_t f = 0; f < plan_.fields.size(); ++f) makeDataset(f);
}

void RepresentationWriter::makeDataset(std::size_t f) {
  const PlannedField& field = plan_.fields[f];
  const FieldEncoder* encoder = encoder_.encoder(f);
  ObjectDataset& dataset = group_->datasets[field.dataset];
  datasets_.push_back(&dataset);
  const ScalarKind kind = encoder == nullptr ? ScalarKind::UInt8 : encoder->storedKind();
  dataset.value = {ObjectType::number(kind), extentsOf(field.stored), {}};
  output_.contents().add(field.dataset);
  if (encoder != nullptr && encoder->encoding() != Encoding::kPiece) {
    return expectChunks(field.stored, *encoder, dataset);
  }
  const std::uint64_t bytes = field.stored.rows * field.stored.columns * scalarBytes(kind);
  if (encoder != nullptr && bytes != 0) dataset.address = output_.reserve(bytes);
}

Outcome<void> RepresentationWriter::write(EncodedBatch batch) {
  if (auto done = appendChunks(); !done.ok()) return done;
  waiting_ = std::move(batch.chunks);
  for (const BatchChunk& chunk : waiting_) {
    output_.contents().add(chunk.field);
    output_.contents().add(chunk.range.row);
    output_.contents().add(chunk.range.column);
    output_.contents().add(chunk.checksum);
  }
  for (const BatchRows& rows : batch.rows) {
    if (auto done = writeRows(rows); !done.ok()) return done;
    output_.contents().add(rows.field);
    output_.contents().add(rows.start);
    output_.contents().add(rows.checksum);
  }
  return {};
}

Outcome<void> RepresentationWriter::appendChunks() {
  const std::vector<BatchChunk> chunks = std::exchange(waiting_, {});
  std::vector<std::span<const std::byte>> pieces;
  pieces.reserve(chunks.size());
  for (const BatchChunk& chunk : chunks) pieces.emplace_back(chunk.chunk.bytes);
  auto address = output_.append(pieces);
  if (!address.ok()) return address.failure();
  for (const BatchChunk& chunk : chunks) {
    ObjectDataset& dataset = *datasets_[chunk.field];
    const std::size_t bytes = chunk.chunk.bytes.size();
    dataset.chunks[chunkNumber(plan_.fields[chunk.field].stored, dataset, chunk.range)] = {
        *address, static_cast<std::uint32_t>(bytes), 0};
    *address += bytes;
  }
  return {};
}

Outcome<void> RepresentationWriter::writeRows(const BatchRows& rows) {
  const StoredField& field = plan_.fields[rows.field].stored;
  const std::uint64_t rowBytes = field.columns * scalarBytes(field.type->scalar());
  const std::uint64_t address = datasets_[rows.field]->address + rows.start * rowBytes;
  if (rows.width != field.columns) return writeNarrowRows(rows, address);
  const MemCore::ChunkBase& elements = *rows.data->elements();
  return output_.write(address, {elements.bytes(), elements.byteCount()});
}

/// Rows shorter than those of the dataset, filled up with zeros.
Outcome<void> RepresentationWriter::writeNarrowRows(const BatchRows& rows, std::uint64_t address) {
  constexpr std::uint64_t kBlockBytes = std::uint64_t{1} << 20U;
  const StoredField& field = plan_.fields[rows.field].stored;
  const MemCore::ChunkBase& elements = *rows.data->elements();
  const std::size_t number = scalarBytes(field.type->scalar());
  const std::size_t from = static_cast<std::size_t>(rows.width) * number;
  const std::size_t to = static_cast<std::size_t>(field.columns) * number;
  const std::uint64_t count = from == 0 ? 0 : elements.byteCount() / from;
  const std::uint64_t block = std::max<std::uint64_t>(1, kBlockBytes / to);
  std::vector<std::byte> padded(block * to);
  for (std::uint64_t first = 0; first < count; first += block) {
    const std::uint64_t part = std::min(block, count - first);
    for (std::uint64_t r = 0; r < part; ++r) {
      std::memcpy(padded.data() + r * to, elements.bytes() + (first + r) * from, from);
    }
    auto done = output_.write(address + first * to, std::span(padded).first(part * to));
    if (!done.ok()) return done;
  }
  return {};
}

Outcome<void> RepresentationWriter::finishField(std::size_t f) {
  const StoredField& stored = plan_.fields[f].stored;
  const FieldEncoder* encoder = encoder_.encoder(f);
  std::optional<ScalarKind> kind;
  std::optional<CoordinateGrid> grid;
  if (encoder != nullptr) kind = encoder->storedKind();
  if (encoder != nullptr && encoder->encoding() == Encoding::kGridColumns) {
    grid = sharedGrid(plan_, encoder_);
  }
  return writeFieldAttributes(output_, {*datasets_[f], *group_, plan_.fields[f].dataset}, stored,
                              kind, grid);
}

Outcome<void> RepresentationWriter::finish(const TableToWrite& table) {
  if (auto done = appendChunks(); !done.ok()) return done;
  for (std::size_t f = 0; f < plan_.fields.size(); ++f) {
    if (auto done = finishField(f); !done.ok()) return within(f, done.error());
  }
  const auto checksum = writeFragmentTable(output_, *group_, table);
  if (!checksum.ok()) return checksum.failure();
  output_.contents().add(*checksum);
  return {};
}

}  // namespace Fiber::Container
