// SPDX-License-Identifier: Apache-2.0

#include "datamodel/container/RepresentationWriter.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cstring>

#include "datamodel/container/FieldAttributes.hpp"
#include "datamodel/container/FileDescriptor.hpp"
#include "datamodel/container/Hdf5Types.hpp"
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

DataspaceHandle spaceOf(const StoredField& field) {
  if (!field.type) return DataspaceHandle(H5Screate(H5S_NULL));
  const std::array<hsize_t, 2> extents = {field.rows, field.columns};
  return DataspaceHandle(H5Screate_simple(dimensionsOf(field), extents.data(), nullptr));
}

PropertyHandle creationOf(const StoredField& field, const FieldEncoder* encoder) {
  if (encoder == nullptr || encoder->encoding() == Encoding::kPiece) {
    return datasetCreation({{}, {}});
  }
  const std::array<hsize_t, 2> extents = {encoder->chunkRows(), encoder->chunkColumns()};
  const auto used = std::span(extents).first(static_cast<std::size_t>(dimensionsOf(field)));
  return datasetCreation({used, encoder->filter()});
}

}  // namespace

Failure RepresentationWriter::within(std::size_t field, const std::string& text) const {
  return Failure{
      fmt::format("{}: field {}: {}", output_.name, plan_.fields[field].stored.name, text)};
}

Outcome<void> RepresentationWriter::begin() {
  const Hdf5Lock lock;
  auto group =
      ownHdf5<GroupHandle>(H5Gcreate2(output_.file.get(), plan_.group.c_str(), linkCreation().get(),
                                      groupCreation().get(), H5P_DEFAULT),
                           fmt::format("{}: {} cannot be made", output_.name, plan_.group));
  if (!group.ok()) return group.failure();
  group_ = std::move(group).value();
  targets_.resize(plan_.fields.size());
  for (std::size_t f = 0; f < plan_.fields.size(); ++f) {
    if (auto made = makeDataset(f); !made.ok()) return within(f, made.error());
  }
  return {};
}

Outcome<void> RepresentationWriter::makeDataset(std::size_t f) {
  const PlannedField& field = plan_.fields[f];
  const FieldEncoder* encoder = encoder_.encoder(f);
  const hid_t type = hdf5Type(encoder == nullptr ? ScalarKind::UInt8 : encoder->storedKind());
  const DataspaceHandle space = spaceOf(field.stored);
  const PropertyHandle creation = creationOf(field.stored, encoder);
  auto dataset =
      ownHdf5<DatasetHandle>(H5Dcreate2(group_.get(), field.dataset.c_str(), type, space.get(),
                                        linkCreation().get(), creation.get(), H5P_DEFAULT),
                             "its dataset cannot be made");
  if (!dataset.ok()) return dataset.failure();
  targets_[f].dataset = std::move(dataset).value();
  output_.contents.add(field.dataset);
  if (encoder == nullptr || encoder->encoding() != Encoding::kPiece || field.stored.rows == 0) {
    return {};
  }
  const haddr_t address = H5Dget_offset(targets_[f].dataset.get());
  if (address == HADDR_UNDEF) return Failure{"no room was allocated for its rows"};
  targets_[f].address = address;
  return {};
}

Outcome<void> RepresentationWriter::write(const EncodedBatch& batch) {
  if (auto done = writeChunks(batch); !done.ok()) return done;
  for (const BatchRows& rows : batch.rows) {
    if (auto done = writeRows(rows); !done.ok()) return within(rows.field, done.error());
    output_.contents.add(rows.field);
    output_.contents.add(rows.start);
    output_.contents.add(rows.checksum);
  }
  return {};
}

Outcome<void> RepresentationWriter::writeChunks(const EncodedBatch& batch) {
  const Hdf5Lock lock;
  for (const BatchChunk& chunk : batch.chunks) {
    const std::array<hsize_t, 2> offset = {chunk.range.row, chunk.range.column};
    const auto& bytes = chunk.chunk.bytes;
    const auto done = checkHdf5(H5Dwrite_chunk(targets_[chunk.field].dataset.get(), H5P_DEFAULT, 0,
                                               offset.data(), bytes.size(), bytes.data()),
                                fmt::format("{} bytes cannot be written", bytes.size()));
    if (!done.ok()) return within(chunk.field, done.error());
    output_.contents.add(chunk.field);
    output_.contents.add(chunk.range.row);
    output_.contents.add(chunk.range.column);
    output_.contents.add(chunk.checksum);
  }
  return {};
}

Outcome<void> RepresentationWriter::writeRows(const BatchRows& rows) {
  const StoredField& field = plan_.fields[rows.field].stored;
  const std::uint64_t rowBytes = field.columns * scalarBytes(field.type->scalar());
  const std::uint64_t offset = targets_[rows.field].address + rows.start * rowBytes;
  if (rows.width != field.columns) return writeNarrowRows(rows, offset);
  const MemCore::ChunkBase& elements = *rows.data->elements();
  return writeAt(output_.descriptor, offset, {elements.bytes(), elements.byteCount()}, "its rows");
}

/// Rows shorter than those of the dataset, filled up with zeros.
Outcome<void> RepresentationWriter::writeNarrowRows(const BatchRows& rows, std::uint64_t offset) {
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
    auto done = writeAt(output_.descriptor, offset + first * to, std::span(padded).first(part * to),
                        "its rows");
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
  auto done = writeFieldAttributes(
      {targets_[f].dataset.get(), group_.get(), plan_.fields[f].dataset}, stored, kind, grid);
  if (!done.ok()) return done;
  return targets_[f].dataset.close("its dataset cannot be closed");
}

Outcome<void> RepresentationWriter::finish(const TableContents& table) {
  const Hdf5Lock lock;
  for (std::size_t f = 0; f < plan_.fields.size(); ++f) {
    if (auto done = finishField(f); !done.ok()) return within(f, done.error());
  }
  if (auto done = writeFragmentTable(group_.get(), table); !done.ok()) {
    return Failure{fmt::format("{}: {}", output_.name, done.error())};
  }
  output_.contents.add(checksumOf(table.table));
  return group_.close(fmt::format("{}: {} cannot be closed", output_.name, plan_.group));
}

}  // namespace Fiber::Container
